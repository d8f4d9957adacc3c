#include "Wording/Glossary.h"

#include <algorithm>
#include <array>

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr std::size_t mostRawValues = 20;

constexpr std::array entries = {
    GlossaryEntry{
        toTranslate("Algorithm"), "a=,rsa-sha256,ed25519-sha256,rsa-sha1",
        toTranslate("How the signature was calculated, such as rsa-sha256. rsa-sha1 is an old way that "
                    "no longer proves anything."),
        "RFC 6376, section 3.3; RFC 8301; RFC 8463"},
    GlossaryEntry{
        toTranslate("Alignment"), "aligned",
        toTranslate("Whether what was proven is about the domain that you see in From. A signature by "
                    "another domain can be perfectly valid and say nothing about the sender that is shown."),
        "RFC 7489, section 3.1"},
    GlossaryEntry{
        toTranslate("ARC"), "forwarding chain,authenticated received chain,seal,arc-seal",
        toTranslate("Lists and forwarders change messages, which breaks signatures. With ARC each of them "
                    "can write down what it saw before its change, and sign that. It proves that the "
                    "forwarder said so, not that it is true: it is worth as much as you trust the "
                    "forwarder."),
        "RFC 8617"},
    GlossaryEntry{
        toTranslate("Authentication-Results"), "your mail server said",
        toTranslate("A line in which a mail server writes what its own checks found. Anybody can write such "
                    "a line before the message reaches your provider, so it is shown and never relied on."),
        "RFC 8601"},
    GlossaryEntry{
        toTranslate("Body"), "text",
        toTranslate("The message without its header lines: what you read, and what is attached. A signature "
                    "covers it by a digest, so that a single changed letter shows."),
        "RFC 5322, section 2.3"},
    GlossaryEntry{
        toTranslate("Canonicalization"), "c=,relaxed,simple",
        toTranslate("Servers sometimes wrap lines anew or add blanks. Before it is signed and before it is "
                    "checked, a message is brought into one form, so that such small things don’t count. "
                    "“relaxed” forgives differences in blanks, “simple” nearly nothing."),
        "RFC 6376, section 3.4"},
    GlossaryEntry{
        toTranslate("DKIM"), "signature,signatures (dkim),dkim-signature",
        toTranslate("A signature that the sender’s mail server puts into the message. Its public key stands "
                    "in the domain’s own DNS, so anybody can check that the signed lines and the text are "
                    "as that domain sent them. It proves the domain, not the person."),
        "RFC 6376"},
    GlossaryEntry{
        toTranslate("DMARC"), "domain policy,domain policy (dmarc)",
        toTranslate("Here the owner of the domain in From says what shall become of mail that neither a "
                    "signature nor a server of that domain proves: nothing, the spam folder, or refusal."),
        "RFC 7489"},
    GlossaryEntry{
        toTranslate("DNS"), "domain name system",
        toTranslate("The public directory of the internet, in which each domain says where its servers are "
                    "and which keys are its own. Who controls a domain’s DNS can sign in its name."),
        "RFC 1034; RFC 1035"},
    GlossaryEntry{
        toTranslate("Envelope domain"), "envelope sender,mail from",
        toTranslate("The address to which a server returns what it can’t deliver, as on the outside of an "
                    "envelope. It may be quite another one than that in From, which is what you see."),
        "RFC 5321, section 4.1.1.2"},
    GlossaryEntry{
        toTranslate("Key size"), "bits,keybits",
        toTranslate("How long the signer’s key is. RSA keys below 1,024 bits can be broken and prove "
                    "nothing; 2,048 bits are good."),
        "RFC 8301"},
    GlossaryEntry{
        toTranslate("Message-ID"), "",
        toTranslate("A name that the sender’s program gives to each message, so that answers find their "
                    "way to it. It proves nothing by itself."),
        "RFC 5322, section 3.6.4"},
    GlossaryEntry{
        toTranslate("Organization"), "registrable domain,public suffix,organizational domain",
        toTranslate("The part of a domain that somebody registered: of mail.bank.example it is bank.example. "
                    "Whoever registered it decides on all that ends with it. What stands before it says "
                    "nothing: bank.example.evil.test belongs to evil.test."),
        "RFC 7489, section 3.2; publicsuffix.org"},
    GlossaryEntry{
        toTranslate("Received"), "the way it came",
        toTranslate("Each server on the way writes a line on top of the message. Only those that your own "
                    "provider wrote can be relied on; the sender can invent all others."),
        "RFC 5321, section 4.4"},
    GlossaryEntry{toTranslate("Record"), "dmarc record,spf record,v=dmarc1,v=spf1",
                  toTranslate("The text in which a domain publishes its rule in DNS, as it stands there."),
                  "RFC 7489, section 6.3; RFC 7208, section 3"},
    GlossaryEntry{
        toTranslate("Reply-To"), "",
        toTranslate("Where answers go when it isn’t the address in From. That is usual with newsletters, "
                    "and a trick of forgers: From looks right, and your answer goes to somebody else."),
        "RFC 5322, section 3.6.2"},
    GlossaryEntry{
        toTranslate("Return-Path"), "bounce address",
        toTranslate("The address to which a server returned what it couldn’t deliver, as the last server "
                    "noted it. It may be quite another one than that in From."),
        "RFC 5321, section 4.4"},
    GlossaryEntry{
        toTranslate("Selector"), "s=",
        toTranslate("The name of the key that was used: a domain may have many. The key is looked up in DNS "
                    "at selector._domainkey.domain."),
        "RFC 6376, section 3.1"},
    GlossaryEntry{
        toTranslate("Signed fields"), "h=,signed headers,not signed",
        toTranslate("The header lines that the signature covers. What isn’t among them can be changed or "
                    "added without breaking it."),
        "RFC 6376, section 5.4"},
    GlossaryEntry{
        toTranslate("Signed body bytes"), "l=,body length",
        toTranslate("The signature covers only so much of the text. Whatever stands behind that may have "
                    "been added by anybody."),
        "RFC 6376, section 8.2"},
    GlossaryEntry{
        toTranslate("Signed for"), "i=,identity,auid",
        toTranslate("For whom inside the domain the signature was made. It is up to the domain what it "
                    "writes there, so nothing follows from it about the person."),
        "RFC 6376, section 2.6"},
    GlossaryEntry{
        toTranslate("Signing domain"), "d=,sdid",
        toTranslate("The domain that signed, and so the one that vouches for the message. It is the one "
                    "thing that a valid signature proves."),
        "RFC 6376, section 2.5"},
    GlossaryEntry{
        toTranslate("SPF"), "sending server,sending server (spf),sender policy framework",
        toTranslate("A domain publishes which servers may send its mail. That is judged for the address of "
                    "the server that handed the message over, as a line in the message tells it, and for "
                    "the envelope’s domain, not for From. So it is worth less than a signature."),
        "RFC 7208"},
    GlossaryEntry{
        toTranslate("xn--"), "punycode,international domain,idn,a-label,look-alike,homograph",
        toTranslate("How a domain with letters beyond a to z is written in DNS. Some of these letters look "
                    "just like ones you know, so that two different domains can look the same; in this "
                    "form they don’t."),
        "RFC 5890; RFC 3492; Unicode Technical Standard 39"},
};

