#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "QuillmarkKit/Mail/MessageSummary.h"
#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Fields.h"

/// Tricks that a valid signature does not rule out.
namespace quillmark {

/// A warning sign: a trick that a valid signature does not rule out.
struct LookAlikeFlag {
    struct ReplyToDiffers {
        std::string replyTo = {}, from = {};
        bool operator==(const ReplyToDiffers&) const = default;
    };
    struct DisplayNameMismatch {
        std::string shown = {}, actual = {};
        bool operator==(const DisplayNameMismatch&) const = default;
    };
    struct Punycode {
        std::string domain = {}, unicode = {};
        bool operator==(const Punycode&) const = default;
    };
    struct MixedScripts {
        std::string domain = {};
        bool operator==(const MixedScripts&) const = default;
    };
    struct YoungDomain {
        std::string domain = {};
        Date registered = {};
        int days = 0;  ///< from the registration to the check, in whole days
        bool operator==(const YoungDomain&) const = default;
    };
    struct MultipleFrom : Unit {};
    std::variant<ReplyToDiffers, DisplayNameMismatch, Punycode, MixedScripts, YoungDomain, MultipleFrom>
        value = MultipleFrom{};
    bool operator==(const LookAlikeFlag&) const = default;
};
constexpr auto casesOf(const LookAlikeFlag*) {
    return std::array{"replyToDiffers", "displayNameMismatch", "punycode",
                      "mixedScripts",   "youngDomain",         "multipleFrom"};
}
constexpr auto fieldsOf(const LookAlikeFlag::ReplyToDiffers*) {
    using T = LookAlikeFlag::ReplyToDiffers;
    return std::tuple{Field{"replyTo", &T::replyTo}, Field{"from", &T::from}};
}
constexpr auto fieldsOf(const LookAlikeFlag::DisplayNameMismatch*) {
    using T = LookAlikeFlag::DisplayNameMismatch;
    return std::tuple{Field{"shown", &T::shown}, Field{"actual", &T::actual}};
}
constexpr auto fieldsOf(const LookAlikeFlag::Punycode*) {
    using T = LookAlikeFlag::Punycode;
    return std::tuple{Field{"domain", &T::domain}, Field{"unicode", &T::unicode}};
}
constexpr auto fieldsOf(const LookAlikeFlag::MixedScripts*) {
    return std::tuple{Field{"domain", &LookAlikeFlag::MixedScripts::domain}};
}
constexpr auto fieldsOf(const LookAlikeFlag::YoungDomain*) {
    using T = LookAlikeFlag::YoungDomain;
    return std::tuple{Field{"domain", &T::domain}, Field{"registered", &T::registered},
                      Field{"days", &T::days}};
}

/// The signs that the message itself shows, in the order of `LookAlikeFlag`'s rules: several senders, a reply
/// that goes to another organization, a name that shows another organization's domain, then for each
/// international domain, sorted, its Unicode form and whether a label mixes alphabets. None without a sender.
std::vector<LookAlikeFlag> warningSigns(const MessageSummary& summary, const PublicSuffixList& suffixes);

/// The domains whose registration dates are worth knowing, without repetition: the organizational domain of
/// the sender, then those of the Reply-To addresses, of which at most five are asked for. Empty unless From
/// holds exactly one address with a domain.
std::vector<std::string> registrationDomains(const MessageSummary& summary, const PublicSuffixList& suffixes);

/// The sign that a domain was registered fewer than 90 days before `now`, the time of the check.
std::optional<LookAlikeFlag> youngDomain(std::string_view domain, Date registered, Date now);

}  // namespace quillmark
