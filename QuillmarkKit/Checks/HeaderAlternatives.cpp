#include "QuillmarkKit/Checks/HeaderAlternatives.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Mail/TransferEncodings.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

using Fields = std::vector<std::string>;

constexpr int mostCost = 16;                   // of a whole header: how unusual the changes are together
constexpr std::size_t mostAxes = 24;           // names of which more than the given fields are tried
constexpr std::size_t mostAlternatives = 400;  // of one name
constexpr std::size_t mostNames = 100;         // in `h=` of which alternatives are looked for
constexpr std::size_t mostOfName = 20;         // fields of a name
constexpr std::size_t mostEvidence = 50;       // fields that keep what others said
constexpr std::size_t shortestEvidence = 4;    // bytes of the name of one
constexpr std::size_t mostAddresses = 12;      // where the author's may stand
constexpr std::size_t mostPrefixes = 6;        // tags and marks of an answer in front of a subject
constexpr std::size_t longestUndoneField = 8'192;
constexpr std::size_t mostHeaderTests = 8'000, mostHeaderVerifies = 200;  // of one signature
constexpr std::size_t mostHashedBytes = 32'000'000;                       // of one signature's tries

constexpr std::string_view white = " \t\r\n";

/// What lists add; they stand or fall together.
constexpr std::string_view namesOfLists[] = {
    "list-id",
    "list-post",
    "list-unsubscribe",
    "list-unsubscribe-post",
    "list-help",
    "list-archive",
    "list-subscribe",
    "list-owner",
    "precedence",
    "errors-to",
    "x-beenthere",
    "archived-at",
    "mailing-list",
    "auto-submitted",
    "x-mailman-version",
    "x-loop",
    "list-software",
    "feedback-id",
    "resent-date",
    "resent-from",
    "resent-sender",
    "resent-to",
    "resent-cc",
    "resent-message-id",
    "x-auto-response-suppress",
};

bool isOneOf(std::string_view name, std::span<const std::string_view> names) {
    return std::ranges::find(names, name) != names.end();
}

/// The names whose fields may have stood otherwise, and the ways in which they may have.
struct Alternative {
    int cost = 0;
    std::vector<Fields> fields = {};  // one list for each name
};
struct Axis {
    std::vector<std::string> names = {};
    std::vector<Alternative> alternatives = {};  // the first is the given one

    void add(int cost, std::vector<Fields> fields) {
        if (alternatives.size() == mostAlternatives) return;
        for (Alternative& known : alternatives) {
            if (known.fields != fields) continue;
            known.cost = std::min(known.cost, cost);
            return;
        }
        alternatives.push_back({cost, std::move(fields)});
    }
    void add(int cost, Fields fields) { add(cost, std::vector<Fields>{std::move(fields)}); }
};

std::string_view valueOf(std::string_view raw) {
    return raw.substr(std::min(raw.find(':'), raw.size() - 1) + 1);
}

/// One line, blanks at its ends gone.
std::string unfolded(std::string_view value) {
    std::string text(trimmed(value, white));
    std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
    return text;
}

// Encoded words, written as programs write them

std::string latin1Of(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        const char32_t scalar = takeScalar(text);
        if (scalar > 0xFF) return {};
        bytes += static_cast<char>(scalar);
    }
    return bytes;
}

