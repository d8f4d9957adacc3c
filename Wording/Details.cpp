#include "Wording/Details.h"

#include <algorithm>
#include <iterator>
#include <system_error>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

/// The details that the kit writes, the more special before the more general. "%1" and "%2" stand in order.
constexpr std::string_view patterns[] = {
    toTranslate("no %1= tag"),
    toTranslate("tag %1= appears twice"),
    toTranslate("empty d= or s="),
    toTranslate("From isn't signed (h=)"),
    toTranslate("b= or bh= is not base64"),
    toTranslate("i= is outside d="),
    toTranslate("more than 16 MB of header fields are signed"),
    toTranslate("l=%1 is longer than the body"),
    toTranslate("v=%1"),
    toTranslate("c=%1"),
    toTranslate("l=%1"),
    toTranslate("the key requires i= to be exactly d= (t=s)"),
    toTranslate("%1: no key"),
    toTranslate("p= is not base64"),
    toTranslate("the key is for %1, the signature uses %2"),
    toTranslate("the key does not allow %1"),
    toTranslate("the key isn’t for email (s=%1)"),
    toTranslate("the key's bytes are not a key"),
    toTranslate("ARC sets are missing or out of order"),
    toTranslate("ARC-Seal i=%1 has cv=%2"),
    toTranslate("ARC-Seal i=%1 didn't verify"),
    toTranslate("ARC-Message-Signature i=%1 didn't verify"),
    toTranslate("redirect=%1 has no SPF record"),
    toTranslate("include:%1 has no SPF record"),
    toTranslate("%1 publishes no SPF record"),
    toTranslate("%1 publishes %2 SPF records"),
    toTranslate("nothing in %1's record matched"),
    toTranslate("include loop"),
    toTranslate("more than 10 DNS lookups"),
    toTranslate("more than 2 empty lookups"),
    toTranslate("more than 10 MX hosts"),
    toTranslate("unknown mechanism %1"),
    toTranslate("bad redirect"),
    toTranslate("bad %1"),
    toTranslate("no RDAP server for .%1 in the IANA list"),
    toTranslate("the registry answered HTTP %1"),
    toTranslate("the IANA RDAP list couldn't be read"),
    toTranslate("no resolver answered"),
    toTranslate("not in the recorded answers"),
    toTranslate("the check took too long"),
    toTranslate("timed out"),
    toTranslate("no connection"),
    toTranslate("name not found"),
    toTranslate("proxy not found"),
    toTranslate("proxy refused"),
    toTranslate("certificate not trusted"),
    toTranslate("connection lost"),
    toTranslate("answer too large"),
    toTranslate("transfer failed"),
    toTranslate("stopped"),
    toTranslate("the process that asks for this ended"),
    toTranslate("this message asks for too many names"),
    toTranslate("it is no ordinary file"),
    toTranslate("it is a link, and what it leads to isn't there"),
    toTranslate("it is read-only"),
    toTranslate("another program holds it"),
};

/// What the system calls the errors that people meet.
constexpr std::string_view systemErrors[] = {
    toTranslate("No such file or directory"), toTranslate("Permission denied"),
    toTranslate("Operation not permitted"),   toTranslate("Is a directory"),
    toTranslate("Not a directory"),           toTranslate("File exists"),
    toTranslate("No space left on device"),   toTranslate("Disk quota exceeded"),
    toTranslate("Read-only file system"),     toTranslate("File too large"),
    toTranslate("File name too long"),        toTranslate("Too many levels of symbolic links"),
    toTranslate("Too many open files"),       toTranslate("Input/output error"),
    toTranslate("Cannot allocate memory"),    toTranslate("Resource temporarily unavailable"),
};

std::optional<std::string> translated(std::string_view detail, const Reader& reader) {
    if (detail == "not in the test registry")
        return reader.translate("the file of registration dates doesn’t name this domain");
    for (const std::string_view pattern : patterns) {
        if (const auto found = captures(detail, pattern))
            return reader.translate(pattern, {quotedWord((*found)[0]), quotedWord((*found)[1])});
    }
    return std::nullopt;
}

/// What one service said.
std::string serviceText(std::string_view text, const Reader& reader) {
    const std::size_t colon = text.find(": ");
    if (colon == std::string_view::npos) return quoted(text);
    const auto reason = translated(text.substr(colon + 2), reader);
    return reason ? reader.translate("%1: %2", {quoted(text.substr(0, colon)), *reason}) : quoted(text);
}

}  // namespace

std::optional<Captures> captures(std::string_view text, std::string_view pattern) {
    Captures found = {};
    std::size_t count = 0;
    while (!pattern.empty()) {
        const std::size_t mark = pattern.find('%');
        const std::string_view literal = pattern.substr(0, mark);
        if (!text.starts_with(literal)) return std::nullopt;
        text.remove_prefix(literal.size());
        if (mark == std::string_view::npos) return text.empty() ? std::optional(found) : std::nullopt;
        pattern.remove_prefix(mark + 2);
        const std::string_view next = pattern.substr(0, pattern.find('%'));
        const std::size_t end = next.empty() ? text.size() : text.find(next);
        if (end == std::string_view::npos || count == found.size()) return std::nullopt;
        found[count++] = text.substr(0, end);
        text.remove_prefix(end);
    }
    return text.empty() ? std::optional(found) : std::nullopt;
}

std::string systemErrorText(std::string_view words, const Reader& reader) {
    const bool isKnown = std::ranges::find(systemErrors, words) != std::end(systemErrors);
    return isKnown ? reader.translate(words) : std::string(words);
}

std::string systemErrorText(int error, const Reader& reader) {
    return systemErrorText(std::generic_category().message(error), reader);
}

std::string detailText(std::string_view detail, const Reader& reader) {
    constexpr std::size_t longest = 1000;  // beyond that nothing is of ours
    if (detail.size() > longest) return quotedWord(detail);
    if (auto text = translated(detail, reader)) return *text;
    // What each of several services said: "dns.example: timed out; other.example: no connection".
    std::string text;
    for (bool isFirst = true; !detail.empty(); isFirst = false) {
        const std::string_view piece = detail.substr(0, detail.find("; "));
        detail.remove_prefix(std::min(detail.size(), piece.size() + 2));
        text += (isFirst ? "" : reader.translate("; ")) + serviceText(piece, reader);
    }
    return text;
}

}  // namespace quillmark
