#include "QuillmarkKit/Checks/DMARCTreeWalk.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <utility>
#include <variant>
#include <vector>

#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t mostFurtherNames = 8;  // of a message, over all walks
constexpr std::size_t longestWalk = 8;       // names (RFC 9989, section 4.10)

/// That what must be known to judge isn't.
struct Unknown {};

struct Record {
    std::string text = {};
    std::optional<std::string> policy = {}, subdomainPolicy = {}, missingPolicy = {};  // usable ones
    char publicSuffix = 'u';                                                           // `psd=`
    bool isTesting = false, hasReports = false;
    AlignmentMode dkimMode = AlignmentMode::relaxed, spfMode = AlignmentMode::relaxed;
};

/// "v=DMARC1", by the letter but for blanks around the sign, in front of all other tags.
bool isRecord(std::string_view text) {
    const std::string_view tag = takePiece(text, ';');
    std::string_view value = tag;
    const std::string_view name = takePiece(value, '=');
    return trimmed(name) == "v" && trimmed(value) == "DMARC1";
}

Record parsed(std::string_view text) {
    Record record{.text = std::string(text)};
    const TagList tags = TagList::parse(text);
    const auto lowered = [&](std::string_view name) { return asciiLowered(tags.value(name).value_or("")); };
    const auto policy = [&](std::string_view name) -> std::optional<std::string> {
        std::string value = lowered(name);
        const bool isUsable = value == "none" || value == "quarantine" || value == "reject";
        return isUsable ? std::optional(std::move(value)) : std::nullopt;
    };
    record.policy = policy("p");
    record.subdomainPolicy = policy("sp");
    record.missingPolicy = policy("np");
    if (const std::string psd = lowered("psd"); psd == "y" || psd == "n") record.publicSuffix = psd.front();
    record.isTesting = lowered("t") == "y";
    record.hasReports = lowered("rua").find("mailto:") != std::string::npos;
    if (lowered("adkim") == "s") record.dkimMode = AlignmentMode::strict;
    if (lowered("aspf") == "s") record.spfMode = AlignmentMode::strict;
    return record;
}

/// A record and the name that it was found at.
struct Found {
    std::string name = {};
    Record record = {};
};

/// The names above `name` that a walk asks next; nothing above a top-level domain.
std::optional<std::string_view> nextOfWalk(std::string_view name) {
    const auto labels = static_cast<std::size_t>(std::ranges::count(name, '.')) + 1;
    if (labels == 1) return std::nullopt;
    std::size_t dropped = labels >= longestWalk ? labels - (longestWalk - 1) : 1;
    for (; dropped > 0; --dropped) name.remove_prefix(name.find('.') + 1);
    return name;
}

/// Whether two domains have a name of at least two labels in common: else one organization can't be both's.
bool shareAName(std::string_view a, std::string_view b) {
    std::size_t dots = 0;
    auto i = a.rbegin();
    auto j = b.rbegin();
    for (; i != a.rend() && j != b.rend() && *i == *j; ++i, ++j) dots += *i == '.';
    const bool isWhole = (i == a.rend() || *i == '.') && (j == b.rend() || *j == '.');
    return dots + (isWhole ? 1 : 0) >= 2;
}

class Judge {
public:
    Judge(const DMARCFinding& older, DNSResolver& resolver, const std::stop_token& stop)
        : m_older(older), m_resolver(resolver), m_stop(stop), m_from(comparableDomain(older.fromDomain)) {
        const bool isAskedAbove = !older.record || older.recordDomain != older.fromDomain;
        if (isAskedAbove && older.organizationalDomain != older.fromDomain)
            m_askedAbove = comparableDomain(older.organizationalDomain);
    }

    TreeWalkJudgement judge(std::span<const DKIMResult> dkim, const SPFFinding& spf);

private:
    using Status = DMARCFinding::Status;
    using Cause = NewerDMARC::Cause;

    /// All that stands at a name and is a record. Throws `Unknown`.
    const std::vector<std::string>& recordsAt(std::string_view name) { return answerAt(name).records; }

    struct Answer {
        std::vector<std::string> records = {};
        bool doesNotExist = false;  // "_dmarc" below the name
    };
    const Answer& answerAt(std::string_view name) {
        if (const auto known = m_answers.find(name); known != m_answers.end()) return known->second;
        const DNSAnswer given = asked("_dmarc." + std::string(name), name == m_from || name == m_askedAbove);
        Answer answer{.doesNotExist = std::holds_alternative<DNSAnswer::NXDomain>(given.value)};
        for (const std::string& text : given.data()) {
            if (isRecord(text) && answer.records.size() < 2) answer.records.push_back(text);
        }
        return m_answers.emplace(name, std::move(answer)).first->second;
    }

