#include "Wording/Expected.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Mail/Punycode.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Banner.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

using Kind = ExpectedAnswer::Kind;
using Letters = ExpectedAnswer::Letters;

constexpr std::size_t longestTyped = 1'000;   // bytes
constexpr std::size_t longestCompared = 500;  // bytes, which are more than a domain has letters

/// What a person expects.
struct Name {
    std::string domain;   // in lower case, in the form in which it was typed
    std::string address;  // empty unless one was typed

    /// As it stands in a sentence.
    std::string shown() const { return address.empty() ? quotedDomain(domain) : quotedWord(address); }
};

const PublicSuffixList& suffixes() { return PublicSuffixList::shared(); }

bool isDomain(std::string_view name) {
    const auto ascii = asciiDomain(name);
    if (!ascii || ascii->find('.') == std::string::npos || ascii->find("..") != std::string::npos)
        return false;
    return std::ranges::all_of(
        *ascii, [](char c) { return isASCIILetter(c) || isDigit(c) || c == '-' || c == '_' || c == '.'; });
}

/// Takes off what else stands around a domain where people copy it.
std::optional<Name> nameIn(std::string_view typed) {
    if (typed.size() > longestTyped) return std::nullopt;
    typed = trimmed(typed);
    if (const auto open = typed.rfind('<'), close = typed.rfind('>');
        open != std::string_view::npos && close != std::string_view::npos && open < close)
        typed = trimmed(typed.substr(open + 1, close - open - 1));
    if (const auto scheme = typed.find("://"); scheme != std::string_view::npos)
        typed.remove_prefix(scheme + 3);
    if (equalsIgnoringCase(typed.substr(0, 7), "mailto:")) typed.remove_prefix(7);
    typed = typed.substr(0, typed.find_first_of("/?#"));
    std::string_view local;
    if (const auto at = typed.rfind('@'); at != std::string_view::npos) {
        local = typed.substr(0, at);
        typed.remove_prefix(at + 1);
    }
    typed = typed.substr(0, typed.rfind(':'));
    typed = trimmed(typed, ".");
    Name name{unicodeLowered(typed), {}};
    if (!isDomain(name.domain)) return std::nullopt;
    if (!local.empty()) name.address = std::string(local) + "@" + name.domain;
    return name;
}

/// With one more label in front such a name is the organization itself.
bool isPublicSuffix(std::string_view domain) {
    const std::string below = "a." + comparableDomain(domain);
    return suffixes().organizationalDomain(below) == below;
}

bool isOnlyFrom(const ProofReport& report, const std::string& address) {
    const auto localPart = [](std::string_view whole) { return whole.substr(0, whole.rfind('@')); };
    if (report.summary.from.size() != 1) return false;
    const std::string from = report.summary.from.front().address;
    return equalsIgnoringCase(localPart(from), localPart(address)) &&
           comparableDomain(MailAddress::domainPart(from)) ==
               comparableDomain(MailAddress::domainPart(address));
}

/// A domain, and whose part it is: "bank.example.evil.test (a part of evil.test)".
std::string withOrganization(std::string_view domain, const Reader& reader) {
    const std::string organization = suffixes().organizationalDomain(domain);
    if (comparableDomain(organization) == comparableDomain(domain)) return quotedDomain(domain);
    return reader.translate("%1 (a part of %2)", {quotedWord(domain), quotedDomain(organization)});
}

/// Who takes part in an answer, and how each is called in a sentence.
struct Answering {
    const ProofReport& report;
    const Name& name;
    const Reader& reader;
    const std::string expected = name.shown();
    const std::string signer = withOrganization(report.verdict.domain, reader);
    const std::string claimed = withOrganization(report.verdict.fromDomain, reader);

