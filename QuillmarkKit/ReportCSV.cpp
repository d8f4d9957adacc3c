#include "QuillmarkKit/ReportCSV.h"

#include <array>
#include <initializer_list>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestCell = 1000;  // bytes of somebody else's text
constexpr std::string_view rowEnd = "\r\n";

bool looksLikeFormula(std::string_view text) {
    if (text.starts_with('\t') || text.starts_with('\r')) return true;
    text = trimmed(text);
    // The full-width forms of the four signs are read as such, too.
    for (const std::string_view sign : {"=", "+", "-", "@", "＝", "＋", "－", "＠"}) {
        if (text.starts_with(sign)) return true;
    }
    return false;
}

void addCell(std::string& row, std::string_view text) {
    row += row.empty() ? "\"" : ",\"";
    if (looksLikeFormula(text)) row += '\'';
    const std::string shown = forDisplay(text, longestCell);
    for (std::string_view rest = shown; !rest.empty(); rest.remove_prefix(1)) {
        const char c = rest.front();
        row.append(c == '"' ? 2 : 1, c);
        // Where the system's language has numbers with a comma, spreadsheets take a semicolon for the end of
        // a cell, even between these quotes.
        if (c == ';' && looksLikeFormula(trimmed(rest.substr(1), " \""))) row += '\'';
    }
    row += '"';
}

std::string word(const SPFFinding::Status& status) {
    if (const auto* judged = std::get_if<SPFFinding::Status::Judged>(&status.value))
        return nameOf(judged->result);
    return casesOf(&status)[status.value.index()];
}

/// The names of cases, as in the report's JSON, with blanks between them.
template <typename List>
std::string words(const List& list) {
    std::string text;
    for (const auto& one : list) text += (text.empty() ? "" : " ") + std::string(caseNameOf(one));
    return text;
}

std::string joined(const PackedList<MailAddress>& addresses) {
    std::string text;
    for (const MailAddress& address : addresses) {
        if (text.size() > longestCell) break;
        text += (text.empty() ? "" : ", ") + address.address;
    }
    return text;
}

}  // namespace

std::string csvHeader(Digests digests) {
    std::string row;
    for (const char* const name :
         {"file", "checked_at", "verdict", "tone", "domain", "from_domain", "from", "subject", "date",
          "message_id", "spf", "dmarc", "arc", "warning_signs", "notes", "path"}) {
        addCell(row, name);
    }
    if (digests == Digests::asked) addCell(row, "sha256");
    return row.append(rowEnd);
}

std::string csvRow(const ProofReport& report, const std::string& path,
                   const std::optional<std::string>& sha256) {
    const MessageSummary& message = report.summary;
    const std::string checkedAt = rfc3339(report.checkedAt), from = joined(message.from),
                      date = message.date ? rfc3339(*message.date) : "", spf = word(report.spf.status),
                      flags = words(report.flags), notes = words(report.notes);
    const auto text = [](const std::optional<std::string>& value) {
        return value ? std::string_view(*value) : std::string_view();
    };
    std::string row;
    for (const std::string_view cell : std::initializer_list<std::string_view>{
             text(report.fileName), checkedAt, nameOf(report.verdict.kind), nameOf(report.verdict.tone),
             report.verdict.domain, report.verdict.fromDomain, from, message.subject, date,
             text(message.messageID), spf, nameOf(report.dmarc.status),
             casesOf(&report.arc.status)[report.arc.status.value.index()], flags, notes, path}) {
        addCell(row, cell);
    }
    if (sha256) addCell(row, *sha256);
    return row.append(rowEnd);
}

}  // namespace quillmark
