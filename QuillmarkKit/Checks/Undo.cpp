#include "QuillmarkKit/Checks/Undo.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <queue>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Checks/ChangedTexts.h"
#include "QuillmarkKit/Checks/HeaderAlternatives.h"
#include "QuillmarkKit/Checks/PartReversals.h"
#include "QuillmarkKit/Checks/Regions.h"
#include "QuillmarkKit/Checks/Reversals.h"
#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t mostUndoneSignatures = 11;
constexpr std::size_t mostReadings = 40;
constexpr int mostSteps = 3;
constexpr std::size_t mostBodyTests = 40'000, mostTestsOfPlan = 12'000;
constexpr std::size_t mostCuts = 20'000, mostCutsBelowBanner = 400;
constexpr std::size_t topLines = 24, bottomLines = 60;
constexpr std::size_t mostParts = 200, mostPartDepth = 3;
constexpr std::size_t largestReadingBody = 4'000'000;
constexpr std::uint64_t shortestSignedLength = 1'000;  // of an `l=` that is worth a claim
constexpr std::size_t mostFields = 12;                 // that are told
constexpr std::size_t mostFieldValues = 4;             // of one name that are told

/// What the hashes of a search may cost: bytes, of which those of the message make the most.
std::uint64_t hashBudget(std::size_t body) {
    constexpr std::uint64_t million = 1'000'000;
    return std::max<std::uint64_t>(
        std::min<std::uint64_t>(24 * std::uint64_t{body} + 12 * million, 64 * million),
        2 * std::uint64_t{body} + million);
}

class TextSink : public ByteSink {
public:
    void add(std::string_view bytes) override { text += bytes; }
    std::string text = {};
};

std::string canonicalBody(std::string_view body, Canonicalization form, const std::stop_token& stop) {
    TextSink sink;
    sink.text.reserve(body.size() + lineEnd.size());
    canonicalizeBody(body, form, sink, stop);
    return std::move(sink.text);
}

// What is looked for

/// The bodies that signatures were made over, as far as one walk over a text tells.
struct Targets {
    Canonicalization form = Canonicalization::simple;
    HashAlgorithm algorithm = HashAlgorithm::sha256;
    std::optional<std::uint64_t> length = {};  // `l=`
    std::set<std::string> digests = {};
};

struct FoundBody {
    std::string body = {};
    Reading reading = {};  // that it was found in, without its bytes
};

/// Searches for the bodies behind a message's body hashes.
class BodySearch {
public:
    using Key = std::pair<const Targets*, std::string>;

    BodySearch(const MailMessage& message, std::span<const BrokenSignature* const> wanted,
               const std::stop_token& stop)
        : m_message(message), m_stop(stop), m_bytesLeft(hashBudget(message.body()->size())) {
        for (const BrokenSignature* signature : wanted) {
            if (!signature->bodyHolds) targetsOf(*signature).digests.insert(signature->bodyHash);
        }
    }

    /// What was found for a signature; null without anything.
    const FoundBody* found(const BrokenSignature& signature) {
        const auto body = m_found.find({&targetsOf(signature), signature.bodyHash});
        return body == m_found.end() ? nullptr : &body->second;
    }

    void run();

private:
    enum class Plan { cutTail, leaveOutParts, cutBoth, cutBottoms, cutTops, cutParts };
    struct Task {
        int cost = 0;
        std::size_t order = 0;  // of those that cost the same
        std::shared_ptr<const Reading> reading = {};
        const Reversal* reversal = nullptr;  // null: the plan
        Plan plan = Plan::cutTail;
        bool operator<(const Task& other) const {  // which comes later
            return std::pair(cost, order) > std::pair(other.cost, other.order);
        }
    };

    Targets& targetsOf(const BrokenSignature& signature) {
        for (Targets& targets : m_targets) {
            if (targets.form == signature.canonicalization.body &&
                targets.algorithm == hashAlgorithm(signature.algorithm) &&
                targets.length == signature.bodyLength)
                return targets;
        }
        m_targets.push_back(
            {signature.canonicalization.body, hashAlgorithm(signature.algorithm), signature.bodyLength, {}});
        return m_targets.back();
    }
    bool isDone() const {
        return m_testsLeft == 0 || m_bytesLeft == 0 || m_stop.stop_requested() ||
               std::ranges::all_of(m_targets, [](const Targets& targets) { return targets.digests.empty(); });
    }
    void push(int cost, const std::shared_ptr<const Reading>& reading, const Reversal* reversal, Plan plan) {
        m_tasks.push({cost, m_order++, reading, reversal, plan});
    }

