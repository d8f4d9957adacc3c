#include "QuillmarkKit/History.h"

#include <algorithm>
#include <map>
#include <optional>
#include <streambuf>
#include <utility>

#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

namespace {

constexpr std::size_t pieceSize = 1'000'000;  // bytes that go into the sink together
constexpr std::size_t mostFaults = 10;        // of a damaged history that are told

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

/// Reads a history, and hands on each report or why it is none; gives the rest. Throws `DecodingError` where
/// it is no JSON.
JSON readReports(std::istream& text, const std::function<void(ProofReport)>& report,
                 const std::function<void(const DecodingError&)>& fault) {
    return parsedPiecewise(text, "reports", [&](std::size_t number, const JSON& json) {
        std::optional<ProofReport> read;
        try {
            read =
                decoded<ProofReport>(json, MissingMembers::fail, "reports[" + std::to_string(number) + "]");
        } catch (const DecodingError& error) {
            fault(error);
        }
        if (read) report(std::move(*read));
    });
}

/// Where the next report may begin in a damaged text, or its end. In a text of JSON a quote is escaped, so
/// that none of it looks like this.
std::size_t nextReport(std::string_view text, std::size_t from) {
    constexpr std::string_view firstKey = "\"arc\"", ownLine = "\n    ";
    for (std::size_t brace = text.find('{', from); brace != std::string_view::npos;
         brace = text.find('{', brace + 1)) {
        const std::string_view behind = text.substr(brace + 1);
        const std::size_t key = std::min(behind.find_first_not_of(" \t\r\n"), behind.size());
        const bool isOnOwnLine = behind.substr(0, key).find('\n') != std::string_view::npos &&
                                 text.substr(0, brace).ends_with(ownLine);
        if (isOnOwnLine || behind.substr(key).starts_with(firstKey)) return brace;
    }
    return text.size();
}

/// The bytes of a text for a `std::istream`.
struct ViewBuffer : std::streambuf {
    explicit ViewBuffer(std::string_view text) {
        char* const begin = const_cast<char*>(text.data());  // NOLINT(*-const-cast): it is only read
        setg(begin, begin, begin + text.size());
    }
};

}  // namespace

void History::apply(const HistoryChange& change) {
    std::erase_if(reports, [&](const ProofReport& report) { return change.removes(report.id); });
    reports.insert(reports.end(), change.added().begin(), change.added().end());
}

bool HistoryChange::add(ProofReport report) {
    for (ReportNote& note : report.notes) {
        if (auto* undone = std::get_if<ReportNote::Undone>(&note.value)) {
            for (auto& text : undone->texts) {
                text.excerpt.clear();
                text.last.reset();
                text.signedExcerpt.reset();
            }
        }
    }
    if (!compactJSONWithin(largestKeptReport, report)) return false;
    remove(report.id);
    m_added.push_back(std::move(report));
    return true;
}

void HistoryChange::remove(const UUID& id) {
    const bool mayBeAdded = !m_removed.insert(id).second;
    if (mayBeAdded) std::erase_if(m_added, [&](const ProofReport& report) { return report.id == id; });
}

void HistoryChange::append(const HistoryChange& later) {
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

void HistoryWriter::end(const UnknownMembers& unknown) {
    m_text += m_isFirst ? "]" : "\n  ]";
    std::map<std::string_view, std::string> members = {{"version", std::to_string(historyVersion)}};
    for (const UnknownMember& member : unknown) members.emplace(member.name, indented(member.json, 1));
    for (const auto& [name, json] : members) m_text += ",\n  " + encoded(std::string(name)) + ": " + json;
    m_text += "\n}\n";
    m_sink(m_text);
    m_text.clear();
}

History readHistory(std::istream& text, const std::function<void(ProofReport)>& report) {
    std::optional<DecodingError> fault;  // the first; it counts only if the version, behind it, is ours
    const auto take = [&](const DecodingError& error) {
        if (!fault) fault = error;
    };
    const auto hand = [&](ProofReport read) {
        if (!fault) report(std::move(read));
    };
    const JSON rest = readReports(text, hand, take);
    if (isNewer(rest)) return {decoded<Header>(rest).version.value(), {}, {}};
    if (fault) throw *fault;
    return decoded<History>(rest);
}

HistorySalvage salvageHistory(std::string_view text, const std::function<void(ProofReport)>& report) {
    HistorySalvage salvage;
    const auto note = [&](const std::string& fault) {
        if (salvage.faults.size() < mostFaults) salvage.faults.push_back(fault);
    };
    const auto missed = [&](const DecodingError& fault) {
        ++salvage.unread;
        note(fault.what());
    };
    std::set<UUID> taken;
    const auto take = [&](ProofReport read) {
        taken.insert(read.id);
        report(std::move(read));
    };
    try {
        ViewBuffer buffer(text);
        std::istream input(&buffer);
        const JSON rest = readReports(input, take, missed);
        if (isNewer(rest)) {
            salvage.version = decoded<Header>(rest).version.value();
        } else if (salvage.unread == 0) {
            decoded<History>(rest);
        }
        return salvage;
    } catch (const DecodingError& fault) {
        salvage = {};  // the others are met again
        note(fault.what());
    }
    for (std::size_t begin = nextReport(text, 0); begin < text.size();) {
        const std::size_t end = nextReport(text, begin + 1);
        try {
            auto read = decoded<ProofReport>(parsedFirst(text.substr(begin, end - begin)));
            if (!taken.contains(read.id)) report(std::move(read));
        } catch (const DecodingError& fault) {
            ++salvage.unread;
            note("the report at byte " + std::to_string(begin + 1) + ": " + fault.what());
        }
        begin = end;
    }
    return salvage;
}

}  // namespace quillmark