/// One of the other names.
bool isNamed(std::string_view names, std::string_view word) {
    while (!names.empty()) {
        if (takePiece(names, ',') == word) return true;
    }
    return false;
}

std::string lineOf(const DKIMResult& signature) {
    std::string fields;
    for (const std::string_view each : signature.signedHeaders) {
        if (fields.size() > 400) break;
        fields.append(fields.empty() ? "" : ":").append(each);
    }
    return inert("d=" + cutInside(signature.domain, 100) + "; s=" + cutInside(signature.selector, 60) +
                 "; a=" + cutInside(signature.algorithm, 30) +
                 "; c=" + cutInside(signature.canonicalization, 30) + "; h=" + fields);
}

}  // namespace

std::span<const GlossaryEntry> glossary() { return entries; }

const GlossaryEntry* glossaryEntry(std::string_view word) {
    const std::string wanted = asciiLowered(word);
    const auto found = std::ranges::find_if(entries, [&](const GlossaryEntry& each) {
        return equalsIgnoringCase(each.word, wanted) || isNamed(each.names, wanted);
    });
    return found == entries.end() ? nullptr : &*found;
}

const GlossaryEntry* glossaryEntry(std::string_view word, const Reader& reader) {
    if (const auto* entry = glossaryEntry(trimmed(word))) return entry;
    const std::string wanted = unicodeLowered(trimmed(word));
    const auto found = std::ranges::find_if(
        entries, [&](const GlossaryEntry& each) { return unicodeLowered(each.wordIn(reader)) == wanted; });
    return found == entries.end() ? nullptr : &*found;
}

std::vector<std::string> rawValues(const GlossaryEntry& entry, const ProofReport& report) {
    std::vector<std::string> lines;
    if (entry.word == "DKIM") {
        for (const DKIMResult& each : report.dkim) {
            if (lines.size() >= mostRawValues) break;
            lines.push_back(lineOf(each));
        }
    } else if (entry.word == "ARC") {
        for (const ARCFinding::Hop& each : report.arc.hops) {
            if (lines.size() >= mostRawValues) break;
            lines.push_back(inert("i=" + std::to_string(each.instance) + "; ") +
                            lineOf(each.messageSignature));
        }
    } else if (entry.word == "DMARC") {
        if (report.dmarc.record) lines.push_back(inert(*report.dmarc.record));
    } else if (entry.word == "SPF") {
        if (report.spf.ip) lines.push_back(inert("ip=" + report.spf.ip->ip));
        if (report.spf.domain) lines.push_back(inert("domain=" + cutInside(*report.spf.domain)));
        if (report.spf.matched) lines.push_back(inert(*report.spf.matched));
    }
    return lines;
}

}  // namespace quillmark