    void addReading(Reading made);
    void tryPlan(const Reading& reading, Plan plan);
    void walk(const Reading& reading, const std::string& text, std::span<const EditGroup> groups,
              Targets& targets);
    void descend(std::size_t group, std::size_t at, std::uint64_t hashed, Hasher hasher);
    void finish(std::size_t at, std::uint64_t hashed, Hasher hasher);
    void keep(const std::string& digest);

    /// Whether so many bytes may still be hashed; they count at once.
    bool charge(std::size_t bytes) {
        const bool isAllowed = bytes <= m_bytesLeft && !m_stop.stop_requested();
        m_bytesLeft = isAllowed ? m_bytesLeft - bytes : 0;
        return isAllowed;
    }

    const MailMessage& m_message;
    const std::stop_token& m_stop;
    std::uint64_t m_bytesLeft;
    std::size_t m_testsLeft = mostBodyTests, m_testsOfPlanLeft = 0;
    std::deque<Targets> m_targets = {};  // a find points to its own
    std::map<std::pair<const Targets*, std::string>, FoundBody> m_found = {};
    std::priority_queue<Task> m_tasks = {};
    std::size_t m_order = 0, m_readings = 0;
    std::size_t m_keptLeft = 2 * m_message.body()->size() + 8'000'000;  // bytes of readings
    std::set<std::string> m_known = {};                                 // digests of readings
    // Of the walk in progress:
    const Reading* m_reading = nullptr;
    const std::string* m_text = nullptr;
    std::span<const EditGroup> m_groups = {};
    Targets* m_wanted = nullptr;
    std::vector<const Edit*> m_edits = {};
    bool m_isInParts = false;  // which are then compared as they read
};

void BodySearch::run() {
    const auto given = std::make_shared<Reading>();
    given->body = *m_message.body();
    push(0, given, nullptr, Plan::cutTail);
    push(1, given, nullptr, Plan::leaveOutParts);
    push(6, given, nullptr, Plan::cutBoth);
    push(2, given, nullptr, Plan::cutBottoms);
    push(3, given, nullptr, Plan::cutTops);
    push(4, given, nullptr, Plan::cutParts);
    if (given->body.size() <= largestReadingBody) {
        for (const auto& kinds : {reversals(), partReversals()})
            for (const Reversal& reversal : kinds) push(reversal.cost, given, &reversal, {});
    }
    while (!m_tasks.empty() && !isDone()) {
        const Task task = m_tasks.top();
        m_tasks.pop();
        if (!task.reversal) {
            tryPlan(*task.reading, task.plan);
            continue;
        }
        // What is made is paid for, too.
        if (m_readings == mostReadings || !charge(task.reading->body.size())) continue;
        for (Reading& made : task.reversal->apply(*task.reading, m_message)) {
            made.cost += task.reversal->cost;
            if (made.body.size() <= largestReadingBody) addReading(std::move(made));
        }
    }
}

void BodySearch::addReading(Reading made) {
    if (m_readings == mostReadings || !charge(made.body.size())) return;
    if (!m_known.insert(hash(HashAlgorithm::sha256, made.body)).second) return;
    ++m_readings;
    const auto reading = std::make_shared<Reading>(std::move(made));
    // What waits for its turn is kept in memory.
    if (reading->body.size() > m_keptLeft) {
        tryPlan(*reading, Plan::cutTail);
        return;
    }
    m_keptLeft -= reading->body.size();
    push(reading->cost, reading, nullptr, Plan::cutTail);
    push(reading->cost + 1, reading, nullptr, Plan::leaveOutParts);
    push(reading->cost + 6, reading, nullptr, Plan::cutBoth);
    push(reading->cost + 2, reading, nullptr, Plan::cutBottoms);
    push(reading->cost + 3, reading, nullptr, Plan::cutTops);
    push(reading->cost + 4, reading, nullptr, Plan::cutParts);
    if (reading->steps == mostSteps) return;
    for (const auto& kinds : {reversals(), partReversals()})
        for (const Reversal& reversal : kinds) push(reading->cost + reversal.cost, reading, &reversal, {});
}

