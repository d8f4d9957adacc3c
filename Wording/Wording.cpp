#include "Wording/Wording.h"

#include <variant>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

/// How much of a text of somebody else's stands in one of our sentences, in bytes.
constexpr std::size_t longestQuote = 500;

std::string quoted(std::string_view text) { return forDisplay(text, longestQuote); }

}  // namespace

std::string headline(const Verdict& verdict) {
    const std::string domain = quoted(verdict.domain);
    const std::string sender = verdict.fromDomain.empty() ? "the sender" : quoted(verdict.fromDomain);
    switch (verdict.kind) {
        case VerdictKind::verified:
            return "Signed by " + domain + ", unchanged since sent";
        case VerdictKind::verifiedHeadersOnly:
            return "Signed by " + domain + "; the body wasn’t checked";
        case VerdictKind::signedByOther:
            return "Signed by " + domain + ", not by " + sender;
        case VerdictKind::signatureBroken:
            return "Signature broken: changed after sending or forwarded";
        case VerdictKind::keyGone:
            return "Can’t check: " + domain + "’s signing key is no longer published";
        case VerdictKind::couldNotCheck:
            return "Couldn’t check: the key lookup failed";
        case VerdictKind::allowedServerOnly:
            return "Not signed, but sent from a server " + sender + " allows";
        case VerdictKind::cannotProve:
            break;
    }
    return "Can’t prove who sent this";
}

std::string explanation(const Verdict& verdict) {
    const std::string domain = quoted(verdict.domain);
    switch (verdict.kind) {
        case VerdictKind::verified:
            return "The owner of " + domain +
                   " sent this, or somebody who may use its mail servers. Nothing that was signed has "
                   "changed.";
        case VerdictKind::verifiedHeadersOnly:
            return "The owner of " + domain +
                   " signed these header lines, or somebody who may use its mail servers. Give Quillmark the "
                   "whole "
                   "message (.eml) to check the body too.";
        case VerdictKind::signedByOther:
            return domain + " vouches for this message, but " + domain +
                   " isn’t the domain in From. Newsletters and shops often send this way; so do forgers.";
        case VerdictKind::signatureBroken:
            if (verdict.tone == Tone::caution) {
                std::string vouchers;
                for (const std::string& voucher : verdict.arcVouchers) {
                    vouchers += (vouchers.empty() ? "" : ", ") + quoted(voucher);
                }
                return "Something changed after " + domain +
                       " signed. Forwarders say that it reached them unbroken: " + vouchers +
                       ". That is worth as much as you trust them.";
            }
            return "Something changed after " + domain + " signed. Don’t rely on what it says.";
        case VerdictKind::keyGone:
            return "Perhaps genuine, but it can no longer be proven.";
        case VerdictKind::couldNotCheck:
            return "Try again when you’re online.";
        case VerdictKind::allowedServerOnly:
            return "There is no signature. The server is one that " + domain +
                   " allows, as far as the message’s own lines can be trusted; others who use the same mail "
                   "service "
                   "may send through it too.";
        case VerdictKind::cannotProve:
            break;
    }
    return "Anybody could have written this. That doesn’t mean that it is a forgery; it means nothing shows "
           "that it "
           "isn’t.";
}

std::string_view marker(Tone tone) {
    switch (tone) {
        case Tone::good:
            return "[OK]";
        case Tone::caution:
            return "[!]";
        case Tone::bad:
            return "[X]";
        case Tone::unknown:
            break;
    }
    return "[?]";
}

std::string_view label(DKIMResult::Status status) {
    switch (status) {
        case DKIMResult::Status::pass:
            return "Valid";
        case DKIMResult::Status::bodyChanged:
            return "Body changed";
        case DKIMResult::Status::headersChanged:
            return "Headers changed";
        case DKIMResult::Status::keyNotPublished:
            return "Key no longer published";
        case DKIMResult::Status::keyRevoked:
            return "Key withdrawn";
        case DKIMResult::Status::keyUnusable:
            return "Key can’t be used";
        case DKIMResult::Status::keyTooWeak:
            return "Key too weak";
        case DKIMResult::Status::lookupFailed:
            return "Lookup failed";
        case DKIMResult::Status::unsupportedAlgorithm:
            return "Unsupported algorithm";
        case DKIMResult::Status::malformed:
            break;
    }
    return "Not a valid signature";
}

Tone tone(const DKIMResult& result) {
    switch (result.status) {
        case DKIMResult::Status::pass:
            return result.bodyChecked ? Tone::good : Tone::caution;
        case DKIMResult::Status::bodyChanged:
        case DKIMResult::Status::headersChanged:
        case DKIMResult::Status::keyTooWeak:
        case DKIMResult::Status::malformed:
            return Tone::bad;
        default:
            return Tone::unknown;
    }
}

std::string problemLine(const Refusal& refusal, const std::optional<std::string>& name) {
    const std::string file = name ? "“" + quoted(*name) + "”" : "";
    if (const auto* unreadable = std::get_if<Refusal::Unreadable>(&refusal.value)) {
        return (name ? file : "The input") + " couldn’t be read: " + quoted(unreadable->reason);
    }
    if (std::holds_alternative<Refusal::TooLarge>(refusal.value)) {
        return (name ? file : "That") + " is larger than 50 MB, too large for a single email.";
    }
    if (!name) {
        return "That doesn’t look like an email: no From, Received or DKIM-Signature header was found. Paste "
               "the "
               "message’s full source or its headers.";
    }
    return file + " doesn’t look like an email: no From, Received or DKIM-Signature header was found.";
}

std::string displayForm(const MailAddress& address) {
    if (!address.displayName) return quoted(address.address);
    return quoted(*address.displayName) + " <" + quoted(address.address) + ">";
}

}  // namespace quillmark
