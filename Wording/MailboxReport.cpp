#include "Wording/MailboxReport.h"

#include <algorithm>
#include <iterator>

#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Version.h"
#include "Wording/Banner.h"
#include "Wording/Direction.h"
#include "Wording/Quoted.h"
#include "Wording/TextReport.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t domainsShown = 50, yearsShown = 30, keysShown = 200, looksShown = 500, inputsShown = 20,
                      problemsShown = 100, cautionsShown = 5;
constexpr std::size_t mostKeys = 100'000;      // that are counted
constexpr std::size_t longestKeyName = 1'012;  // bytes of one that DNS can have, in UTF-8
constexpr std::size_t longestCell = 60;        // bytes of somebody else's text
constexpr std::int64_t barLength = 300;
constexpr std::size_t longestLine = 1000;  // bytes
constexpr std::size_t aroundRow = 32;      // bytes of a row's number and its cell

// The tones have the window's colours. Texts of other people are isolated, so that letters written from
// right to left move nothing around them.
constexpr std::string_view style = R"(
:root{color-scheme:light dark;--text:#1b1f24;--page:#fff;--soft:#57606a;--line:#d0d7de;--good:#146136;--caution:#7a4b00;
--bad:#a31d18;--unknown:#3d4a5c;--goodbar:#3a9a63;--cautionbar:#e0a02f;--badbar:#d2564f;--unknownbar:#8794a6}
@media(prefers-color-scheme:dark){:root{--text:#e6edf3;--page:#16191d;--soft:#9aa5b1;--line:#3a424c;--good:#86dda4;
--caution:#f3c568;--bad:#ffa8a0;--unknown:#c0cad8;--goodbar:#3f9f68;--cautionbar:#c48a25;--badbar:#cf5b54;--unknownbar:#77859a}}
body{font:15px/1.45 system-ui,sans-serif;color:var(--text);background:var(--page);max-width:72rem;margin:2rem auto;padding:0 1rem}
h1{font-size:1.5rem}h2{font-size:1.15rem;margin-top:2.2rem}
table{border-collapse:collapse;width:100%}
th,td{text-align:start;vertical-align:top;padding-block:.2rem;padding-inline:0 .6rem;border-bottom:1px solid var(--line);unicode-bidi:isolate;overflow-wrap:anywhere}
th{color:var(--soft);font-weight:600;overflow-wrap:break-word}
.d{white-space:nowrap}th.n{white-space:normal}
.n{text-align:end;white-space:nowrap;font-variant-numeric:tabular-nums}
.g{color:var(--good)}.c{color:var(--caution)}.b{color:var(--bad)}.u{color:var(--unknown)}
.g,.c,.b,.u{font-weight:600;white-space:nowrap}
svg{width:18rem;height:.9rem;max-width:30vw;vertical-align:middle}
rect.g{fill:var(--goodbar)}rect.c{fill:var(--cautionbar)}rect.b{fill:var(--badbar)}rect.u{fill:var(--unknownbar)}
dt{color:var(--soft);float:left;clear:left;width:11rem}dd{margin-block:0 .2rem;margin-inline:11.5rem 0;unicode-bidi:isolate;overflow-wrap:anywhere}
[dir=rtl] dt{float:right;clear:right}[dir=rtl] svg{transform:scaleX(-1)}
li{margin:.3rem 0;unicode-bidi:isolate}li ul{color:var(--soft)}
pre{white-space:pre-wrap;overflow-wrap:anywhere;unicode-bidi:plaintext;font:13px/1.45 ui-monospace,monospace}
a{color:inherit}p.note{color:var(--soft)}
article{display:none;border:1px solid var(--line);border-radius:6px;padding:0 1rem;margin-top:2rem;scroll-margin:1rem}article:target{display:block}
@media print{:root{--text:#000;--page:#fff;--soft:#444;--line:#bbb;--good:#146136;--caution:#7a4b00;--bad:#a31d18;--unknown:#3d4a5c;
--goodbar:#3a9a63;--cautionbar:#e0a02f;--badbar:#d2564f;--unknownbar:#8794a6}
body{margin:0;max-width:none;font-size:10pt}h2{break-after:avoid}tr,li{break-inside:avoid}rect{print-color-adjust:exact}}
)";

/// Text, as it stands in an element or between double quotes.
std::string html(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

char letterOf(Tone tone) {
    switch (tone) {
        case Tone::good:
            return 'g';
        case Tone::caution:
            return 'c';
        case Tone::unknown:
            return 'u';
        case Tone::bad:
            break;
    }
    return 'b';
}

std::string markerCell(Tone tone) {
    return std::string("<td class=") + letterOf(tone) + ">" + html(marker(tone));
}

/// Somebody else's words beside others, whose direction moves nothing around them.
std::string island(std::string_view text) {
    return text.empty() ? std::string() : "<bdi>" + html(text) + "</bdi>";
}

/// A short cell of somebody else's text.
std::string shownShort(std::string_view text) { return island(forDisplay(text, longestCell)); }

std::string senderOf(const ProofReport& report) {
    if (report.summary.from.empty()) return {};
    return island(forDisplay(cutInside(report.summary.from.front().address, longestCell)));
}

std::string heading(std::string_view text) { return "<h2>" + html(text) + "</h2>\n"; }

std::string numberCell(std::int64_t number, const Reader& reader) {
    return "<td class=n>" + (number == 0 ? "" : reader.number(number));
}

/// A bar: how much of `most` the pieces are.
struct Piece {
    char letter;
    std::int64_t count;
    std::string name;
};
std::string bar(const std::vector<Piece>& pieces, std::int64_t most, const Reader& reader) {
    std::string svg = "<td><svg viewBox=\"0 0 300 10\" preserveAspectRatio=none aria-hidden=true>";
    std::int64_t sum = 0;
    const auto place = [&](std::int64_t count) { return most > 0 ? count * barLength / most : 0; };
    for (const auto& [letter, count, name] : pieces) {
        if (count == 0) continue;
        const std::int64_t from = place(sum), width = std::max<std::int64_t>(place(sum + count) - from, 1);
        sum += count;
        svg += std::string("<rect class=") + letter + " x=" + std::to_string(from) +
               " width=" + std::to_string(width) + " height=10><title>" + html(name) + ": " +
               html(reader.number(count)) + "</title></rect>";
    }
    return svg + "</svg>";
}

/// Rows of bars and numbers, by tone.
std::string toneTable(const std::string& title, const std::vector<TotalsRow>& rows, const Reader& reader) {
    if (rows.empty()) return {};
    std::int64_t most = 0;
    for (const TotalsRow& row : rows) most = std::max(most, row.counts.all());
    std::string table = heading(title) + "<table><tr><th><th>";
    for (const Tone tone : tonesByProof) {
        table += std::string("<th class=\"n ") + letterOf(tone) + "\" title=\"" +
                 html(toneWord(tone, reader)) + "\">" + html(marker(tone));
    }
    table += "<th class=n>" + html(reader.translate("in all")) + "\n";
    for (const TotalsRow& row : rows) {
        std::vector<Piece> pieces;
        for (const Tone tone : tonesByProof)
            pieces.push_back({letterOf(tone), row.counts.of(tone), toneWord(tone, reader)});
        table += "<tr><td>" + island(row.label) + bar(pieces, most, reader);
        for (const Tone tone : tonesByProof) table += numberCell(row.counts.of(tone), reader);
        table += numberCell(row.counts.all(), reader) + "\n";
    }
    return table + "</table>\n";
}

/// A path as it may stand in a link.
std::string percentEncoded(std::string_view path) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text = path.starts_with('/') ? "" : "./";
    for (const char c : path) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             std::string_view("-._~/").find(c) != std::string_view::npos;
        const auto byte = static_cast<unsigned char>(c);
        if (isPlain) {
            text += c;
        } else {
            text += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
        }
    }
    return text;
}

std::string lookOf(const Banner& banner, const ProofReport& report) {
    std::string text = std::string("<span class=") + letterOf(banner.tone) + ">" + html(marker(banner.tone)) +
                       "</span> " + html(banner.headline) + " · " + senderOf(report) + " · " +
                       shownShort(report.summary.subject);
    std::string lines;
    if (banner.decider) lines += "<li>" + html(banner.decider->text);
    for (std::size_t i = 0; i < std::min(banner.cautions.size(), cautionsShown); ++i)
        lines += "<li>" + html(banner.cautions[i].text);
    if (!lines.empty()) text += "<ul>" + lines + "</ul>";
    return text;
}

}  // namespace

MailboxEntry mailboxEntry(const ProofReport& report, WholeReport whole, const Reader& reader) {
    const Counted counted = countedOf(report);
    MailboxEntry entry{.year = counted.year};
    const Tone tone = report.verdict.tone;
    const bool hasOthers = counted.hasCautions && tone != Tone::caution;  // the marker alone would mislead
    entry.row = markerCell(tone) + (hasOthers ? " <span class=c>[!]</span>" : "") + "<td>" +
                html(headline(report.verdict, reader)) + "<td class=d>" +
                (entry.year ? html(reader.date(*report.summary.date)) : "") + "<td>" + senderOf(report) +
                "<td>" + shownShort(report.summary.subject) + "<td>" +
                shownShort(placeName(report.fileName.value_or(""), reader));
    if (tone != Tone::good || counted.hasCautions) entry.look = lookOf(bannerOf(report, reader), report);
    if (whole == WholeReport::included) entry.report = html(textReport(report, reader));
    for (const DKIMResult& signature : report.dkim) {
        using Status = DKIMResult::Status;
        using End = MailboxEntry::Signature::End;
        if (signature.domain.size() + signature.selector.size() > longestKeyName) continue;
        const bool isGone =
            signature.status == Status::keyNotPublished || signature.status == Status::keyRevoked;
        auto date = signature.signedAt;
        if (!date && entry.year) date = report.summary.date;
        entry.signatures.push_back({signature.domain, signature.selector,
                                    signature.status == Status::pass ? End::holds
                                    : isGone                         ? End::keyGone
                                                                     : End::other,
                                    date});
    }
    return entry;
}

bool MailboxReport::Key::isGone() const {
    using End = MailboxEntry::Signature::End;
    return ends[static_cast<std::size_t>(End::keyGone)] > 0 &&
           ends[static_cast<std::size_t>(End::holds)] == 0;
}

void MailboxReport::add(MailboxEntry entry) {
    const auto number = static_cast<std::size_t>(++m_count);
    m_reportBytes += entry.report.size();
    if (number > mostReports || m_reportBytes > mostReportBytes || entry.report.empty()) {
        m_keepsReports = false;
        m_reports = {};
    }
    if (m_keepsReports) m_reports.push_back(std::move(entry.report));
    m_rowBytes += entry.row.size() + aroundRow;
    if (number <= mostReports || m_rowBytes <= mostRowBytes) m_rows.push_back(std::move(entry.row));
    if (!entry.look.empty()) {
        if (m_looks.size() < looksShown) {
            m_looks.emplace_back(number, std::move(entry.look));
        } else {
            ++m_looksLeftOut;
        }
    }
    for (auto& [domain, selector, end, date] : entry.signatures) {
        const std::pair name(std::move(domain), std::move(selector));
        if (m_keys.size() >= mostKeys && !m_keys.contains(name)) continue;
        Key& key = m_keys[name];
        ++key.ends[static_cast<std::size_t>(end)];
        // Whoever likes can write a signature that doesn't hold, with any date in it.
        if (!date || end == MailboxEntry::Signature::End::other) continue;
        key.first = std::min(key.first.value_or(*date), *date);
        key.last = std::max(key.last.value_or(*date), *date);
        if (entry.year) key.years.insert(*entry.year);
    }
}

void MailboxReport::addProblem(std::string_view line) {
    if (m_problems.size() < problemsShown)
        m_problems.push_back(inertLine(line, m_reader.language, longestLine));
}

void MailboxReport::write(const MailboxReportHead& head, const Totals& totals, const Sink& sink) const {
    writeHead(head, sink);
    writeTotals(totals, sink);
    writeKeys(sink);
    writeList(head, sink);
    sink("</html>\n");
}

void MailboxReport::writeHead(const MailboxReportHead& head, const Sink& sink) const {
    const Reader& reader = m_reader;
    const std::string digest = encodedBase64(hash(HashAlgorithm::sha256, style));
    const std::string first = head.inputs.empty() ? "" : inert(head.inputs.front());
    const std::string title = head.inputs.size() == 1 ? reader.translate("Quillmark report on %1", {first})
                                                      : reader.translate("Quillmark report on many messages");
    const LanguageFacts& language = factsOf(reader.language);
    sink("<!DOCTYPE html>\n<html lang=" + std::string(language.tag) +
         (language.isRightToLeft ? " dir=rtl" : "") +
         ">\n<meta charset=utf-8>\n<meta http-equiv=Content-Security-Policy content=\"default-src 'none'; "
         "style-src 'sha256-" +
         digest +
         "'; base-uri 'none'; form-action 'none'\">\n<meta name=viewport "
         "content=\"width=device-width\">\n<meta name=referrer content=no-referrer>\n<title>" +
         html(title) + "</title>\n<style>");
    sink(style);
    sink("</style>\n<h1>" + html(title) + "</h1>\n<dl>");
    const auto fact = [&](const std::string& label, const std::string& value) {
        sink("<dt>" + html(label) + "<dd>" + html(isolated(value, reader.language)) + "\n");
    };
    for (std::size_t i = 0; i < std::min(head.inputs.size(), inputsShown); ++i)
        fact(i == 0 ? reader.translate("Checked") : "\u00A0", inert(head.inputs[i]));
    if (head.inputs.size() > inputsShown) {
        fact("\u00A0", reader.translateCount("and %n more", "and %n more",
                                             static_cast<std::int64_t>(head.inputs.size() - inputsShown)));
    }
    fact(reader.translate("Begun"), reader.time(head.begun));
    fact(reader.translate("Ended"), reader.time(head.ended));
    for (const auto& [label, value] : head.facts) fact(label, inertLine(value, reader.language, longestLine));
    fact(reader.translate("Made by"), "Quillmark " QUILLMARK_VERSION);
    sink("</dl>\n");
    if (!head.isWhole) {
        sink("<p><strong>" +
             html(reader.translate("The check was stopped: what follows is of the messages until then.")) +
             "</strong>\n");
    }
}

void MailboxReport::writeTotals(const Totals& totals, const Sink& sink) const {
    const Reader& reader = m_reader;
    sink(heading(reader.translate("Verdicts")) + "<table id=verdicts>\n");
    const auto row = [&](const std::string& cell, const std::string& name, std::int64_t count) {
        sink("<tr>" + cell + "<td>" + html(name) + "<td class=n>" + reader.number(count) + "\n");
    };
    for (const auto& [verdict, count] : totals.verdicts)
        row(markerCell(verdict.second), nameOfKind(verdict.first, reader), count);
    row("<td>", reader.translate("in all"), totals.all.all());
    if (totals.all.withCautions > 0)
        row("<td>", reader.translate("of these with a caution beside the verdict"), totals.all.withCautions);
    if (totals.problems > 0) row("<td>", reader.translate("not checked"), totals.problems);
    if (totals.passedOver > 0) {
        row("<td>", reader.translate("passed over: no messages, but what lies beside them"),
            totals.passedOver);
    }
    sink("</table>\n");
    sink(toneTable(reader.translate("By year"), yearRows(totals, yearsShown, reader), reader));
    sink(toneTable(reader.translate("Signing domains"), domainRows(totals, domainsShown, reader), reader));
}

void MailboxReport::writeKeys(const Sink& sink) const {
    if (m_keys.empty()) return;
    const Reader& reader = m_reader;
    std::map<int, std::pair<std::int64_t, std::int64_t>> years;  // keys that are there, and that are gone
    std::vector<const std::pair<const std::pair<std::string, std::string>, Key>*> keys;
    for (const auto& entry : m_keys) {
        for (const int year : entry.second.years)
            ++(entry.second.isGone() ? years[year].second : years[year].first);
        if (entry.second.first) keys.push_back(&entry);
    }
    std::int64_t most = 0;
    for (const auto& [year, counts] : years) most = std::max(most, counts.first + counts.second);
    if (most > 0) {
        const std::string there = reader.translate("published"), gone = reader.translate("gone");
        sink(heading(reader.translate("Keys by year")) + "<table><tr><th><th><th class=\"n g\">" +
             html(there) + "<th class=\"n u\">" + html(gone) + "\n");
        for (auto year = years.rbegin(); year != years.rend(); ++year) {
            const auto [published, missing] = year->second;
            sink("<tr><td>" + std::to_string(year->first) +
                 bar({{'g', published, there}, {'u', missing, gone}}, most, reader) +
                 numberCell(published, reader) + numberCell(missing, reader) + "\n");
        }
        sink("</table>\n");
    }
    if (keys.empty()) return;
    using End = MailboxEntry::Signature::End;
    const auto count = [](const auto* key, End end) {
        return key->second.ends[static_cast<std::size_t>(end)];
    };
    std::ranges::stable_sort(keys, [&](const auto* one, const auto* other) {
        return count(one, End::holds) + count(one, End::keyGone) >
               count(other, End::holds) + count(other, End::keyGone);
    });
    sink(
        heading(reader.translate("Keys")) + "<p class=note>" +
        html(reader.translate("The first and the last signature of each key, as far as it held or its key is "
                              "gone. Of a key that is gone nothing proves the signatures.")) +
        "\n<table><tr><th>" + html(reader.translate("Domain")) + "<th>" + html(reader.translate("Selector")) +
        "<th>" + html(reader.translate("First")) + "<th>" + html(reader.translate("Last")) + "<th class=n>" +
        html(reader.translate("Held")) + "<th class=n>" + html(reader.translate("Key gone")) +
        "<th class=n>" + html(reader.translate("Didn’t hold")) + "\n");
    for (std::size_t i = 0; i < std::min(keys.size(), keysShown); ++i) {
        const auto& [name, key] = *keys[i];
        sink("<tr><td>" + island(name.first.empty() ? "?" : quotedDomain(name.first)) + "<td>" +
             shownShort(name.second) + "<td class=d>" + html(reader.date(*key.first)) + "<td class=d>" +
             html(reader.date(*key.last)) + numberCell(count(keys[i], End::holds), reader) +
             numberCell(count(keys[i], End::keyGone), reader) +
             numberCell(count(keys[i], End::other), reader) + "\n");
    }
    sink("</table>\n");
    if (keys.size() > keysShown) {
        sink("<p class=note>" +
             html(reader.translateCount("and %n more", "and %n more",
                                        static_cast<std::int64_t>(keys.size() - keysShown))) +
             "\n");
    }
}

void MailboxReport::writeList(const MailboxReportHead& head, const Sink& sink) const {
    const Reader& reader = m_reader;
    const auto anchor = [&](std::size_t number) {
        const std::string shown = std::to_string(number);
        return number <= m_reports.size() ? "<a href=#m" + shown + ">" + shown + "</a>" : shown;
    };
    if (!m_looks.empty()) {
        sink(heading(reader.translate("Those that need a look")) + "<ul>\n");
        for (const auto& [number, look] : m_looks) sink("<li>" + anchor(number) + " " + look + "\n");
        sink("</ul>\n");
        if (m_looksLeftOut > 0) {
            sink("<p class=note>" +
                 html(reader.translateCount("and %n more", "and %n more", m_looksLeftOut)) + "\n");
        }
    }
    if (!m_problems.empty()) {
        sink(heading(reader.translate("Not checked")) + "<ul>\n");
        for (const std::string& line : m_problems) sink("<li>" + html(line) + "\n");
        sink("</ul>\n");
    }
    sink(heading(reader.translate("Messages")));
    const auto left = m_count - static_cast<std::int64_t>(m_rows.size());
    const bool areReportsThere = !m_reports.empty();
    std::string note;
    if (left > 0) {
        note = reader.translateCount("Only the first rows are here; %n message is left out.",
                                     "Only the first rows are here; %n messages are left out.", left);
    }
    if (!areReportsThere && m_count > 0) {
        note += (note.empty() ? "" : " ") +
                reader.translate(
                    "These are too many for the whole report on each; a table (--csv) has them all.");
    }
    if (!note.empty()) sink("<p class=note>" + html(note) + "\n");
    if (head.table) {
        sink("<p><a href=\"" + percentEncoded(*head.table) + "\">" +
             html(reader.translate("The table with a row for each message: %1", {inert(*head.table)})) +
             "</a>\n");
    }
    sink("<table id=messages><tr><th class=n><th><th>" + html(reader.translate("Verdict")) + "<th>" +
         html(reader.translate("Date")) + "<th>" + html(reader.translate("From")) + "<th>" +
         html(reader.translate("Subject")) + "<th>" + html(reader.translate("File")) + "\n");
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        const std::size_t number = i + 1;
        sink(number <= m_reports.size() ? "<tr id=r" + std::to_string(number) + ">" : std::string("<tr>"));
        sink("<td class=n>" + anchor(number) + m_rows[i] + "\n");
    }
    sink("</table>\n");
    for (std::size_t i = 0; i < m_reports.size(); ++i) {
        const std::string number = std::to_string(i + 1);
        sink("<article id=m" + number + "><p><a href=#r" + number + ">" +
             html(reader.translate("Back to the list")) + "</a>\n<pre>\n");
        sink(m_reports[i]);
        sink("</pre></article>\n");
    }
}

}  // namespace quillmark