/// Where a text of canonical lines may have ended before something was put behind it: at the ends of its
/// lines that are not empty, the last ones, in their order; and before its first line.
EditGroup cutsOfTail(std::string_view text, std::size_t begin, std::size_t most, Canonicalization form) {
    EditGroup cuts;
    std::size_t at = text.size();
    while (at > begin && cuts.size() < most) {
        // The end of the line before.
        const auto end = at < 2 ? std::string_view::npos : text.rfind(lineEnd, at - 2);
        if (end == std::string_view::npos || end < begin) break;
        at = end;
        const bool isEmpty = end == begin || (end >= 2 && text.substr(end - 2, 2) == lineEnd);
        if (!isEmpty && end + 2 < text.size()) cuts.push_back({end + 2, text.size(), {}});
    }
    std::ranges::reverse(cuts);
    if (cuts.size() < most && !text.empty())
        cuts.insert(cuts.begin(), {begin, text.size(), form == Canonicalization::simple ? "\r\n" : ""});
    return cuts;
}

/// The first lines, taken out up to each of their ends.
EditGroup cutsOfTop(std::string_view text) {
    EditGroup cuts;
    std::size_t at = 0;
    for (std::size_t line = 0; line < topLines; ++line) {
        const auto end = text.find(lineEnd, at);
        if (end == std::string_view::npos || end + 2 >= text.size()) break;
        at = end + 2;
        cuts.push_back({0, at, {}});
    }
    return cuts;
}

/// Each part, left out with the boundary in front of it, and what may have been put behind the last one.
std::vector<EditGroup> partsOut(const Reading& reading, const MailMessage& message, std::string_view text,
                                Canonicalization form) {
    const auto parts = mimeParts(messageOf(reading, message, text), mostPartDepth, mostParts);
    EditGroup each, last;
    std::size_t lastEnd = 0;
    for (const MIMEPart& part : parts) {
        if (part.number == 0) continue;
        each.push_back({part.begin, part.end, {}});
        lastEnd = std::max(lastEnd, part.end);
    }
    if (each.empty()) return {};
    for (const MIMEPart& part : parts) {
        if (part.number > 0 && part.parent == 0) last = {{part.begin, part.end, {}}};
    }
    return {std::move(each), std::move(last), cutsOfTail(text, lastEnd, bottomLines, form)};
}

void BodySearch::tryPlan(const Reading& reading, Plan plan) {
    for (const Canonicalization form : {Canonicalization::relaxed, Canonicalization::simple}) {
        std::string text;
        for (Targets& targets : m_targets) {
            if (targets.form != form || targets.digests.empty()) continue;
            if (text.empty()) text = canonicalBody(reading.body, form, m_stop);
            std::vector<EditGroup> groups;
            const bool isInParts =
                plan == Plan::cutBottoms || plan == Plan::cutTops || plan == Plan::cutParts;
            if (isInParts) {
                const auto ends = plan == Plan::cutBottoms ? RegionEnds::bottoms
                                  : plan == Plan::cutTops  ? RegionEnds::tops
                                                           : RegionEnds::both;
                m_isInParts = true;
                // Both ends of two parts are many places; one end of each is not.
                const std::size_t most = ends == RegionEnds::both ? mostTestsOfPlan : mostTestsOfPlan / 4;
                groups = regionsOfParts(messageOf(reading, m_message, text), ends, most);
                walk(reading, text, groups, targets);
                m_isInParts = false;
                continue;
            }
            if (plan == Plan::leaveOutParts) {
                groups = partsOut(reading, m_message, text, form);
                if (groups.empty()) return;
                if (targets.length) groups.pop_back();
                walk(reading, text, groups, targets);
                continue;
            }
            if (plan == Plan::cutBoth) groups.push_back(cutsOfTop(text));
            if (!targets.length) {
                groups.push_back(
                    cutsOfTail(text, 0, plan == Plan::cutBoth ? mostCutsBelowBanner : mostCuts, form));
            }
            walk(reading, text, groups, targets);
            if (isDone()) return;
        }
    }
}