std::string qEncoded(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        if (isDigit(c) || isASCIILetter(c) || std::string_view("!*+-/").find(c) != std::string_view::npos) {
            text += c;
        } else if (c == ' ') {
            text += '_';
        } else {
            constexpr std::string_view digits = "0123456789ABCDEF";
            const auto byte = static_cast<unsigned char>(c);
            text += {'=', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return text;
}

/// `text` in the ways that are common; the text itself when it is ASCII.
std::vector<std::string> encodings(const std::string& text) {
    if (isASCII(text)) return {text};
    std::vector<std::string> forms = {text};
    const std::string latin1 = latin1Of(text);
    const auto add = [&](std::string_view charset, std::string_view bytes, std::string_view lead = {}) {
        const std::string begin = std::string(lead) + "=?" + std::string(charset) + "?";
        const std::string base64 = encodedBase64(bytes), quoted = qEncoded(bytes);
        forms.push_back(begin + "B?" + base64 + "?=");
        forms.push_back(begin + "Q?" + quoted + "?=");
        forms.push_back(begin + "b?" + base64 + "?=");
        forms.push_back(begin + "q?" + quoted + "?=");
    };
    for (const std::string_view charset : {"UTF-8", "utf-8"}) add(charset, text);
    if (!latin1.empty()) {
        for (const std::string_view charset : {"iso-8859-1", "ISO-8859-1"}) add(charset, latin1);
    }
    // From the first word on that needs it.
    const auto wide = static_cast<std::size_t>(
        std::ranges::find_if(text, [](char c) { return !isASCII({&c, 1}); }) - text.begin());
    if (const auto blank = text.rfind(' ', wide); blank != std::string::npos) {
        const std::string_view whole = text, lead = whole.substr(0, blank + 1);
        for (const std::string_view charset : {"UTF-8", "utf-8"}) add(charset, whole.substr(blank + 1), lead);
    }
    // Only the words that need it, as many programs do.
    for (const std::string_view charset : {"UTF-8", "utf-8"}) {
        std::string words;
        for (std::string_view rest = text; !rest.empty();) {
            const std::string word(takePiece(rest, ' '));
            if (!words.empty()) words += ' ';
            words += isASCII(word) ? word : "=?" + std::string(charset) + "?Q?" + qEncoded(word) + "?=";
        }
        forms.push_back(std::move(words));
    }
    return forms;
}

// Subjects

struct Prefix {
    std::string text = {};  // with the blanks behind it
    bool isAnswer = false;  // "Re: "; else a tag
};

/// How long a tag at the front of `text` is; zero without one.
std::size_t tagLength(std::string_view text) {
    constexpr std::size_t longestTag = 80;
    constexpr std::pair<char, char> brackets[] = {{'[', ']'}, {'(', ')'}, {'{', '}'}, {'<', '>'}};
    for (const auto& [open, close] : brackets) {
        if (!text.starts_with(open)) continue;
        const auto end = text.substr(0, longestTag).find(close);
        return end == std::string_view::npos ? 0 : end + 1;
    }
    if (!text.starts_with('*')) return 0;
    const auto word = text.find_first_not_of('*');
    const auto stars = word == std::string_view::npos ? word : text.substr(0, longestTag).find('*', word);
    if (stars == std::string_view::npos) return 0;
    return std::min(text.find_first_not_of('*', stars), text.size());
}

bool isAnswerWord(std::string_view word) {
    constexpr std::string_view words[] = {"re",   "aw",   "antw", "sv",   "vs",  "fw", "fwd", "wg",   "r",
                                          "i",    "rif",  "res",  "enc",  "tr",  "rv", "odp", "pd",   "ynt",
                                          "vb",   "fs",   "bls",  "trs",  "atb", "vl", "ref", "réf",  "回复",
                                          "答复", "转发", "回覆", "轉寄", "на",  "hа", "отв", "назад"};
    return isOneOf(unicodeLowered(word), words);
}

/// Takes a mark or tag off the front; nothing when there is none.
std::optional<Prefix> takePrefix(std::string_view& text) {
    Prefix prefix;
    std::size_t length = tagLength(text);
    if (length == 0) {
        const auto colon = text.substr(0, 40).find(':');
        if (colon == std::string_view::npos || colon == 0) return std::nullopt;
        const std::string_view word = text.substr(0, colon);
        const std::string_view bare = word.substr(0, word.find_first_of("[(^* "));
        prefix.isAnswer = isAnswerWord(bare);
        if (!prefix.isAnswer && word.find(' ') != std::string_view::npos) return std::nullopt;
        length = colon + 1;
    }
    const auto end = std::min(text.find_first_not_of(white, length), text.size());
    prefix.text = text.substr(0, end);
    text.remove_prefix(end);
    return prefix;
}

/// What a subject may have been, with how unusual that is. `isAnswer`: the message says it answers another.
std::vector<std::pair<int, std::string>> subjectsBefore(std::string_view subject, bool isAnswer) {
    std::vector<std::pair<int, std::string>> before;
    std::vector<Prefix> prefixes;
    std::string_view rest = subject;
    while (prefixes.size() < mostPrefixes) {
        auto prefix = takePrefix(rest);
        if (!prefix) break;
        prefixes.push_back(std::move(*prefix));
    }
    const auto spaced = [](const std::string& text) {
        return text.ends_with(' ') || text.ends_with('\t') || text.ends_with('\n') ? text : text + ' ';
    };
    for (std::size_t mask = 0; mask < std::size_t{1} << prefixes.size(); ++mask) {  // of those taken out
        int cost = 0;
        std::string kept, tags, answers;
        bool isAnyAnswer = false;
        for (std::size_t i = 0; i < prefixes.size(); ++i) {
            if (mask >> i & 1) {
                cost += prefixes[i].isAnswer ? 3 : 1;
                continue;
            }
            isAnyAnswer |= prefixes[i].isAnswer;
            kept += prefixes[i].text;
            (prefixes[i].isAnswer ? answers : tags) += spaced(prefixes[i].text);
        }
        const std::string text(rest);
        if (mask) before.emplace_back(cost, kept + text);
        // Which of the two stood first: "[list] Re: x" or "Re: [list] x".
        before.emplace_back(cost + 2, answers + tags + text);
        before.emplace_back(cost + 3, tags + answers + text);
        if (isAnyAnswer) {
            for (const std::string_view form :
                 {"Re: ",  "RE: ", "re: ",  "AW: ", "Aw: ",     "Antw: ",   "SV: ",
                  "Sv: ",  "VS: ", "Fwd: ", "FW: ", "Fw: ",     "WG: ",     "R: ",
                  "RES: ", "TR: ", "Re:",   "RE:",  "Re: Re: ", "Re: AW: ", "AW: Re: "}) {
                before.emplace_back(cost + 3, std::string(form) + tags + text);
            }
        } else if (mask || isAnswer) {
            for (const std::string_view form : {"Re: ", "RE: ", "AW: ", "Fwd: "})
                before.emplace_back(cost + (isAnswer ? 2 : 4), std::string(form) + tags + text);
        }
    }
    // A tag behind.
    const std::string_view trimmedRest = trimmed(subject, white);
    if (trimmedRest.ends_with(']') || trimmedRest.ends_with(')')) {
        const auto open = trimmedRest.find_last_of(trimmedRest.ends_with(']') ? '[' : '(');
        if (open != std::string_view::npos)
            before.emplace_back(2, std::string(trimmed(trimmedRest.substr(0, open), white)));
    }
    if (const auto dash = rest.substr(0, 40).find(" - "); dash != std::string_view::npos)
        before.emplace_back(4, std::string(rest.substr(dash + 3)));
    return before;
}

// Addresses

/// The entries of an address list as they stand.
std::vector<std::string_view> entriesOf(std::string_view value) {
    std::vector<std::string_view> entries;
    bool isQuoted = false;
    std::size_t begin = 0, depth = 0;
    for (std::size_t i = 0; i <= value.size(); ++i) {
        const char c = i < value.size() ? value[i] : ',';
        if (c == '\\' && isQuoted) ++i;
        if (c == '"') isQuoted = !isQuoted;
        if (c == '(' || c == '<') ++depth;
        if ((c == ')' || c == '>') && depth > 0) --depth;
        if (i < value.size() && (c != ',' || isQuoted || depth > 0)) continue;
        entries.push_back(trimmed(value.substr(begin, std::min(i, value.size()) - begin), white));
        begin = i + 1;
    }
    return entries;
}

std::string joinedEntries(std::span<const std::string_view> entries, std::size_t without) {
    std::string text;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i != without) text += (text.empty() ? "" : ", ") + std::string(entries[i]);
    }
    return text;
}

