// Changes an input whose first part is a message as a person would: its fields, their tags, its parts; and
// signs or seals it anew, so that what stands behind a signature that verifies is reached. Linked to the
// targets that read messages; every third change is one of bytes alone, as everywhere.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/FixedKey.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using namespace quillmark;
using Random = std::minstd_rand;
using Pieces = std::vector<std::string>;

constexpr std::string_view newFields[] = {
    "From: a@signer.example\r\n",
    "From: =?utf-8?Q?a?= <b@signer.example>, c@d.example\r\n",
    "Subject: x\r\n",
    "Reply-To: a@other.example\r\n",
    "To: b@other.example\r\n",
    "Date: Fri, 20 Nov 2026 10:00:00 +0000\r\n",
    "Received: from a.example (a.example [192.0.2.1]) by b.example; Fri, 20 Nov 2026 10:00:00 +0000\r\n",
    "Return-Path: <a@signer.example>\r\n",
    "Authentication-Results: b.example; dkim=pass header.d=signer.example; spf=fail\r\n",
    "List-Unsubscribe: <https://signer.example/>\r\n",
    "MIME-Version: 1.0\r\n",
    "Content-Type: multipart/mixed; boundary=b\r\n",
    "Content-Type: text/html; charset=utf-8\r\n",
    "Content-Type: message/rfc822\r\n",
    "Content-Transfer-Encoding: base64\r\n",
    "Content-Transfer-Encoding: quoted-printable\r\n",
};

/// A few bytes more or fewer.
std::string withOtherBytes(std::string text) {
    const std::size_t size = text.size();
    text.resize(size + 64);
    text.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(text.data()), size, text.size()));
    return text;
}

/// One of the pieces is dropped, doubled, moved or changed.
template <typename Change>
void changeOne(Pieces& pieces, Random& random, Change change) {
    if (pieces.empty()) return;
    const auto place = static_cast<std::ptrdiff_t>(random() % pieces.size());
    const auto other = static_cast<std::ptrdiff_t>(random() % pieces.size());
    std::string& piece = pieces[static_cast<std::size_t>(place)];
    switch (random() % 6) {
        case 0:
            pieces.erase(pieces.begin() + place);
            break;
        case 1:
            pieces.insert(pieces.begin() + other, std::string(piece));
            break;
        case 2:
            std::swap(piece, pieces[static_cast<std::size_t>(other)]);
            break;
        default:
            piece = change(piece);
    }
}

std::string joined(const Pieces& pieces, std::string_view between) {
    std::string text;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0) text += between;
        text += pieces[i];
    }
    return text;
}

Pieces split(std::string_view text, std::string_view mark) {
    Pieces pieces;
    for (;;) {
        const auto end = text.find(mark);
        pieces.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + mark.size());
    }
}

std::string withOtherTags(const std::string& field, Random& random) {
    Pieces tags = split(field, ";");
    changeOne(tags, random, withOtherBytes);
    return joined(tags, ";");
}

struct Parts {
    Pieces fields = {};     ///< with their line ends
    std::string body = {};  ///< with the empty line before it
};

Parts partsOf(std::string_view message) {
    Parts parts;
    while (!message.empty() && !message.starts_with("\r\n") && !message.starts_with('\n')) {
        std::size_t end = 0;
        do {
            end = std::min(message.find('\n', end), message.size() - 1) + 1;
        } while (end < message.size() && (message[end] == ' ' || message[end] == '\t'));
        parts.fields.emplace_back(message.substr(0, end));
        message.remove_prefix(end);
    }
    parts.body = message;
    return parts;
}

void changeBody(Parts& parts, Random& random) {
    const std::string head = joined(parts.fields, "");
    constexpr std::string_view name = "boundary=";
    const auto at = head.find(name);
    std::string_view boundary;
    if (at != std::string::npos) {
        boundary = std::string_view(head).substr(at + name.size());
        if (boundary.starts_with('"')) boundary.remove_prefix(1);
        boundary = boundary.substr(0, boundary.find_first_of("\"; \r\n"));
    }
    const std::string mark = boundary.empty() ? "\n" : "--" + std::string(boundary);
    Pieces pieces = split(parts.body, mark);
    changeOne(pieces, random, withOtherBytes);
    parts.body = joined(pieces, mark);
}

std::string changed(std::string_view message, Random& random) {
    Parts parts = partsOf(message);
    switch (random() % 5) {
        case 0: {
            const auto place = random() % (parts.fields.size() + 1);
            parts.fields.insert(parts.fields.begin() + static_cast<std::ptrdiff_t>(place),
                                std::string(newFields[random() % std::size(newFields)]));
            break;
        }
        case 1:
            changeBody(parts, random);
            break;
        case 2:
            changeOne(parts.fields, random, withOtherBytes);
            break;
        default:
            changeOne(parts.fields, random,
                      [&](const std::string& field) { return withOtherTags(field, random); });
    }
    return joined(parts.fields, "") + parts.body;
}

std::string signedAnew(const std::string& text, Random& random) {
    static const SigningKey key = SigningKey::fromPEM(fuzz::fixedKeyPEM).value();
    const MailMessage message = MailMessage::parse(text);
    try {
        if (random() % 4 == 0) {
            Signer::ARCOptions options;
            options.domain = fuzz::fixedKeyDomain;
            options.selector = fuzz::fixedKeySelector;
            options.results = "b.example; dkim=pass header.d=signer.example";
            const Signer::ARCFields set = Signer::arcSet(message, options, key);
            return set.seal + "\r\n" + set.messageSignature + "\r\n" + set.results + "\r\n" + text;
        }
        Signer::Options options;
        options.domain = fuzz::fixedKeyDomain;
        options.selector = fuzz::fixedKeySelector;
        options.headers = {"from"};
        for (const char* name : {"from", "to", "subject", "subject", "date", "reply-to", "content-type"})
            if (random() % 2 == 0) options.headers.emplace_back(name);
        const auto form = [&] {
            return random() % 2 == 0 ? Canonicalization::simple : Canonicalization::relaxed;
        };
        options.canonicalization = {form(), form()};
        if (random() % 8 == 0) options.bodyLength = static_cast<std::int64_t>(random() % 64);
        return Signer::dkimSignature(message, options, key) + "\r\n" + text;
    } catch (const SigningError&) {
        return text;
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    Random random(seed);
    if (size <= QUILLMARK_MODE_BYTES || random() % 3 == 0) return LLVMFuzzerMutate(data, size, maxSize);
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\0', QUILLMARK_MODE_BYTES), size);
    std::string message = input.substr(QUILLMARK_MODE_BYTES, end - QUILLMARK_MODE_BYTES);
    for (auto times = 1 + random() % 3; times > 0; --times) message = changed(message, random);
    if (random() % 4 == 0) message = signedAnew(message, random);
    const std::string made = input.substr(0, QUILLMARK_MODE_BYTES) + message + input.substr(end);
    if (made.empty() || made.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, made.data(), made.size());
    return made.size();
}
