#include "Quillmark/KnownSenders.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Date.h"
#include "Wording/Quoted.h"

namespace quillmark {

std::string knownInWords(const ProofReport& report,
                         std::span<const std::shared_ptr<const ProofReport>> history, const Reader& reader) {
    const bool isProven = report.verdict.kind == VerdictKind::verified;
    const std::string& domain = isProven ? report.verdict.domain : report.verdict.fromDomain;
    if (domain.empty()) return {};
    std::set<std::string_view> messages;  // by what identifies them; a message that was checked again is one
    Date since = Date::max();
    for (const auto& each : history) {
        const bool isOther = each->id != report.id && (!each->summary.messageID ||
                                                       each->summary.messageID != report.summary.messageID);
        if (!isOther || each->verdict.kind != VerdictKind::verified || !each->summary.messageID) continue;
        if (!PublicSuffixList::shared().sameOrganization(each->verdict.domain, domain)) continue;
        messages.insert(*each->summary.messageID);
        since = std::min(since, each->checkedAt);
    }
    const auto count = static_cast<std::int64_t>(messages.size());
    if (count == 0)
        return isProven ? reader.translate("The first message from this domain in your history.")
                        : std::string();
    // It is the organization's messages that are counted, so they are told as its.
    const std::string organization = PublicSuffixList::shared().organizationalDomain(domain);
    const std::string year = iso8601(since + reader.zone(since).ahead).substr(0, 4);
    if (isProven) {
        return reader.translateCount(
            "You have checked %n other message that is proven to be from %1, since %2.",
            "You have checked %n other messages that are proven to be from %1, since %2.", count,
            {quotedWord(organization), year});
    }
    return reader.translateCount(
        "You have checked %n message that is proven to be from %1, since %2; this one isn’t.",
        "You have checked %n messages that are proven to be from %1, since %2; this one isn’t.", count,
        {quotedWord(organization), year});
}

std::vector<std::string> knownDomains(std::span<const std::shared_ptr<const ProofReport>> history) {
    constexpr std::size_t mostDomains = 100;
    std::map<std::string, std::size_t> counts;
    for (const auto& each : history) {
        if (each->verdict.kind == VerdictKind::verified && each->flags.empty())
            ++counts[PublicSuffixList::shared().organizationalDomain(each->verdict.domain)];
    }
    std::vector<std::pair<std::size_t, std::string>> domains;
    for (const auto& [domain, count] : counts) domains.emplace_back(count, inert(domain));
    std::ranges::stable_sort(domains, std::greater(), &std::pair<std::size_t, std::string>::first);
    domains.resize(std::min(domains.size(), mostDomains));
    std::vector<std::string> names;
    for (auto& [count, name] : domains) names.push_back(std::move(name));
    return names;
}

}  // namespace quillmark
