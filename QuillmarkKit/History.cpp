#include "QuillmarkKit/History.h"

#include <optional>
#include <utility>

#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

namespace {

constexpr std::size_t pieceSize = 1'000'000;  // bytes that go into the sink together

/// What is read of a history first.
struct Header {
    std::optional<std::int64_t> version = {};
};
constexpr auto fieldsOf(const Header*) { return std::tuple{Field{"version", &Header::version}}; }

bool isNewer(const JSON& json) {
    try {
        return decoded<Header>(json).version.value_or(0) > historyVersion;
    } catch (const DecodingError&) {
        return false;  // whatever it is, the whole is judged
    }
}

}  // namespace

void History::apply(const HistoryChange& change) {
    std::erase_if(reports, [&](const ProofReport& report) { return change.removes(report.id); });
    reports.insert(reports.end(), change.added().begin(), change.added().end());
}

bool HistoryChange::add(ProofReport report) {
    if (compactJSON(report).size() > largestKeptReport) return false;
    remove(report.id);
    m_added.push_back(std::move(report));
    return true;
}

void HistoryChange::remove(const UUID& id) {
    const bool mayBeAdded = !m_removed.insert(id).second;
    if (mayBeAdded) std::erase_if(m_added, [&](const ProofReport& report) { return report.id == id; });
}

void HistoryChange::removeAll() {
    m_removesAll = true;
    m_removed.clear();
    m_added.clear();
}

void HistoryChange::append(const HistoryChange& later) {
    if (later.m_removesAll) removeAll();
    for (const UUID& id : later.m_removed) remove(id);
    m_added.insert(m_added.end(), later.m_added.begin(), later.m_added.end());
}

HistoryWriter::HistoryWriter(Sink sink) : m_sink(std::move(sink)), m_text("{\n  \"reports\": [") {}

void HistoryWriter::add(const ProofReport& report) {
    m_text += m_isFirst ? "\n    " : ",\n    ";
    m_text += indented(compactJSON(report), 2);
    m_isFirst = false;
    if (m_text.size() < pieceSize) return;
    m_sink(m_text);
    m_text.clear();
}

void HistoryWriter::end() {
    m_text += m_isFirst ? "]" : "\n  ]";
    m_text += ",\n  \"version\": " + std::to_string(historyVersion) + "\n}\n";
    m_sink(m_text);
    m_text.clear();
}

std::int64_t readHistory(std::istream& text, const std::function<void(ProofReport)>& report) {
    std::optional<DecodingError> fault;  // the first; it counts only if the version, behind it, is ours
    const auto take = [&](std::size_t number, const JSON& json) {
        if (fault) return;
        std::optional<ProofReport> read;
        try {
            read =
                decoded<ProofReport>(json, MissingMembers::fail, "reports[" + std::to_string(number) + "]");
        } catch (const DecodingError& error) {
            fault = error;
        }
        if (read) report(std::move(*read));
    };
    const JSON rest = parsedPiecewise(text, "reports", take);
    if (isNewer(rest)) return decoded<Header>(rest).version.value();
    if (fault) throw *fault;
    return decoded<History>(rest).version;
}

}  // namespace quillmark