    DNSAnswer asked(const std::string& question, bool wasAsked) {
        if (!m_resolver.mayKnow(question, DNSRecordType::txt)) throw Unknown{};
        if (!wasAsked) {
            if (m_left == 0) throw Unknown{};
            --m_left;
        }
        try {
            return m_resolver.lookup(question, DNSRecordType::txt, {m_stop});
        } catch (const DNSLookupError&) {
            throw Unknown{};
        }
    }

    /// Whether nothing at all stands at or below a name (RFC 8020).
    bool isMissing(const std::string& name) {
        if (!answerAt(name).doesNotExist) return false;  // what stands below it exists
        return std::holds_alternative<DNSAnswer::NXDomain>(asked(name, false).value);
    }

    const std::vector<Found>& walk(const std::string& start) {
        if (const auto known = m_walks.find(start); known != m_walks.end()) return known->second;
        std::vector<Found> found;
        for (std::optional<std::string_view> name = start; name; name = nextOfWalk(*name)) {
            const auto& records = recordsAt(*name);
            if (records.size() != 1) continue;  // several count as none
            found.push_back({std::string(*name), parsed(records.front())});
            if (found.back().record.publicSuffix != 'u') break;
        }
        return m_walks.emplace(start, std::move(found)).first->second;
    }

    std::string organization(const std::string& name) {
        const auto& found = walk(name);
        if (found.empty()) return name;
        const Found& last = found.back();
        if (last.record.publicSuffix == 'n') return last.name;
        if (last.record.publicSuffix == 'y' && last.name != name) {
            // The name one label below it.
            const std::string_view before =
                std::string_view(name).substr(0, name.size() - last.name.size() - 1);
            const auto dot = before.rfind('.');
            return name.substr(dot == std::string_view::npos ? 0 : dot + 1);
        }
        return last.name;
    }

    bool isAligned(std::string_view domain, AlignmentMode mode) {
        const std::string other = comparableDomain(domain);
        if (other.empty() || other == m_from) return !other.empty();
        if (mode == AlignmentMode::strict || !shareAName(other, m_from)) return false;
        return organization(other) == organization(m_from);
    }

    /// The record that applies, and whose policy for subdomains or missing ones when it stands above. Notes
    /// why none does.
    std::optional<Found> policyRecord() {
        const auto& own = recordsAt(m_from);
        if (own.size() > 1) {
            note(Cause::severalRecords);
            return std::nullopt;
        }
        if (own.size() == 1) return Found{m_from, parsed(own.front())};
        const auto& found = walk(m_from);
        if (found.empty()) return std::nullopt;
        const std::string organizational = organization(m_from);
        const auto above = std::ranges::find(found, organizational, &Found::name);
        if (above != found.end()) return *above;
        const auto suffix =
            std::ranges::find_if(found, [](const Found& each) { return each.record.publicSuffix == 'y'; });
        return suffix == found.end() ? std::nullopt : std::optional(*suffix);
    }

    /// The weightiest cause stays.
    void note(Cause cause) { m_cause = std::min(m_cause.value_or(cause), cause); }

    const DMARCFinding& m_older;
    DNSResolver& m_resolver;
    const std::stop_token& m_stop;
    const std::string m_from;
    std::optional<std::string> m_askedAbove = {};  // by the older rules, where it is another name
    std::size_t m_left = mostFurtherNames;
    std::map<std::string, Answer, std::less<>> m_answers = {};
    std::map<std::string, std::vector<Found>> m_walks = {};
    std::optional<Cause> m_cause = {};
};

std::string dropped(const std::string& policy) { return policy == "reject" ? "quarantine" : "none"; }

