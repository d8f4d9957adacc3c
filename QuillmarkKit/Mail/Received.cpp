#include "QuillmarkKit/Mail/Received.h"

#include <algorithm>
#include <array>
#include <ranges>

#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Support/Pattern.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

// Where an address stands in a "from" clause, best first; each made when it is first asked for, since most
// clauses need the first only and the last takes milliseconds.

const Pattern& bracketed() {
    static const Pattern pattern(R"(\[(?:IPv6:)?([0-9A-Fa-f:.]+)\])");
    return pattern;
}
const Pattern& parenthesized() {
    static const Pattern pattern(R"(\(([0-9]{1,3}(?:\.[0-9]{1,3}){3})\))");
    return pattern;
}
/// What bounds it is written out, because \b knows ASCII letters only.
const Pattern& bare() {
    static const Pattern pattern(R"((?:^|[^\w\pL])([0-9]{1,3}(?:\.[0-9]{1,3}){3})(?:[^\w\pL]|$))");
    return pattern;
}

/// The first capture that is an address; `clause` is valid UTF-8.
std::optional<std::string> firstAddress(std::string_view clause) {
    for (const auto pattern : {bracketed, parenthesized, bare}) {
        std::size_t position = 0;
        std::array<std::string_view, 2> groups;
        while (pattern().find(clause, position, groups)) {
            const std::string_view capture = groups[1];
            if (IPAddress::parse(capture)) return std::string(capture);
            position = static_cast<std::size_t>(capture.data() + capture.size() - clause.data());
        }
    }
    return std::nullopt;
}

std::optional<std::string> firstWord(std::string_view text) {
    const std::string_view word = takeWord(text, " ");
    if (word.empty()) return std::nullopt;
    return std::string(word);
}

/// The client that a Received-SPF field names (RFC 7208, section 9.1).
std::optional<SenderIP> clientOf(const HeaderField& receivedSPF) {
    const std::string value = withoutComments(receivedSPF.value());
    std::optional<std::string_view> client, helo;
    std::string_view rest = value;
    for (auto piece = takeWord(rest, "; \t"); !piece.empty(); piece = takeWord(rest, "; \t")) {
        const auto equals = piece.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view key = piece.substr(0, equals), text = trimmed(piece.substr(equals + 1), "\";");
        if (equalsIgnoringCase(key, "client-ip")) client = text;
        if (equalsIgnoringCase(key, "helo")) helo = text;
    }
    if (!client || !IPAddress::parse(*client)) return std::nullopt;
    SenderIP sender{std::string(*client), {SenderIP::Source::ReceivedSPF{}}, std::nullopt};
    if (helo) sender.helo = *helo;
    return sender;
}

}  // namespace

ReceivedHop ReceivedHop::parse(std::string_view value) {
    std::string text(value);
    std::ranges::replace(text, '\t', ' ');
    const std::string lowered = asciiLowered(text);  // of the same length, so that positions fit both
    const std::string_view working = text;
    constexpr auto none = std::string_view::npos;

    std::size_t byStart = lowered.find(" by "), byEnd = byStart + 4;
    if (byStart == none && lowered.starts_with("by ")) byStart = 0, byEnd = 3;

    ReceivedHop hop;
    const auto from = lowered.find("from ");
    if (from == 0 || (from != none && lowered[from - 1] == ' ')) {
        const auto fromEnd = from + 5;
        const bool isBeforeBy = byStart != none && byStart >= fromEnd;
        const std::string_view clause = working.substr(fromEnd, isBeforeBy ? byStart - fromEnd : none);
        hop.fromName = firstWord(clause);
        hop.fromIP = firstAddress(clause);
    }
    if (byStart != none) {
        hop.by = firstWord(working.substr(byEnd));
        if (hop.by) hop.by = std::string(trimmed(*hop.by, ";"));
    }
    return hop;
}

std::optional<SenderIP> senderIP(const MailMessage& message) {
    if (const HeaderField* field = message.first("Received-SPF")) {
        if (auto sender = clientOf(*field)) return sender;
    }
    for (const auto position : message.positions("Received")) {
        ReceivedHop hop = ReceivedHop::parse(message.headers()[position].value());
        const auto address = hop.fromIP ? IPAddress::parse(*hop.fromIP) : std::nullopt;
        if (!address || !address->isPublic()) continue;
        return SenderIP{
            address->description(), {SenderIP::Source::Received{std::move(hop.by)}}, std::move(hop.fromName)};
    }
    return std::nullopt;
}

std::optional<Date> arrivalDate(std::string_view value) {
    const auto semicolon = value.rfind(';');
    if (semicolon == std::string_view::npos) return std::nullopt;
    return parsedMailDate(value.substr(semicolon + 1));
}

std::vector<PathStep> receivedPath(const MailMessage& message) {
    std::vector<PathStep> path;
    std::optional<Date> earlier;
    for (const auto position : message.positions("Received") | std::views::reverse) {
        const std::string value = message.headers()[position].value();
        PathStep step;
        step.hop = ReceivedHop::parse(value);
        step.date = arrivalDate(value);
        if (step.date && earlier) step.delay = *step.date - *earlier;
        if (step.date) earlier = step.date;
        path.push_back(std::move(step));
    }
    return path;
}

}  // namespace quillmark