/// "Ann via List", "'Ann' via List", "Ann (via List)": what stands before that.
std::vector<std::string> namesBefore(const std::string& name) {
    std::vector<std::string> names = {name};
    const std::string lower = asciiLowered(name);
    for (const std::string_view mark : {" via ", " (via ", " [via ", " - ", " (", " at ", " über ", " @ "}) {
        if (const auto at = lower.rfind(mark); at != std::string::npos && at > 0)
            names.insert(names.begin(), name.substr(0, at));
    }
    for (std::size_t i = 0, count = names.size(); i < count; ++i) {
        const std::string_view bare = trimmed(names[i], "'\" ");
        if (bare != names[i] && !bare.empty()) names.emplace_back(bare);
    }
    return names;
}

/// The address that is hidden in that of a list: "ann=40example.org@dmarc.example".
std::vector<std::string> addressesInside(std::string_view address) {
    std::vector<std::string> inside;
    const std::string_view local = address.substr(0, address.rfind('@'));
    for (const std::string_view mark : {"=40", "=", "%", ".at."}) {
        const auto at = local.rfind(mark);
        if (at == std::string_view::npos || at == 0) continue;
        inside.push_back(std::string(local.substr(0, at)) + '@' +
                         std::string(local.substr(at + mark.size())));
        // "list+ann=example.org@lists.example"
        if (const auto plus = local.substr(0, at).find_first_of("+-"); plus != std::string_view::npos)
            inside.push_back(inside.back().substr(plus + 1));
    }
    return inside;
}

constexpr std::size_t waysOfFolding = 8;