void BodySearch::walk(const Reading& reading, const std::string& text, std::span<const EditGroup> groups,
                      Targets& targets) {
    m_reading = &reading;
    m_text = &text;
    m_groups = groups;
    m_wanted = &targets;
    m_testsOfPlanLeft = mostTestsOfPlan;
    if (groups.size() == 1 && groups.front().size() > mostTestsOfPlan) m_testsOfPlanLeft = mostCuts + 1;
    descend(0, 0, 0, Hasher(targets.algorithm));
}

/// Goes on behind `at`, up to which all is hashed, with the groups from this one on: as deep as there are
/// groups. Everything in front of an edit is hashed once for all that follow.
// NOLINTNEXTLINE(misc-no-recursion): a plan has at most four groups
void BodySearch::descend(std::size_t group, std::size_t at, std::uint64_t hashed, Hasher hasher) {
    if (group == m_groups.size()) {
        finish(at, hashed, std::move(hasher));
        return;
    }
    const std::string_view text = *m_text;
    for (const Edit& edit : m_groups[group]) {
        if (edit.from < at) continue;
        if (isDone() || m_testsOfPlanLeft == 0) return;
        if (!charge(edit.from - at + edit.replacement.size())) return;
        hasher.add(text.substr(at, edit.from - at));
        hashed += edit.from - at;
        at = edit.from;
        Hasher fork = hasher;
        fork.add(edit.replacement);
        m_edits.push_back(&edit);
        descend(group + 1, edit.to, hashed + edit.replacement.size(), std::move(fork));
        m_edits.pop_back();
    }
    descend(group + 1, at, hashed, std::move(hasher));
}

void BodySearch::finish(std::size_t at, std::uint64_t hashed, Hasher hasher) {
    if (m_testsLeft == 0 || m_testsOfPlanLeft == 0) return;
    std::size_t rest = m_text->size() - at;
    if (m_wanted->length) {
        if (hashed > *m_wanted->length || rest < *m_wanted->length - hashed) return;
        rest = static_cast<std::size_t>(*m_wanted->length - hashed);
    }
    if (!charge(rest)) return;
    hasher.add(std::string_view(*m_text).substr(at, rest));
    --m_testsLeft;
    --m_testsOfPlanLeft;
    const std::string digest = hasher.digest();
    if (m_wanted->digests.contains(digest)) keep(digest);
}

/// The text with the edits of the walk, which are in order; the end of a line stands alike in all forms.
std::string edited(std::string_view text, std::span<const Edit* const> edits) {
    std::string result;
    std::size_t at = 0;
    for (const Edit* edit : edits) {
        result += text.substr(at, edit->from - at);
        result += edit->replacement;
        at = edit->to;
    }
    return result += text.substr(at);
}

/// The same in the body that the text is the canonical form of: its lines are those of the text, but for
/// empty ones at the end. Nothing when an edit begins or ends inside a line.
std::optional<std::string> editedBody(std::string_view body, std::string_view text,
                                      std::span<const Edit* const> edits) {
    std::string result;
    std::size_t at = 0, bodyAt = 0;
    const auto advance = [&](std::size_t to) {
        for (; at < to; ++at) {
            if (text[at] != '\n') continue;
            const auto end = body.find('\n', bodyAt);
            bodyAt = end == std::string_view::npos ? body.size() : end + 1;
        }
        return to == 0 || text[to - 1] == '\n';
    };
    for (const Edit* edit : edits) {
        const std::size_t begin = bodyAt;
        if (!advance(edit->from)) return std::nullopt;
        result += body.substr(begin, bodyAt - begin);
        result += edit->replacement;
        if (!advance(edit->to)) return std::nullopt;
    }
    return result += body.substr(bodyAt);
}