TreeWalkJudgement Judge::judge(std::span<const DKIMResult> dkim, const SPFFinding& spf) {
    auto found = policyRecord();
    TreeWalkJudgement judgement{.finding = m_older};
    DMARCFinding& finding = judgement.finding;
    finding.percent = 100;
    finding.policy = finding.subdomainPolicy = finding.appliedPolicy = finding.record = finding.recordDomain =
        finding.alignedDKIMDomain = std::nullopt;
    finding.spfAligned = false;
    if (found && !found->record.policy) {
        note(Cause::noPolicyTag);
        // One who wants reports asks for nothing else.
        found->record.hasReports ? void(found->record.policy = "none") : found.reset();
    }
    if (found) {
        Record& record = found->record;
        finding.record = record.text;
        finding.recordDomain = found->name == m_from ? finding.fromDomain : found->name;
        finding.policy = record.policy;
        finding.subdomainPolicy = record.subdomainPolicy;
        finding.dkimMode = record.dkimMode;
        finding.spfMode = record.spfMode;
        finding.appliedPolicy = record.policy;
        if (found->name != m_from) {
            finding.appliedPolicy = record.subdomainPolicy ? record.subdomainPolicy : record.policy;
            if (record.missingPolicy && record.missingPolicy != finding.appliedPolicy && isMissing(m_from)) {
                note(Cause::missingDomain);
                finding.appliedPolicy = record.missingPolicy;
            }
        }
        if (record.isTesting && *finding.appliedPolicy != "none") {
            note(Cause::testing);
            finding.appliedPolicy = dropped(*finding.appliedPolicy);
        }
    }
    const auto signature = std::ranges::find_if(dkim, [&](const DKIMResult& result) {
        return result.status == DKIMResult::Status::pass && isAligned(result.domain, finding.dkimMode);
    });
    if (signature != dkim.end()) finding.alignedDKIMDomain = signature->domain;
    const auto* judged = std::get_if<SPFFinding::Status::Judged>(&spf.status.value);
    finding.spfAligned =
        judged && judged->result == SPFResult::pass && isAligned(spf.domain.value_or(""), finding.spfMode);
    const bool isProven = finding.alignedDKIMDomain || finding.spfAligned;
    finding.status = !finding.record ? Status::noPolicy : isProven ? Status::pass : Status::fail;

    // What comes of it.
    const bool isFailure = finding.status == Status::fail;
    const bool isOther =
        finding.status != m_older.status || (isFailure && finding.appliedPolicy != m_older.appliedPolicy);
    const bool countedAPart = isFailure && m_older.percent < 100 && finding.appliedPolicy != "none";
    if (!isOther && !countedAPart) return judgement;
    if (!isOther) {
        m_cause = Cause::percent;
    } else if (finding.record == m_older.record) {
        if (finding.status != m_older.status) note(Cause::organization);
    } else if (m_older.record && !isRecord(*m_older.record)) {
        note(Cause::otherRecord);
    } else {
        note(Cause::treeWalk);
    }
    judgement.difference = {m_cause.value_or(Cause::treeWalk), finding.status,
                            isFailure ? finding.appliedPolicy : std::nullopt, finding.recordDomain};
    return judgement;
}

/// Whether several records stand at a name that was asked for before.
bool publishesSeveral(const std::string& name, DNSResolver& resolver, const std::stop_token& stop) {
    try {
        const DNSAnswer answer = resolver.lookup("_dmarc." + name, DNSRecordType::txt, {stop});
        return std::ranges::count_if(answer.data(), isRecord) > 1;
    } catch (const DNSLookupError&) {
        return false;
    }
}

}  // namespace

std::optional<TreeWalkJudgement> dmarcByTreeWalk(const DMARCFinding& older, std::span<const DKIMResult> dkim,
                                                 const SPFFinding& spf, DNSResolver& resolver,
                                                 const std::stop_token& stop) {
    using Status = DMARCFinding::Status;
    if (older.status == Status::noFromDomain || older.status == Status::lookupFailed) return std::nullopt;
    try {
        return Judge(older, resolver, stop).judge(dkim, spf);
    } catch (const Unknown&) {
        return std::nullopt;
    }
}

bool mayDiffer(const DMARCFinding& older, const SPFFinding& spf, DNSResolver& resolver,
               const std::stop_token& stop) {
    using Status = DMARCFinding::Status;
    if (older.status == Status::noFromDomain || older.status == Status::lookupFailed) return false;
    if (older.status != Status::pass || !isRecord(*older.record)) return true;
    const Record record = parsed(*older.record);
    const std::string from = comparableDomain(older.fromDomain);
    const bool isOwn = (older.alignedDKIMDomain && comparableDomain(*older.alignedDKIMDomain) == from) ||
                       (older.spfAligned && comparableDomain(spf.domain.value_or("")) == from);
    if (!isOwn || (!record.policy && !record.hasReports)) return true;
    // By the older rules several are as none, and one above was taken.
    return older.recordDomain != older.fromDomain && publishesSeveral(from, resolver, stop);
}

}  // namespace quillmark