/// A field folded at other places, or at none; one blank behind its name or none. Counts in the simple form.
/// As many as there are ways, in their order.
std::vector<std::string> refolded(const std::string& raw) {
    const auto colon = raw.find(':');
    if (colon == std::string::npos) return {};
    const std::string name = raw.substr(0, colon + 1);
    std::string flat = raw.substr(colon + 1), single;
    std::erase_if(flat, [](char c) { return c == '\r' || c == '\n'; });
    flat = trimmedBlanks(flat);
    bool isBlankOpen = false;
    for (const char c : flat) {
        if (!isBlank(c) && isBlankOpen) single += ' ';
        isBlankOpen = isBlank(c);
        if (!isBlankOpen) single += c;
    }
    std::vector<std::string> made;
    for (const std::string& text : {flat, single}) {
        made.push_back(name + " " + text);
        made.push_back(name + text);
    }
    for (const std::size_t width : {std::size_t{78}, std::size_t{76}}) {
        for (const std::string_view blank : {" ", "\t"}) {
            std::string folded, line = name;
            for (std::string_view rest = single; !rest.empty();) {
                const std::string word(takePiece(rest, ' '));
                if (line.size() + 1 + word.size() > width && line != name) {
                    folded += std::exchange(line, std::string(blank) + word) + "\r\n";
                } else {
                    line += " " + word;
                }
            }
            made.push_back(folded + line);
        }
    }
    return made;
}

/// Everything that a message says of how its header stood.
class Ways {
public:
    Ways(const MailMessage& message, const BrokenSignature& signature, std::span<const HeaderHint> hints)
        : m_message(message), m_signature(signature), m_hints(hints) {
        readCopies();
        for (const HeaderField& field : message.headers()) {
            if (m_evidence.size() == mostEvidence) break;
            if (field.name.size() < shortestEvidence) continue;
            const std::string name = asciiLowered(field.name.substr(0, 100));
            const bool isKept = name.find("original") != std::string::npos || name.starts_with("x-old-") ||
                                name.starts_with("old-");
            if (isKept && field.raw.size() <= longestUndoneField) m_evidence.emplace_back(name, field.raw);
        }
        m_isFromList = m_message.first("List-Id") || m_message.first("List-Post") ||
                       m_message.first("Precedence") || m_message.first("List-Unsubscribe");
    }

    std::vector<Axis> axes() {
        std::vector<Axis> axes;
        Axis lists;
        std::vector<std::string> names;
        const auto addName = [&](std::string_view asWritten) {
            if (names.size() == mostNames) return;
            std::string name = asciiLowered(asWritten);
            if (m_written.try_emplace(name).second) names.push_back(std::move(name));
        };
        for (const std::string_view name : m_signature.signedHeaders) addName(name);
        for (const HeaderHint& hint : m_hints) addName(hint.name);
        readWritten();
        for (const std::string& name : names) {
            const Fields given = fieldsOf(name);
            const bool isLong = std::ranges::any_of(
                given, [](const std::string& raw) { return raw.size() > longestUndoneField; });
            if (isLong || given.size() > mostOfName) continue;
            if (isOneOf(name, namesOfLists) && !m_copies.contains(name) && !given.empty()) {
                lists.names.push_back(name);
                continue;
            }
            Axis axis = axisOf(name, given);
            if (axis.alternatives.size() > 1) axes.push_back(std::move(axis));
        }
        if (!lists.names.empty()) {
            addLists(lists);
            axes.push_back(std::move(lists));
        }
        if (axes.size() > mostAxes) axes.resize(mostAxes);
        return axes;
    }

    /// A program that folds header lines folds all of them alike: each name's fields in one of these ways, or
    /// as they stand. Only what counts in the signature's form; nothing when no field differs.
    std::vector<Axis> axesRefolded(std::size_t way) const {
        std::vector<Axis> axes;
        if (m_signature.canonicalization.header != Canonicalization::simple) return axes;
        std::set<std::string> names;
        for (const std::string_view asWritten : m_signature.signedHeaders) {
            const std::string name = asciiLowered(asWritten);
            if (axes.size() == mostAxes || names.size() == mostNames) break;
            if (!names.insert(name).second) continue;
            const Fields given = fieldsOf(name);
            const bool isLong = std::ranges::any_of(
                given, [](const std::string& raw) { return raw.size() > longestUndoneField; });
            if (given.empty() || isLong || given.size() > mostOfName) continue;
            Fields folded;
            for (const std::string& raw : given) {
                const auto forms = refolded(raw);
                folded.push_back(forms.empty() ? raw : forms[way]);
            }
            if (folded == given) continue;
            Axis axis{{name}, {{0, {std::move(folded)}}}};
            axis.add(mostCost / 2, given);
            axes.push_back(std::move(axis));
        }
        return axes;
    }