void BodySearch::keep(const std::string& digest) {
    FoundBody found;
    const std::string_view body = m_reading->body;
    auto asItStood = m_wanted->length ? std::nullopt : editedBody(body, *m_text, m_edits);
    found.body = asItStood ? std::move(*asItStood) : edited(*m_text, m_edits);
    if (m_wanted->length) found.body.resize(static_cast<std::size_t>(*m_wanted->length));
    found.reading = *m_reading;
    if (m_isInParts) ++found.reading.steps;
    found.reading.bytes.reset();
    found.reading.body = {};
    m_found.emplace(std::pair(m_wanted, digest), std::move(found));
    m_wanted->digests.erase(digest);
}

// What is told

/// Answers every question alike.
class OneAnswer : public DNSResolver {
public:
    explicit OneAnswer(const DNSAnswer& answer) : m_answer(answer) {}
    DNSAnswer lookup(std::string_view, DNSRecordType, const Patience&) override { return m_answer; }

private:
    const DNSAnswer& m_answer;
};

/// What the check that the message didn't pass says of this one.
SignatureCheck checked(const MailMessage& message, const BrokenSignature& signature, Date now,
                       const std::stop_token& stop) {
    const auto field = std::ranges::find(message.headers(), signature.field.raw, &HeaderField::raw);
    if (field == message.headers().end() || !message.body()) return {};
    BodyHashes hashes(*message.body());
    OneAnswer resolver(signature.keyAnswer);
    return SignatureChecker{message, &hashes, resolver, now, stop}.examine(*field, signature.kind);
}

bool passes(const SignatureCheck& check) {
    return check.result.status == DKIMResult::Status::pass && check.result.bodyChecked;
}

/// The fields that say what a body is: without them it can't be read.
constexpr std::string_view namesOfContent[] = {"mime-version", "content-type", "content-transfer-encoding"};

/// How many fields of each name, in lower case, a signature covers, of names that the message or the changes
/// have: `h=` may be long.
std::map<std::string, std::size_t, std::less<>> coveredFields(const MailMessage& message,
                                                              const BrokenSignature& signature,
                                                              const std::vector<NamedFields>& changes) {
    std::map<std::string, std::size_t, std::less<>> covered;
    for (const std::string_view name : signature.signedHeaders) {
        const auto isName = [&](const NamedFields& fields) { return equalsIgnoringCase(fields.name, name); };
        if (message.first(name) || std::ranges::any_of(changes, isName)) ++covered[asciiLowered(name)];
    }
    return covered;
}

/// The signed fields as they stood, the signature, the fields of the content, and the body. Of several fields
/// of a name those that are signed, which are the lowest (RFC 6376, section 5.4.2). A forwarder's signature
/// is checked with its chain.
MailMessage rebuilt(const MailMessage& message, const BrokenSignature& signature,
                    const std::vector<NamedFields>& changes, std::string_view body) {
    const auto covered = coveredFields(message, signature, changes);
    const auto kept = [&](const std::string& name) -> std::size_t {
        if (const auto found = covered.find(name); found != covered.end()) return found->second;
        return std::ranges::find(namesOfContent, name) != std::end(namesOfContent) ? 1 : 0;
    };
    // Of the fields that stay, and of those that are changed.
    std::vector<std::uint32_t> places;
    const auto addLowest = [&](std::string_view name, std::size_t count) {
        const auto all = message.positions(name), lowest = all.last(std::min(count, all.size()));
        places.insert(places.end(), lowest.begin(), lowest.end());
    };
    for (const auto& [name, count] : covered) addLowest(name, count);
    for (const std::string_view name : namesOfContent) addLowest(name, covered.contains(name) ? 0 : 1);
    for (const NamedFields& fields : changes) addLowest(fields.name, message.headers().size());
    for (const auto place : message.positions(signature.field.name)) {
        if (message.headers()[place] == signature.field) places.push_back(place);
    }
    if (signature.kind == SignatureKind::arc) {
        for (std::uint32_t place = 0; place < message.headers().size(); ++place) {
            if (startsWithIgnoringCase(message.headers()[place].name, "arc-")) places.push_back(place);
        }
    }
    std::ranges::sort(places);
    places.erase(std::unique(places.begin(), places.end()), places.end());
    std::set<std::string> written;  // of the changed names
    std::string header;
    std::optional<std::size_t> own = {};  // where the signature's own field begins there
    const auto write = [&](const NamedFields& fields) {
        if (!written.insert(fields.name).second) return;
        const std::size_t count = fields.fields.size(), signedCount = std::min(count, kept(fields.name));
        for (const std::string& raw : std::span(fields.fields).last(signedCount))
            header.append(raw).append(lineEnd);
    };
    for (const auto place : places) {
        const HeaderField& field = message.headers()[place];
        const auto found = std::ranges::find(changes, asciiLowered(field.name), &NamedFields::name);
        if (found != changes.end() && field != signature.field) {
            write(*found);
        } else {
            if (field == signature.field) own = header.size();
            header.append(field.raw).append(lineEnd);
        }
    }
    for (const NamedFields& fields : changes) write(fields);
    // A first field "From :" would be read as the line that begins a message in a mailbox.
    if (own && header.starts_with("From ")) {
        const auto begin = header.begin() + static_cast<std::ptrdiff_t>(*own);
        const auto size = static_cast<std::ptrdiff_t>(signature.field.raw.size() + lineEnd.size());
        std::rotate(header.begin(), begin, begin + size);
    }
    header += lineEnd;
    ByteBuffer bytes(header.size() + body.size());
    std::ranges::copy(header, bytes.data());
    std::ranges::copy(body, bytes.data() + header.size());
    bytes.setSize(header.size() + body.size());
    return MailMessage::parse(std::move(bytes));
}

