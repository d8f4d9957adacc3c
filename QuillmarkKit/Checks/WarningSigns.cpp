#include "QuillmarkKit/Checks/WarningSigns.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "QuillmarkKit/Mail/Punycode.h"
#include "QuillmarkKit/Support/Pattern.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t mostReplyToDomains = 5;  // a message must not make us ask registries without end
constexpr auto youngAge = std::chrono::days(90);

const Pattern& domainPattern() {  // it is ASCII: bytes will do
    static const Pattern pattern(R"((?:[A-Za-z0-9._%+-]+@)?(?:[A-Za-z0-9-]+\.)+[A-Za-z]{2,})",
                                 Pattern::Units::bytes);
    return pattern;
}

/// The first thing in a display name that looks like a domain, or like an address with one.
std::optional<std::string_view> domainShown(std::string_view name) {
    if (name.find('.') == std::string_view::npos) return std::nullopt;
    std::string_view shown;
    if (!domainPattern().find(name, 0, {&shown, 1})) return std::nullopt;
    // "@" stands only between the two halves, so that a capture (slow on a match of megabytes) is not needed.
    if (const auto at = shown.find('@'); at != std::string_view::npos) shown.remove_prefix(at + 1);
    return shown;
}

/// F's domain and those of the Reply-To addresses, as far as they may be international: sorted, each once.
TextList internationalDomains(std::string_view from, const PackedList<MailAddress>& replyTo) {
    std::vector<std::string> domains;  // the first of them sorted, each once
    std::ptrdiff_t sorted = 0;
    const auto sortAll = [&] {
        const auto rest = domains.begin() + sorted;
        std::sort(rest, domains.end());
        std::inplace_merge(domains.begin(), rest, domains.end());
        domains.erase(std::unique(domains.begin(), domains.end()), domains.end());
        sorted = std::ssize(domains);
    };
    const auto add = [&](std::string domain) {
        if (isASCII(domain) && domain.find("xn--") == std::string::npos) return;
        // A message may have millions, and few that differ: among few, looking is faster than sorting them
        // all.
        constexpr std::ptrdiff_t few = 1'024;
        if (sorted < few && std::binary_search(domains.begin(), domains.begin() + sorted, domain)) return;
        domains.push_back(std::move(domain));
        if (std::ssize(domains) >= std::max(few, 2 * sorted)) sortAll();
    };
    add(MailAddress::domainPart(from));
    for (const auto& reply : replyTo) add(MailAddress::domainPart(reply.address));
    sortAll();
    TextList packed;
    for (const std::string& domain : domains) packed.push_back(domain);
    return packed;
}

bool anyLabel(std::string_view domain, auto&& test) {
    while (!domain.empty()) {
        if (test(takePiece(domain, '.'))) return true;
    }
    return false;
}

bool isInternational(std::string_view label) { return label.starts_with("xn--"); }
bool mixesScripts(std::string_view label) { return Punycode::scripts(label).size() > 1; }

}  // namespace

std::vector<LookAlikeFlag> warningSigns(const MessageSummary& summary, const PublicSuffixList& suffixes) {
    std::vector<LookAlikeFlag> flags;
    if (summary.from.empty()) return flags;
    if (summary.from.size() > 1) flags.push_back({LookAlikeFlag::MultipleFrom{}});

    const MailAddress from = summary.from.front();
    // A sender without a domain belongs to no organization, so that every other one differs.
    const std::string organization = suffixes.organizationalDomain(MailAddress::domainPart(from.address));
    const auto differs = [&](std::string_view domain) {
        return suffixes.organizationalDomain(domain) != organization;
    };
    const auto reply = std::ranges::find_if(summary.replyTo, [&](const MailAddress& address) {
        const std::string domain = MailAddress::domainPart(address.address);
        return !domain.empty() && differs(domain);
    });
    if (reply != summary.replyTo.end()) {
        flags.push_back({LookAlikeFlag::ReplyToDiffers{(*reply).address, from.address}});
    }
    const auto shown = from.displayName ? domainShown(*from.displayName) : std::nullopt;
    if (shown && differs(*shown)) {
        flags.push_back({LookAlikeFlag::DisplayNameMismatch{*from.displayName, from.address}});
    }
    const TextList domains = internationalDomains(from.address, summary.replyTo);
    flags.reserve(flags.size() + 2 * domains.size());
    for (const std::string_view domain : domains) {
        const std::string unicode = Punycode::unicodeDomain(domain);
        if (anyLabel(domain, isInternational))
            flags.push_back({LookAlikeFlag::Punycode{std::string(domain), unicode}});
        if (anyLabel(unicode, mixesScripts))
            flags.push_back({LookAlikeFlag::MixedScripts{std::string(domain)}});
    }
    return flags;
}

std::vector<std::string> registrationDomains(const MessageSummary& summary,
                                             const PublicSuffixList& suffixes) {
    if (summary.from.size() != 1) return {};
    const std::string fromDomain = MailAddress::domainPart(summary.from.front().address);
    if (fromDomain.empty()) return {};
    std::vector domains{suffixes.organizationalDomain(fromDomain)};
    for (const MailAddress& reply : summary.replyTo) {
        if (domains.size() > mostReplyToDomains) break;
        const std::string domain = MailAddress::domainPart(reply.address);
        if (domain.empty()) continue;
        std::string organization = suffixes.organizationalDomain(domain);
        if (std::ranges::find(domains, organization) == domains.end())
            domains.push_back(std::move(organization));
    }
    return domains;
}

std::optional<LookAlikeFlag> youngDomain(std::string_view domain, Date registered, Date now) {
    const auto days = std::chrono::duration_cast<std::chrono::days>(now - registered);
    if (days >= youngAge) return std::nullopt;
    const auto count = std::max<std::int64_t>(days.count(), std::numeric_limits<int>::min());
    return LookAlikeFlag{
        LookAlikeFlag::YoungDomain{std::string(domain), registered, static_cast<int>(count)}};
}

}  // namespace quillmark