    /// All but the signature itself, topmost first.
    Fields fieldsOf(std::string_view name) const {
        Fields fields;
        for (const auto position : m_message.positions(name)) {
            const HeaderField& field = m_message.headers()[position];
            if (field != m_signature.field) fields.emplace_back(field.raw);
            if (fields.size() > mostOfName) break;
        }
        return fields;
    }

private:
    /// "From:a@example.org|Subject:x=20y"
    void readCopies() {
        if (m_signature.copies.size() > 16 * longestUndoneField) return;
        const std::string text = withoutWhitespace(m_signature.copies);
        for (std::string_view rest = text; !rest.empty();) {
            std::string_view copy = takePiece(rest, '|');
            const std::string name = asciiLowered(takePiece(copy, ':'));
            std::string field = name + ": " + decodedEscapes(copy, '=');
            // No line of the header may begin in what a signature says.
            std::erase_if(field, [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
            Fields& copies = m_copies[name];
            if (field.size() <= longestUndoneField && copies.size() < mostOfName) copies.push_back(field);
        }
    }

    /// How `h=` writes each name. One that lists all in small letters says nothing of how they stood.
    void readWritten() {
        if (m_signature.canonicalization.header != Canonicalization::simple) return;
        std::set<std::string_view> known;
        for (const std::string_view listed : m_signature.signedHeaders) {
            const std::string name = asciiLowered(listed);
            const auto written = listed != name ? m_written.find(name) : m_written.end();
            if (written == m_written.end() || written->second.size() == mostAlternatives) continue;
            if (known.insert(listed).second) written->second.emplace_back(listed);
        }
    }

    Axis axisOf(const std::string& name, const Fields& given) const {
        Axis axis{{name}, {{0, {given}}}};
        if (const auto copies = m_copies.find(name); copies != m_copies.end()) axis.add(1, copies->second);
        for (const HeaderHint& hint : m_hints) {
            if (hint.name != name) continue;
            if (hint.isCertain) axis.alternatives.front().cost = 4;
            int cost = hint.isCertain ? 0 : 1;
            for (const Fields& fields : hint.alternatives) axis.add(std::min(cost++, 4), fields);
        }
        if (given.size() > 1) {
            for (std::size_t i = 0; i < given.size(); ++i) {
                Fields others = given;
                others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
                axis.add(i == 0 ? 1 : 2, std::move(others));
            }
        }
        const bool mayBeAdded = name == "reply-to" || name == "sender" || name == "cc";
        if (!given.empty() && name != "from")
            axis.add(mayBeAdded && m_isFromList ? 1 : mayBeAdded ? 2 : 5, Fields());
        if (name == "subject" && given.size() == 1) addSubjects(axis, given.front());
        if (name == "from" && given.size() == 1) addSenders(axis, given.front());
        if ((name == "reply-to" || name == "to" || name == "cc") && given.size() == 1)
            addShorterLists(axis, given.front());
        if (m_signature.canonicalization.header == Canonicalization::simple && given.size() == 1) {
            int cost = 2;
            for (std::string& form : refolded(given.front())) axis.add(cost++ / 2, {std::move(form)});
            addNames(axis, given.front());
        }
        for (const auto& [kept, raw] : m_evidence) {
            if (kept.ends_with("-" + name)) axis.add(2, {withName(name, valueOf(raw))});
            if (name == "from" && kept == "x-original-sender") axis.add(3, {withName(name, valueOf(raw))});
        }
        return axis;
    }

    /// A field as it would stand in the message: its name as it is written there.
    std::string withName(std::string_view name, std::string_view value) const {
        const HeaderField* given = m_message.first(name);
        std::string field(given ? given->name : name);
        field += ':';
        if (value.empty() || !isBlank(value.front())) field += ' ';
        return field += value;
    }

    /// The name of a field in other capital letters, which count in the simple form: as the signature lists
    /// it, or "Message-Id" and "Mime-Version" for "Message-ID" and "MIME-Version", and the reverse.
    void addNames(Axis& axis, const std::string& raw) const {
        const auto colon = std::min(raw.find(':'), raw.size());
        const std::string name = asciiLowered(raw.substr(0, colon)), rest = raw.substr(colon);
        if (const auto written = m_written.find(name); written != m_written.end()) {
            for (const std::string& listed : written->second) axis.add(1, {listed + rest});
        }
        for (const std::string_view known : {"Message-ID", "Message-Id", "MIME-Version", "Mime-Version"}) {
            if (asciiLowered(known) == name) axis.add(1, {std::string(known) + rest});
        }
    }

    void addSubjects(Axis& axis, const std::string& raw) const {
        const bool isAnswer = m_message.first("In-Reply-To") || m_message.first("References");
        const std::string_view value = valueOf(raw);
        const auto begin = std::min(value.find_first_not_of(white), value.size());
        const std::string_view subject = value.substr(begin);
        // In the simple form the blanks in front count.
        const std::string lead(value.substr(0, begin));
        const auto add = [&](int cost, std::string_view text) {
            axis.add(cost, {withName("subject", (lead.empty() ? " " : lead) + std::string(text))});
        };
        for (const auto& [cost, text] : subjectsBefore(subject, isAnswer)) add(cost, text);
        const std::string flat = unfolded(subject);
        const std::string decoded = EncodedWords::decode(flat);
        if (flat.find("=?") != std::string::npos || !isASCII(flat)) {
            std::vector<std::pair<int, std::string>> texts = {{1, decoded}};
            for (auto& before : subjectsBefore(decoded, isAnswer)) {
                if (before.first <= 3) texts.push_back(std::move(before));
            }
            std::ranges::stable_sort(texts, {}, [](const auto& text) { return text.first; });
            if (texts.size() > 12) texts.resize(12);
            for (const auto& [cost, text] : texts) {
                for (const std::string& form : encodings(text)) add(cost + 1, form);
            }
            // A tag that is an encoded word of its own.
            if (const auto end = flat.find("?="); flat.starts_with("=?") && end != std::string::npos)
                add(2, trimmed(std::string_view(flat).substr(end + 2), white));
        }
        if (const HeaderField* topic = m_message.first("Thread-Topic");
            topic && topic->raw.size() <= longestUndoneField) {
            const std::string text = unfolded(topic->valueBytes());
            for (const std::string_view form : {"", "Re: ", "RE: ", "AW: ", "FW: "})
                add(form.empty() ? 2 : 3, std::string(form) + text);
        }
    }

    void addSenders(Axis& axis, const std::string& raw) const {
        const std::string value = unfolded(valueOf(raw));
        const auto shown = MailAddress::parseList(value);
        if (shown.size() != 1) return;
        const auto angle = value.rfind('<');
        std::string name =
            angle == std::string::npos ? std::string() : std::string(trimmed(value.substr(0, angle), white));
        if (name.size() > 1 && name.starts_with('"') && name.ends_with('"'))
            name = name.substr(1, name.size() - 2);

        // Who it may have been, with the whole entries as they stand.
        std::vector<std::string> addresses;
        std::vector<std::string> names = namesBefore(name);
        const auto addAddress = [&](std::string_view address) {
            if (addresses.size() < mostAddresses && address.find('@') != std::string_view::npos &&
                std::ranges::find(addresses, address) == addresses.end())
                addresses.emplace_back(address);
        };
        const auto addFrom = [&](std::string_view field) {
            const std::string text = unfolded(field);
            for (const std::string_view entry : entriesOf(text)) {
                const auto address = MailAddress::parse(entry);
                if (!address) continue;
                addAddress(address->address);
                axis.add(isOfSigner(address->address) ? 1 : 4, {withName("from", entry)});
                if (address->displayName) names.push_back(*address->displayName);
            }
        };
        for (const std::string& address : addressesInside(shown.front().address)) addAddress(address);
        for (const std::string_view field : {"Reply-To", "X-Original-From", "Cc", "Sender", "X-Sender",
                                             "X-Original-Sender", "Return-Path", "Mail-Followup-To"}) {
            const HeaderField* found = m_message.first(field);
            if (found && found->raw.size() <= longestUndoneField) addFrom(found->valueBytes());
        }
        for (const auto& [kept, field] : m_evidence) {
            if (kept.find("from") != std::string::npos || kept.find("sender") != std::string::npos)
                addFrom(valueOf(field));
        }
        // A name that is itself an address.
        for (const std::string& each : namesBefore(name)) addAddress(trimmed(each, "'\"<> "));
        addAddress(shown.front().address);
        std::ranges::stable_sort(addresses, {},
                                 [&](const std::string& address) { return !isOfSigner(address); });

        std::vector<std::string> written;
        for (const std::string& each : names) {
            written.push_back(each);
            const std::string decoded = EncodedWords::decode(each);
            if (decoded == each && isASCII(each)) continue;
            for (const std::string& bare : namesBefore(decoded)) {
                auto forms = encodings(bare);
                if (forms.size() > 5) forms.resize(5);
                std::ranges::move(forms, std::back_inserter(written));
            }
        }
        for (const std::string& address : addresses) {
            const int cost = isOfSigner(address) ? 1 : 4;
            for (const std::string& each : written) {
                if (each.empty()) continue;
                const std::string bracketed = " <" + address + ">";
                std::string quotedName = "\"";
                quotedName += each;
                quotedName += "\"";
                axis.add(cost, {withName("from", each + bracketed)});
                axis.add(cost, {withName("from", quotedName + bracketed)});
                axis.add(cost + 2, {withName("from", "'" + each + "'" + bracketed)});
                axis.add(cost + 2, {withName("from", address + " (" + each + ")")});
            }
            axis.add(cost, {withName("from", address)});
            axis.add(cost, {withName("from", "<" + address + ">")});
        }
    }

    bool isOfSigner(std::string_view address) const {
        const std::string domain = MailAddress::domainPart(address),
                          signer = asciiLowered(m_signature.domain);
        return domain == signer || domain.ends_with("." + signer) || signer.ends_with("." + domain);
    }

    void addShorterLists(Axis& axis, const std::string& raw) const {
        const std::string value = unfolded(valueOf(raw));
        const auto entries = entriesOf(value);
        if (entries.size() < 2 || entries.size() > 20) return;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            axis.add(3, {withName(axis.names.front(), joinedEntries(entries, i))});
            if (entries.size() <= 6) axis.add(3, {withName(axis.names.front(), entries[i])});
        }
    }

    void addLists(Axis& axis) const {
        std::vector<Fields> given;
        for (const std::string& name : axis.names) given.push_back(fieldsOf(name));
        axis.alternatives.push_back({0, given});
        axis.add(1, std::vector<Fields>(given.size()));
        for (std::size_t i = 0; i < given.size(); ++i) {
            auto others = given;
            others[i].clear();
            axis.add(2, std::move(others));
            auto only = std::vector<Fields>(given.size());
            only[i] = given[i];
            axis.add(3, std::move(only));
            if (given[i].size() < 2) continue;
            others = given;
            others[i].erase(others[i].begin());  // added on top of the author's own
            axis.add(2, std::move(others));
        }
    }

    const MailMessage& m_message;
    const BrokenSignature& m_signature;
    const std::span<const HeaderHint> m_hints;
    std::map<std::string, Fields> m_copies = {};  // of `z=`
    // How `h=` writes names otherwise than in small letters.
    std::map<std::string, std::vector<std::string>> m_written = {};
    std::vector<std::pair<std::string, std::string_view>> m_evidence = {};
    bool m_isFromList = false;
};

class StringSink : public ByteSink {
public:
    void add(std::string_view bytes) override { m_text += bytes; }
    std::string take() { return std::exchange(m_text, {}); }

private:
    std::string m_text = {};
};

/// The data that is hashed, with what differs between the tries left open.
class Search {
public:
    Search(const MailMessage& message, const BrokenSignature& signature, const Ways& ways,
           std::vector<Axis> axes)
        : m_signature(signature), m_ways(ways), m_axes(std::move(axes)) {
        for (Axis& axis : m_axes) std::ranges::stable_sort(axis.alternatives, {}, &Alternative::cost);
        lay(message);
        countCosts();
    }