std::vector<std::string> valuesOf(const MailMessage& message, std::string_view name,
                                  const HeaderField* except) {
    std::vector<std::string> values;
    for (const auto position : message.positions(name)) {
        const HeaderField& field = message.headers()[position];
        if (values.size() < mostFieldValues && !(except && field == *except)) values.push_back(field.value());
    }
    return values;
}

/// What the two messages differ in: the fields that are signed, or say what the body is.
/// Where the texts are compared as they read, those fields are read with them.
void tellFields(UndoneSignature& undone, const MailMessage& message, const BrokenSignature& signature,
                const std::vector<NamedFields>& changes, bool isTextRead) {
    bool isFolded = false, isNamedAnew = false;
    const auto covered = coveredFields(message, signature, changes);
    const auto tell = [&](const std::string& name) {
        ChangedField field{name, valuesOf(message, name, &signature.field),
                           valuesOf(undone.message, name, &signature.field)};
        // A field that is folded has a blank, or a tab, where the line breaks.
        const auto words = [](const std::vector<std::string>& values) {
            std::string all;
            for (const std::string& value : values) {
                for (std::string_view rest = value; !rest.empty();) all.append(takeWord(rest, " \t")) += ' ';
                all += '\n';
            }
            return all;
        };
        if (words(field.shown) == words(field.signedValues)) {
            if (std::ranges::find(changes, name, &NamedFields::name) == changes.end()) return;
            const HeaderField *shown = message.first(name), *original = undone.message.first(name);
            const bool isSameName = !shown || !original || shown->name == original->name;
            (isSameName ? isFolded : isNamedAnew) = true;
            return;
        }
        const bool isOfContent = std::ranges::find(namesOfContent, name) != std::end(namesOfContent);
        if (!(isOfContent && isTextRead) && undone.fields.size() < mostFields)
            undone.fields.push_back(std::move(field));
    };
    for (const NamedFields& change : changes) {
        if (covered.contains(change.name) ||
            std::ranges::find(namesOfContent, change.name) != std::end(namesOfContent))
            tell(change.name);
    }
    // A field that nobody had to take out may still stand above the signed one.
    for (const auto& [name, count] : covered) {
        if (std::ranges::find(changes, name, &NamedFields::name) == changes.end() &&
            message.positions(name).size() > count)
            tell(name);
    }
    if (isFolded) undone.forms.push_back(RewrittenForm::folding);
    if (isNamedAnew) undone.forms.push_back(RewrittenForm::fieldNames);
}

