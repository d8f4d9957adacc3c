#include "QuillmarkKit/Mail/Received.h"

#include <algorithm>
#include <array>
#include <ranges>
#include <span>

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

/// The same of either family, as large servers write down whom they saw.
const Pattern& parenthesizedEither() {
    static const Pattern pattern(R"(\((?:IPv6:)?([0-9A-Fa-f:.]+)\))");
    return pattern;
}

using AddressPattern = const Pattern& (*)();

constexpr std::array<AddressPattern, 3> usual = {bracketed, parenthesized, bare};
constexpr std::array<AddressPattern, 3> seen = {bracketed, parenthesizedEither, bare};

/// Which of the addresses that stand in one of these places is meant.
enum class Which { first, last };

/// The capture that is an address, by the first of the patterns that has one; `clause` is valid UTF-8.
std::optional<std::string_view> addressIn(std::string_view clause, std::span<const AddressPattern> patterns,
                                          Which which) {
    for (const auto pattern : patterns) {
        std::size_t position = 0;
        std::array<std::string_view, 2> groups;
        std::optional<std::string_view> found;
        while (pattern().find(clause, position, groups)) {
            const std::string_view capture = groups[1];
            if (IPAddress::parse(capture)) found = capture;
            if (found && which == Which::first) break;
            position = static_cast<std::size_t>(capture.data() + capture.size() - clause.data());
        }
        if (found) return found;
    }
    return std::nullopt;
}

std::optional<std::string> firstWord(std::string_view text) {
    const std::string_view word = takeWord(text, " ");
    if (word.empty()) return std::nullopt;
    return std::string(word);
}

/// What a Received field is read from, and where its parts lie.
struct Clauses {
    std::string text, lowered;                            ///< of the same length, so that positions fit both
    std::optional<std::size_t> fromEnd = {}, byEnd = {};  ///< behind "from " and behind "by "
    std::size_t fromSize = 0;

    explicit Clauses(std::string_view value) : text(value) {
        std::ranges::replace(text, '\t', ' ');
        lowered = asciiLowered(text);
        constexpr auto none = std::string::npos;
        std::size_t byStart = lowered.find(" by ");
        if (byStart != none) {
            byEnd = byStart + 4;
        } else if (lowered.starts_with("by ")) {
            byStart = 0, byEnd = 3;
        }
        const auto from = lowered.find("from ");
        if (from != 0 && (from == none || lowered[from - 1] != ' ')) return;
        fromEnd = from + 5;
        const bool isBeforeBy = byStart != none && byStart >= *fromEnd;
        fromSize = (isBeforeBy ? byStart : text.size()) - *fromEnd;
    }
    std::string_view from() const { return std::string_view(text).substr(*fromEnd, fromSize); }

    /// The same up to the last " by " outside comments: a client can send that word with its name, but
    /// servers take parentheses out of it.
    std::string_view fromWithName() const {
        std::size_t end = *fromEnd + fromSize, depth = 0;
        for (std::size_t i = *fromEnd; i < lowered.size(); ++i) {
            if (lowered[i] == '(') ++depth;
            if (lowered[i] == ')' && depth > 0) --depth;
            if (depth == 0 && std::string_view(lowered).substr(i).starts_with(" by ")) end = i;
        }
        return std::string_view(text).substr(*fromEnd, end - *fromEnd);
    }
};

/// What a client said its name was, in a "from" clause: a piece of it.
std::string_view announcedName(std::string_view clause) {
    const std::string lowered = asciiLowered(clause);
    const auto firstEnd = std::min(clause.find(' ', clause.find_first_not_of(' ')), clause.size());
    for (std::size_t at = firstEnd; at < clause.size(); ++at) {
        const std::string_view rest = std::string_view(lowered).substr(at);
        if (rest.front() != ' ' && rest.front() != '(') continue;
        // Behind "helo=" stands a word, behind the bare command all that the client sent with it.
        if (rest.substr(1).starts_with("helo=") || rest.substr(1).starts_with("ehlo=")) {
            const std::string_view name = clause.substr(at + 6);
            return name.substr(0, name.find_first_of(" )"));
        }
        if (rest.substr(1).starts_with("helo ") || rest.substr(1).starts_with("ehlo ")) {
            const std::string_view name = clause.substr(at + 6);
            return name.substr(0, name.find(')'));
        }
    }
    return clause.substr(0, firstEnd);
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
    const Clauses clauses(value);
    ReceivedHop hop;
    if (clauses.fromEnd) {
        hop.fromName = firstWord(clauses.from());
        hop.fromIP = addressIn(clauses.from(), usual, Which::first);
    }
    if (clauses.byEnd) {
        hop.by = firstWord(std::string_view(clauses.text).substr(*clauses.byEnd));
        if (hop.by) hop.by = std::string(trimmed(*hop.by, ";"));
    }
    return hop;
}

std::optional<IPAddress> seenClient(std::string_view value) {
    const Clauses clauses(value);
    if (!clauses.fromEnd) return std::nullopt;
    const std::string_view clause = clauses.fromWithName(), announced = announcedName(clause);
    std::string others(clause);
    others.replace(static_cast<std::size_t>(announced.data() - clause.data()), announced.size(),
                   announced.size(), ' ');
    // A client can send blanks and brackets with its name. What the server saw stands behind that.
    auto found = addressIn(others, seen, Which::last);
    if (!found) found = addressIn(clause, seen, Which::last);
    return found ? IPAddress::parse(*found) : std::nullopt;
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