    std::optional<std::vector<NamedFields>> run(HeaderBudget& budget, const std::stop_token& stop) {
        m_budget = &budget;
        const std::size_t size = std::max<std::size_t>(m_size, 1);
        m_left = std::min({mostHeaderTests, budget.tests, mostHashedBytes / size});
        m_verifiesLeft = std::min(mostHeaderVerifies, budget.verifies);
        m_chosen.assign(m_axes.size(), 0);
        for (int cost = 0; cost <= mostCost; ++cost) {
            if (stop.stop_requested()) return std::nullopt;
            if (m_reachable[0][static_cast<std::size_t>(cost)] && descend(0, cost)) return changes();
        }
        return std::nullopt;
    }

private:
    /// A piece of the data: text that is always the same, or a field of an axis.
    struct Piece {
        std::string fixed = {};
        std::size_t axis = 0;
        std::vector<std::string> ofAlternative = {};  // empty: it is fixed
    };

    std::string canonical(std::string_view raw) {
        canonicalizeHeader(raw, m_signature.canonicalization.header, m_sink);
        m_sink.add("\r\n");
        return m_sink.take();
    }
    void addFixed(std::string_view text) {
        m_size += text.size();
        if (m_pieces.empty() || !m_pieces.back().ofAlternative.empty()) m_pieces.emplace_back();
        m_pieces.back().fixed += text;
    }
    void lay(const MailMessage& message) {
        struct Known {
            std::vector<Axis>::iterator axis = {};
            std::span<const std::uint32_t> positions = {};
            std::size_t taken = 0;  // from below; the signature itself counts
        };
        std::map<std::string, Known> known;  // a name may be listed millions of times
        for (const std::string_view asWritten : m_signature.signedHeaders) {
            const std::string name = asciiLowered(asWritten);
            auto found = known.find(name);
            if (found == known.end()) {
                const auto axis = std::ranges::find_if(m_axes, [&](const Axis& each) {
                    return std::ranges::find(each.names, name) != each.names.end();
                });
                found = known.emplace(name, Known{axis, message.positions(name)}).first;
            }
            auto& [axis, positions, count] = found->second;
            if (axis == m_axes.end()) {
                while (count < positions.size() && m_size < mostHashedBytes) {
                    const HeaderField& field = message.headers()[positions[positions.size() - ++count]];
                    if (field == m_signature.field) continue;
                    addFixed(canonical(field.raw));
                    break;
                }
                continue;
            }
            if (count == mostOfName) continue;
            const auto index =
                static_cast<std::size_t>(std::ranges::find(axis->names, name) - axis->names.begin());
            Piece piece{{}, static_cast<std::size_t>(axis - m_axes.begin()), {}};
            std::size_t longest = 0;
            ++count;
            for (const Alternative& alternative : axis->alternatives) {
                const Fields& fields = alternative.fields[index];
                piece.ofAlternative.push_back(
                    count <= fields.size() ? canonical(fields[fields.size() - count]) : std::string());
                longest = std::max(longest, piece.ofAlternative.back().size());
            }
            if (longest == 0) continue;
            m_size += longest;
            m_pieces.push_back(std::move(piece));
        }
        canonicalizeHeader(withEmptiedSignature(m_signature.field.raw), m_signature.canonicalization.header,
                           m_sink);
        addFixed(m_sink.take());
    }