    bool isExpected(std::string_view domain) const {
        return suffixes().sameOrganization(domain, name.domain);
    }
    ExpectedAnswer answer(Kind kind, Tone tone, std::string text) const {
        return {.kind = kind, .tone = tone, .text = std::move(text)};
    }
    ExpectedAnswer no(std::string text) const {
        ExpectedAnswer made = answer(Kind::no, Tone::bad, std::move(text));
        made.whatToDo = reader.translate(
            "Don’t use its links, open its attachments or answer. If you expected a message from %1, ask "
            "there in a way that you know from before.",
            {expected});
        return made;
    }
    /// Whether an address was expected that isn't the one in From, whatever their domains are.
    bool namesAnother() const { return !name.address.empty() && !isOnlyFrom(report, name.address); }
    std::string senders() const {
        std::vector<std::string> addresses;
        for (const MailAddress& each : report.summary.from) addresses.push_back(each.address);
        return quotedList(addresses, reader);
    }
    ExpectedAnswer signedForAnother() const {
        return no(reader.translate("No: you expected %1. This message is signed by %2, but From names %3.",
                                   {expected, signer, senders()}));
    }
    ExpectedAnswer yes() const {
        std::string text;
        if (!name.address.empty()) {
            if (namesAnother()) return signedForAnother();
            text = reader.translate(
                "Yes: this message is signed by %1, which vouches for %2 in From, as you expected.",
                {signer, expected});
        } else if (comparableDomain(report.verdict.domain) == comparableDomain(name.domain)) {
            text = reader.translate("Yes: this message is signed by %1, as you expected.", {expected});
        } else {
            text = reader.translate(
                "Yes: you expected %1, and this message is signed by %2, which is of the same organization.",
                {expected, quotedDomain(report.verdict.domain)});
        }
        if (hasCautions(report)) {
            return answer(Kind::yes, Tone::caution,
                          sentences({text, reader.translate("The warnings count all the same.")}));
        }
        ExpectedAnswer made = answer(Kind::yes, Tone::good, text);
        made.whatToDo = reader.translate(
            "Read on. If money, passwords or haste are involved, ask the sender in another way all the "
            "same.");
        return made;
    }
    ExpectedAnswer signedByAnother() const {
        return no(reader.translate("No: you expected %1. This message is signed by %2.", {expected, signer}));
    }
    ExpectedAnswer ofTwoNames() const {
        const bool hasSender = !report.verdict.fromDomain.empty();
        if (isExpected(report.verdict.domain)) {
            return answer(Kind::unproven, Tone::caution,
                          hasSender ? reader.translate("Only in part: %1, which you expected, signed this "
                                                       "message, but From names %2.",
                                                       {signer, claimed})
                                    : reader.translate("Only in part: %1, which you expected, signed this "
                                                       "message, but it isn’t the sender that From names.",
                                                       {signer}));
        }
        if (isExpected(report.verdict.fromDomain)) {
            if (namesAnother()) return signedForAnother();
            return answer(Kind::unproven, Tone::caution,
                          reader.translate("Not proven: the message says that it is from %1, as you "
                                           "expected, but it is signed by %2.",
                                           {claimed, signer}));
        }
        if (!hasSender) return signedByAnother();
        return no(
            reader.translate("No: you expected %1. This message is signed by %2 and says that it is from %3.",
                             {expected, signer, claimed}));
    }
    ExpectedAnswer ofNothingProven() const {
        const Verdict& verdict = report.verdict;
        const auto* undone = verdict.kind == VerdictKind::signatureBroken ? undoneOf(report) : nullptr;
        if (undone && undone->fromIsOfDomain && isExpected(undone->domain) && !namesAnother()) {
            return answer(Kind::unproven, Tone::caution,
                          reader.translate("Not as it stands: %1, as you expected, signed this message, "
                                           "and it was changed afterwards.",
                                           {quotedDomain(undone->domain)}));
        }
        const auto unproven = [&](std::string text) {
            return answer(Kind::unproven, verdict.tone, std::move(text));
        };
        if (verdict.fromDomain.empty()) {
            return unproven(
                reader.translate("Not proven: nothing shows that this message is from %1.", {expected}));
        }
        if (isExpected(verdict.fromDomain) && namesAnother()) {
            return no(reader.translate(
                "No: you expected %1. This message says that it is from %2, and not even that is proven.",
                {expected, senders()}));
        }
        if (isExpected(verdict.fromDomain)) {
            if (verdict.kind == VerdictKind::couldNotCheck) {
                return unproven(reader.translate(
                    "Not known yet: the message says that it is from %1, as you expected, and that couldn’t "
                    "be checked.",
                    {claimed}));
            }
            return unproven(reader.translate(
                "Not proven: the message says that it is from %1, as you expected, and nothing proves that.",
                {claimed}));
        }
        if (undone && undone->fromIsOfDomain) {
            return no(reader.translate(
                "No: you expected %1. This message was signed by %2, and it was changed afterwards.",
                {expected, quotedDomain(undone->domain)}));
        }
        return no(reader.translate(
            "No: you expected %1. This message says that it is from %2, and not even that is proven.",
            {expected, claimed}));
    }
    ExpectedAnswer operator()() const {
        switch (report.verdict.kind) {
            case VerdictKind::verified:
                return isExpected(report.verdict.domain) ? yes() : signedByAnother();
            case VerdictKind::verifiedHeadersOnly:
                if (!isExpected(report.verdict.domain)) return signedByAnother();
                if (namesAnother()) return signedForAnother();
                return answer(Kind::unproven, Tone::caution,
                              reader.translate("Only in part: %1, as you expected, signed the header lines. "
                                               "The text wasn’t there to check.",
                                               {signer}));
            case VerdictKind::signedByOther:
                return ofTwoNames();
            default:
                return ofNothingProven();
        }
    }
};

std::vector<std::string> charactersOf(std::string_view text) {
    std::vector<std::string> characters;
    while (!text.empty()) {
        const std::string_view all = text;
        takeScalar(text);
        characters.emplace_back(all.substr(0, all.size() - text.size()));
    }
    return characters;
}

void append(Letters& letters, const std::string& character, bool isOdd) {
    if (letters.empty() || letters.back().areOdd != isOdd) letters.push_back({{}, isOdd});
    letters.back().text += inert(character);
}

