// Which of a few messages was signed, in what form, and what was then done to it, line by line. What is found
// holds under a plain reading of the rules: the digest of the body and the signature of the header are made
// anew, from the reference of the canonical forms. It names a difference, and is the same the second time.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/Checks/Undo.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Mail/TransferEncodings.h"
#include "QuillmarkKit/Support/Base64.h"
#include "fuzz/InputResolver.h"
#include "tests/ReferenceCanonicalization.h"

namespace {

using namespace quillmark;
using fuzz::require;

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");

constexpr std::string_view head =
    "From: Ann <ann@example.org>\r\nTo: team@lists.example\r\nSubject: Re: Minutes\r\n"
    "Date: Fri, 20 Nov 2026 10:00:00 +0000\r\nMessage-ID: <1@example.org>\r\nMIME-Version: 1.0\r\n";
constexpr std::string_view bodies[] = {
    "Content-Type: text/plain\r\n\r\nHello,\r\n\r\nFrom here on.\r\n.\r\nSee https://example.org/a?b=1\r\n-- "
    "\r\nAnn\r\n",
    "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
    "Gr=C3=BC=C3=9Fe an alle, die diese sehr lange Zeile lesen, und auch an alle and=\r\nern.\r\n",
    "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: "
    "base64\r\n\r\nR3LDvMOfZSBhbiBhbGxlLg0KDQpBbm4NCg==\r\n",
    "Content-Type: multipart/alternative; boundary=\"b\"\r\n\r\n--b\r\nContent-Type: "
    "text/plain\r\n\r\nHello\r\nyou\r\n"
    "--b\r\nContent-Type: text/html\r\n\r\n<html><body>\r\n<p>Hello <a "
    "href=\"http://example.org/?a&amp;b\">x</a></p>\r\n"
    "</body></html>\r\n--b--\r\n",
};

const SigningKey& key(bool isRSA) {
    static const std::array keys = {SigningKey::newEd25519().value(), SigningKey::newRSA(1024).value()};
    return keys[isRSA];
}

/// By the first byte: which message, which forms, which key, which fields.
std::string signedMessage(std::uint8_t choice) {
    static std::map<std::uint8_t, std::string> made;
    std::string& message = made[choice];
    if (!message.empty()) return message;
    message = std::string(head) + std::string(bodies[choice % std::size(bodies)]);
    Signer::Options options;
    options.domain = "example.org";
    options.selector = "key";
    options.headers = {
        "from", "to", "subject", "date", "message-id", "content-type", "content-transfer-encoding"};
    if (choice & 4)
        options.headers.insert(options.headers.end(), {"from", "subject", "reply-to", "list-id", "cc"});
    const auto form = [](bool isSimple) {
        return isSimple ? Canonicalization::simple : Canonicalization::relaxed;
    };
    options.canonicalization = {form(choice & 8), form(choice & 16)};
    message =
        Signer::dkimSignature(MailMessage::parse(message), options, key(!(choice & 32))) + "\r\n" + message;
    return message;
}

/// Where the body begins, or the end.
std::size_t bodyOf(const std::string& text) {
    const auto end = text.find("\r\n\r\n");
    return end == std::string::npos ? text.size() : end + 4;
}

std::size_t lineAt(const std::string& text, std::size_t number) {
    std::size_t at = text.find("\r\n") + 2;  // the signature stays
    for (; number > 0 && at < text.size(); --number) {
        const auto end = text.find('\n', at);
        if (end == std::string::npos) break;
        at = end + 1;
    }
    return std::min(at, text.size());
}

/// One line of what was done: a letter, and what it needs.
void change(std::string& text, std::string_view line) {
    const char what = line.empty() ? ' ' : line.front();
    line.remove_prefix(std::min<std::size_t>(line.size(), 1));
    const auto number = [&] {
        return static_cast<std::size_t>(decimal(takePiece(line, ' ').substr(0, 4)).value_or(0));
    };
    const std::string end = "\r\n";
    if (what == 's') {  // a tag in front of the subject
        if (const auto at = text.find("Subject: "); at != std::string::npos) text.insert(at + 9, line);
    } else if (what == 'f') {  // a field on top
        text.insert(0, std::string(line) + end);
    } else if (what == 't') {  // a line at the end
        text += std::string(line) + end;
    } else if (what == 'b') {  // a line in front of the body
        text.insert(bodyOf(text), std::string(line) + end);
    } else if (what == 'i') {  // a line before that one
        const auto at = lineAt(text, number());
        text.insert(at, std::string(line) + end);
    } else if (what == 'd') {  // without that line
        const auto at = lineAt(text, number());
        text.erase(at, text.find('\n', at) == std::string::npos ? text.npos : text.find('\n', at) + 1 - at);
    } else if (what == 'x') {  // another byte
        const auto at = number();
        if (at < text.size() && !line.empty()) text[at] = line.front();
    } else if (what == 'r') {  // one word for another
        const std::string from(takePiece(line, '|'));
        if (const auto at = text.find(from); !from.empty() && at != std::string::npos)
            text.replace(at, from.size(), line);
    } else if (what == 'q' || what == '6' || what == '8') {  // in another transfer encoding
        const std::string body = text.substr(bodyOf(text));
        text.resize(bodyOf(text));
        text += what == 'q' ? encodedQuotedPrintable(
                                  body, quotedPrintableStyles[number() % quotedPrintableStyles.size()])
                : what == '6' ? encodedBase64Lines(body, 76)
                              : decodedQuotedPrintable(body);
    } else if (what == 'w') {  // the message in a part
        const std::string body = text.substr(bodyOf(text));
        text.resize(bodyOf(text));
        text += "--w\r\nContent-Type: text/plain\r\n\r\n" + body + "\r\n--w\r\n\r\n" + std::string(line) +
                "\r\n--w--\r\n";
        change(text, "rContent-Type: text/plain|Content-Type: multipart/mixed; boundary=w");
    }
}

/// RFC 6376, section 6.1, step by step.
void requireSignature(const MailMessage& message, const BrokenSignature& signature) {
    const auto field = std::ranges::find(message.headers(), signature.field.raw, &HeaderField::raw);
    require(field != message.headers().end() && message.body());
    const TagList tags = TagList::parse(field->valueBytes());
    const auto forms = CanonicalizationPair::parse(tags.value("c"));
    const std::string body = reference::body(*message.body(), forms->body);
    require(encodedBase64(hash(HashAlgorithm::sha256, body)) == tags.compactValue("bh"));
    const auto written = [&](std::string_view raw) {
        return forms->header == Canonicalization::relaxed ? reference::header(raw) : std::string(raw);
    };
    std::string data;
    std::map<std::string, std::size_t> taken;
    const std::string names = tags.compactValue("h").value();
    for (std::string_view rest = names; !rest.empty();) {
        const std::string name = asciiLowered(takePiece(rest, ':'));
        const auto positions = message.positions(name);
        if (taken[name] < positions.size())
            data += written(message.headers()[positions[positions.size() - ++taken[name]]].raw) + "\r\n";
    }
    std::string emptied(field->raw);
    emptied.resize(emptied.rfind("b=") + 2);  // it is written last
    data += written(emptied);
    require(std::holds_alternative<Verified>(
        verifySignature(decodedBase64(tags.compactValue("b").value()).value(),
                        hash(HashAlgorithm::sha256, data), signature.algorithm, signature.key)));
}

bool isSame(const UndoneSignature& a, const UndoneSignature& b) {
    return a.signature == b.signature && a.message.bytes() == b.message.bytes() && a.fields == b.fields &&
           a.texts == b.texts && a.forms == b.forms && a.links == b.links && a.addedBytes == b.addedBytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::string text = signedMessage(data[0] % 64);
    std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    constexpr int mostChanges = 12;
    for (int i = 0; i < mostChanges && !rest.empty(); ++i) change(text, takePiece(rest, '\n'));

    const MailMessage message = MailMessage::parse(text);
    if (!message.body()) return 0;
    const bool isRSA = !(data[0] & 32);
    StaticResolver resolver(
        {{"key._domainkey.example.org|TXT", DNSAnswer::records({Signer::keyRecord(key(isRSA))})}});
    BodyHashes hashes(*message.body());
    std::vector<BrokenSignature> broken;
    for (const auto position : message.positions("DKIM-Signature")) {
        const auto check =
            SignatureChecker{message, &hashes, resolver, now}.examine(message.headers()[position]);
        if (check.broken) broken.push_back(*check.broken);
    }
    const UndoFindings findings = undo(message, broken, now);
    require(findings.unconfirmed == 0);
    for (const UndoneSignature& undone : findings.undone) {
        requireSignature(undone.message, broken.at(undone.signature));
        require(!undone.fields.empty() || !undone.texts.empty() || !undone.forms.empty() || undone.links > 0);
    }
    if (size % 8 == 0) {
        const UndoFindings again = undo(message, broken, now);
        require(std::ranges::equal(findings.undone, again.undone, isSame));
    }
    return 0;
}
