#include "Wording/Signs.h"

#include <variant>

#include "Wording/DomainIdentity.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

/// One overload for each sign.
struct SignTitle {
    const Reader& reader;
    std::string operator()(const LookAlikeFlag::ReplyToDiffers&) const {
        return reader.translate("Replies go somewhere else");
    }
    std::string operator()(const LookAlikeFlag::DisplayNameMismatch&) const {
        return reader.translate("The name shows another address");
    }
    std::string operator()(const LookAlikeFlag::Punycode&) const {
        return reader.translate("Look-alike letters in the domain");
    }
    std::string operator()(const LookAlikeFlag::MixedScripts&) const {
        return reader.translate("Mixed alphabets in the domain");
    }
    std::string operator()(const LookAlikeFlag::YoungDomain&) const {
        return reader.translate("Newly registered domain");
    }
    std::string operator()(const LookAlikeFlag::MultipleFrom&) const {
        return reader.translate("Several From addresses");
    }
};

struct SignSentence {
    const Reader& reader;
    std::string operator()(const LookAlikeFlag::ReplyToDiffers& sign) const {
        return reader.translate("The message says that it comes from %1, but a reply would go to %2.",
                                {quotedWord(sign.from), quotedWord(sign.replyTo)});
    }
    std::string operator()(const LookAlikeFlag::DisplayNameMismatch& sign) const {
        return reader.translate("The name reads “%1”, but the real address is %2.",
                                {quoted(sign.shown), quotedWord(sign.actual)});
    }
    std::string operator()(const LookAlikeFlag::Punycode& sign) const {
        return reader.translate("%1 is written in punycode; some apps show it as “%2”.",
                                {quotedWord(sign.domain), quoted(cutInside(sign.unicode))});
    }
    std::string operator()(const LookAlikeFlag::MixedScripts& sign) const {
        return reader.translate(
            "%1 mixes letters of several alphabets. That can be legitimate, but look-alike names are made in "
            "the same way.",
            {quotedDomain(sign.domain)});
    }
    std::string operator()(const LookAlikeFlag::YoungDomain& sign) const {
        const std::string domain = quotedDomain(sign.domain), date = reader.date(sign.registered);
        if (sign.days < 0) {
            return reader.translate("%1 was registered on %2, after the message was checked.",
                                    {domain, date});
        }
        if (sign.days == 0) {
            return reader.translate("%1 was registered on %2, less than a day before the check.",
                                    {domain, date});
        }
        return reader.translateCount("%1 was registered on %2, only %n day ago.",
                                     "%1 was registered on %2, only %n days ago.", sign.days, {domain, date});
    }
    std::string operator()(const LookAlikeFlag::MultipleFrom&) const {
        return reader.translate(
            "The message names more than one sender, which mail standards don’t allow for checking.");
    }
};

struct SignInShort {
    const Reader& reader;
    std::string operator()(const LookAlikeFlag::ReplyToDiffers& sign) const {
        return reader.translate("Replies go somewhere else: to %1", {quotedWord(sign.replyTo)});
    }
    std::string operator()(const LookAlikeFlag::DisplayNameMismatch& sign) const {
        return reader.translate("The name shows another address; the real one is %1",
                                {quotedWord(sign.actual)});
    }
    std::string operator()(const LookAlikeFlag::Punycode& sign) const {
        return lettersInWords(sign.domain, reader);
    }
    std::string operator()(const LookAlikeFlag::MixedScripts& sign) const {
        return reader.translate("Letters of several alphabets in %1", {quotedWord(sign.domain)});
    }
    std::string operator()(const LookAlikeFlag::YoungDomain& sign) const {
        const std::string domain = quotedWord(sign.domain);
        if (sign.days <= 0) return reader.translate("%1 was registered only just now", {domain});
        return reader.translateCount("%1 was registered only %n day ago",
                                     "%1 was registered only %n days ago", sign.days, {domain});
    }
    std::string operator()(const LookAlikeFlag::MultipleFrom&) const {
        return reader.translate("Several From addresses");
    }
};

}  // namespace

std::string title(const LookAlikeFlag& flag, const Reader& reader) {
    return std::visit(SignTitle{reader}, flag.value);
}

std::string sentence(const LookAlikeFlag& flag, const Reader& reader) {
    return std::visit(SignSentence{reader}, flag.value);
}

std::string shortSentence(const LookAlikeFlag& flag, const Reader& reader) {
    return std::visit(SignInShort{reader}, flag.value);
}

std::string title(Limit limit, const Reader& reader) {
    switch (limit) {
        case Limit::domainNotCompany:
            return reader.translate("A domain isn’t a company");
        case Limit::compromisedMailbox:
            return reader.translate("A stolen mailbox signs too");
        case Limit::oldKeys:
            return reader.translate("Old keys disappear");
        case Limit::forwarding:
            return reader.translate("Forwarding breaks signatures");
        case Limit::spfFromReceived:
            return reader.translate("The server’s address comes from the message itself");
        case Limit::headersOnly:
            break;
    }
    return reader.translate("The body wasn’t checked");
}

std::string sentence(Limit limit, const Reader& reader) {
    switch (limit) {
        case Limit::domainNotCompany:
            return reader.translate(
                "Anyone can register a name that looks like a well-known one. Read the domain letter by "
                "letter.");
        case Limit::compromisedMailbox:
            return reader.translate("If somebody got into the sender’s account, these checks still succeed.");
        case Limit::oldKeys:
            return reader.translate(
                "Senders withdraw their keys after some time. From then on, a genuine message can’t be told "
                "from a forged one.");
        case Limit::forwarding:
            return reader.translate(
                "Mailing lists and forwarding services often change a message. Its signature then no longer "
                "fits, though nobody meant any harm.");
        case Limit::spfFromReceived:
            return reader.translate(
                "A sender can write such lines. Only those added by your own mail provider can be trusted.");
        case Limit::headersOnly:
            break;
    }
    return reader.translate("No body was found, so only the header lines could be judged.");
}

}  // namespace quillmark