    /// Which sums of costs the axes from each one on can have.
    void countCosts() {
        m_reachable.assign(m_axes.size() + 1, {});
        m_reachable.back()[0] = true;
        for (std::size_t axis = m_axes.size(); axis-- > 0;) {
            for (const Alternative& alternative : m_axes[axis].alternatives) {
                for (int cost = alternative.cost; cost <= mostCost; ++cost) {
                    if (m_reachable[axis + 1][static_cast<std::size_t>(cost - alternative.cost)])
                        m_reachable[axis][static_cast<std::size_t>(cost)] = true;
                }
            }
        }
    }

    /// Tries every choice from this axis on that costs exactly so much; at most as deep as there are axes.
    bool descend(std::size_t axis, int cost) {
        if (axis == m_axes.size()) return fits();
        const auto& alternatives = m_axes[axis].alternatives;
        for (std::size_t i = 0; i < alternatives.size() && alternatives[i].cost <= cost; ++i) {
            const int left = cost - alternatives[i].cost;
            if (!m_reachable[axis + 1][static_cast<std::size_t>(left)]) continue;
            m_chosen[axis] = i;
            if (descend(axis + 1, left)) return true;
            if (isSpent()) return false;
        }
        return false;
    }

    bool isSpent() const { return m_left == 0 || (isVerifyNeeded() && m_verifiesLeft == 0); }
    bool isVerifyNeeded() const { return !m_signature.signedDigest; }