/// How many changes turn the end of one text, from i, into the end of the other, from j.
class Changes {
public:
    Changes(std::vector<std::string> first, std::vector<std::string> second)
        : a(std::move(first)),
          b(std::move(second)),
          m_steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1)) {
        for (std::size_t i = a.size() + 1; i-- > 0;) {
            for (std::size_t j = b.size() + 1; j-- > 0;) m_steps[i][j] = stepsFrom(i, j);
        }
    }
    std::size_t operator()(std::size_t i, std::size_t j) const { return m_steps[i][j]; }

    const std::vector<std::string> a, b;  // their characters

private:
    std::size_t stepsFrom(std::size_t i, std::size_t j) const {
        if (i == a.size() || j == b.size()) return a.size() - i + b.size() - j;
        return std::min(
            {m_steps[i + 1][j + 1] + (a[i] == b[j] ? 0 : 1), m_steps[i + 1][j] + 1, m_steps[i][j + 1] + 1});
    }
    std::vector<std::vector<std::size_t>> m_steps;
};

/// Whether somebody may take the one name for the other, or for a part of it.
bool areNear(std::string_view first, std::string_view second) {
    if (first.find(second) != std::string_view::npos || second.find(first) != std::string_view::npos)
        return true;
    const Changes changes(charactersOf(first), charactersOf(second));
    return 2 * changes(0, 0) <= std::max(changes.a.size(), changes.b.size());
}

/// Two domains with the letters marked in which they differ: as few as can be. Nothing when their names have
/// little in common, or when they are longer than domains.
std::optional<std::pair<Letters, Letters>> difference(std::string_view first, std::string_view second) {
    if (first == second || first.size() > longestCompared || second.size() > longestCompared ||
        !areNear(first.substr(0, first.find('.')), second.substr(0, second.find('.'))))
        return std::nullopt;
    const Changes changes(charactersOf(first), charactersOf(second));
    const auto &a = changes.a, &b = changes.b;
    std::pair<Letters, Letters> marked;
    for (std::size_t i = 0, j = 0; i < a.size() || j < b.size();) {
        const bool isInBoth = i < a.size() && j < b.size();
        const bool isSame = isInBoth && a[i] == b[j];
        const bool isOther = isInBoth && changes(i, j) == changes(i + 1, j + 1) + 1;
        const bool isLeftOut = i < a.size() && changes(i, j) == changes(i + 1, j) + 1;
        const bool takesFirst = isSame || isOther || isLeftOut, takesSecond = isSame || isOther || !isLeftOut;
        if (takesFirst) append(marked.first, a[i++], !isSame);
        if (takesSecond) append(marked.second, b[j++], !isSame);
    }
    return marked;
}

std::string firstOdd(const Letters& letters) {
    const auto odd = std::ranges::find(letters, true, &DomainIdentity::Letters::areOdd);
    return odd == letters.end() ? std::string() : odd->text;
}

/// Sets the two domains beside each other, and says so where nobody could tell them apart.
void compare(ExpectedAnswer& answer, const Name& name, const std::string& other, const Reader& reader) {
    const auto letters = [](std::string_view domain) {
        return Punycode::unicodeDomain(suffixes().organizationalDomain(comparableDomain(domain)));
    };
    const std::string expected = letters(name.domain), found = letters(other);
    const auto marked = difference(expected, found);
    if (!marked) return;
    std::tie(answer.expected, answer.found) = *marked;
    if (!areConfusable(expected, found)) return;
    const std::string before = firstOdd(answer.expected), after = firstOdd(answer.found);
    if (before.empty() || after.empty()) return;
    const auto scripts = Punycode::scripts(after);
    answer.text = sentences(
        {answer.text,
         reader.translate("The two look alike, but they are not the same: where the one that you expected "
                          "has “%1”, this one has “%2”.",
                          {before, after}),
         scripts.contains("Cyrillic") ? reader.translate("That letter is Cyrillic.") : "",
         scripts.contains("Greek") ? reader.translate("That letter is Greek.") : ""});
}

}  // namespace

ExpectedAnswer expectedAnswer(const ProofReport& report, std::string_view typed, const Reader& reader) {
    const auto name = nameIn(typed);
    if (!name) {
        return {.text = reader.translate(
                    "“%1” is neither a domain nor an address. Type one such as bank.example or "
                    "service@bank.example.",
                    {quoted(typed)})};
    }
    if (isPublicSuffix(name->domain)) {
        return {.text = reader.translate(
                    "Anybody can register a name that ends with %1. Type all of the domain that you expect.",
                    {quotedDomain(name->domain)})};
    }
    ExpectedAnswer answer = Answering{report, *name, reader}();
    if (answer.kind == Kind::no) {
        const Verdict& verdict = report.verdict;
        const bool isProven = verdict.kind == VerdictKind::verified ||
                              verdict.kind == VerdictKind::verifiedHeadersOnly ||
                              verdict.kind == VerdictKind::signedByOther;
        compare(answer, *name, isProven ? verdict.domain : verdict.fromDomain, reader);
    }
    return answer;
}

}  // namespace quillmark