void tellTexts(UndoneSignature& undone, const MailMessage& message, const BrokenSignature& signature,
               const Reading& reading, const std::stop_token& stop) {
    const Canonicalization form = signature.canonicalization.body;
    const std::string signedText = canonicalBody(*undone.message.body(), form, stop);
    undone.signedBytes = static_cast<std::int64_t>(signedText.size());
    TextChanges changes =
        changedTexts(message, undone.message, reading.forms, form == Canonicalization::relaxed);
    const bool isWritten = changes.isWritten || changes.texts.empty();
    for (const RewrittenForm written : reading.forms) {
        // What is told line by line isn't told again.
        if (isWritten || !changesLines(written)) undone.forms.push_back(written);
    }
    if (changes.isWrapped) undone.forms.push_back(RewrittenForm::wrapped);
    const bool isTold = !changes.texts.empty() || !undone.forms.empty() || reading.links > 0;
    // What nobody reads, such as the header of a part.
    if (!isTold) changes = changedLines(canonicalBody(*message.body(), form, stop), signedText);
    undone.texts = std::move(changes.texts);
    undone.addedBytes = changes.addedBytes;
    undone.links = reading.links;
    std::ranges::sort(undone.forms);
    undone.forms.erase(std::unique(undone.forms.begin(), undone.forms.end()), undone.forms.end());
}

}  // namespace

UndoFindings undo(const MailMessage& message, std::span<const BrokenSignature> signatures, Date now,
                  const std::stop_token& stop) {
    UndoFindings findings;
    if (!message.body()) return findings;
    std::vector<const BrokenSignature*> wanted;
    for (const BrokenSignature& signature : signatures) {
        const bool isRSA = signature.algorithm != SignatureAlgorithm::ed25519SHA256;
        if (isRSA && !signature.signedDigest) continue;  // made with another key, whatever it was made over
        if (signature.bodyLength && *signature.bodyLength < shortestSignedLength) continue;
        if (wanted.size() < mostUndoneSignatures) wanted.push_back(&signature);
    }
    if (wanted.empty()) return findings;
    BodySearch bodies(message, wanted, stop);
    bodies.run();
    HeaderBudget budget;
    for (const BrokenSignature* signature : wanted) {
        const FoundBody* found = signature->bodyHolds ? nullptr : bodies.found(*signature);
        const bool isBodyKnown = found || signature->bodyHolds;
        if (!isBodyKnown && (signature->headerHolds || signature->kind != SignatureKind::dkim)) continue;
        Reading reading = found ? found->reading : Reading();
        if (reading.hints.empty() && !signature->headerHolds) reading.hints = rewrittenTextFields(message);
        const auto changes = signature->headerHolds && reading.hints.empty()
                                 ? std::vector<NamedFields>()
                                 : signedHeader(message, *signature, reading.hints, budget, stop);
        if (stop.stop_requested()) return {};
        if (!changes) continue;
        if (!isBodyKnown) {
            UndoneSignature lines;
            lines.message = rebuilt(message, *signature, *changes, *message.body());
            tellFields(lines, message, *signature, *changes, false);
            const bool isHeld = checked(lines.message, *signature, now, stop).signedLinesHold;
            if (!isHeld) ++findings.unconfirmed;
            if (isHeld && !lines.fields.empty()) {
                findings.headers.push_back(
                    {static_cast<std::size_t>(signature - signatures.data()), std::move(lines.fields)});
            }
            continue;
        }
        std::string_view body = found ? std::string_view(found->body) : *message.body();
        std::string firstBytes;
        if (!found && signature->bodyLength) {
            firstBytes = canonicalBody(body, signature->canonicalization.body, stop);
            firstBytes.resize(std::min<std::size_t>(firstBytes.size(), *signature->bodyLength));
            body = firstBytes;
        }
        UndoneSignature undone;
        undone.signature = static_cast<std::size_t>(signature - signatures.data());
        undone.message = rebuilt(message, *signature, *changes, body);
        if (!passes(checked(undone.message, *signature, now, stop))) {
            ++findings.unconfirmed;
            continue;
        }
        tellFields(undone, message, *signature, *changes, reading.steps > 0);
        tellTexts(undone, message, *signature, reading, stop);
        findings.undone.push_back(std::move(undone));
    }
    return findings;
}

}  // namespace quillmark