    bool fits() {
        if (isSpent()) return false;
        --m_left;
        --m_budget->tests;
        Hasher hasher(hashAlgorithm(m_signature.algorithm));
        for (const Piece& piece : m_pieces)
            hasher.add(piece.ofAlternative.empty() ? piece.fixed : piece.ofAlternative[m_chosen[piece.axis]]);
        const std::string digest = hasher.digest();
        if (!isVerifyNeeded()) return digest == m_signature.signedDigest;
        --m_verifiesLeft;
        --m_budget->verifies;
        return std::holds_alternative<Verified>(
            verifySignature(m_signature.signature, digest, m_signature.algorithm, m_signature.key));
    }

    std::vector<NamedFields> changes() const {
        std::vector<NamedFields> changed;
        for (std::size_t axis = 0; axis < m_axes.size(); ++axis) {
            const auto& names = m_axes[axis].names;
            const auto& chosen = m_axes[axis].alternatives[m_chosen[axis]].fields;
            for (std::size_t i = 0; i < names.size(); ++i) {
                if (chosen[i] != m_ways.fieldsOf(names[i])) changed.push_back({names[i], chosen[i]});
            }
        }
        return changed;
    }

    const BrokenSignature& m_signature;
    const Ways& m_ways;
    std::vector<Axis> m_axes;
    std::vector<Piece> m_pieces = {};
    std::size_t m_size = 0;  // of the data, at most
    std::vector<std::array<bool, mostCost + 1>> m_reachable = {};
    std::vector<std::size_t> m_chosen = {};  // of each axis
    StringSink m_sink = {};
    HeaderBudget* m_budget = nullptr;
    std::size_t m_left = 0, m_verifiesLeft = 0;
};

}  // namespace

std::optional<std::vector<NamedFields>> signedHeader(const MailMessage& message,
                                                     const BrokenSignature& signature,
                                                     std::span<const HeaderHint> hints, HeaderBudget& budget,
                                                     const std::stop_token& stop) {
    Ways ways(message, signature, hints);
    auto changes = Search(message, signature, ways, ways.axes()).run(budget, stop);
    for (std::size_t way = 0; way < waysOfFolding && !changes; ++way) {
        auto axes = ways.axesRefolded(way);
        // cppcheck-suppress accessMoved; each way has its own
        if (axes.size() > 1) changes = Search(message, signature, ways, std::move(axes)).run(budget, stop);
    }
    return changes;
}

}  // namespace quillmark
