#include "QuillmarkKit/Checks/ProtectedLinks.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "QuillmarkKit/Mail/TransferEncodings.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestLink = 8'192;  // longer ones are passed over

/// Every occurrence of `from` as `to`.
std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
    std::string result;
    result.reserve(text.size());
    for (auto at = text.find(from); at != text.npos; at = text.find(from)) {
        result.append(text.substr(0, at)).append(to);
        text.remove_prefix(at + from.size());
    }
    return result.append(text);
}

std::string fromURLBase64(std::string text) {
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    return decodedBase64Lines(text);
}

bool isLink(std::string_view text) {
    return startsWithIgnoringCase(text, "https://") || startsWithIgnoringCase(text, "http://");
}

/// …/__https://example.org/path?a*b__;Jw!!…: characters that the service would not carry are "*", or "**" and
/// a digit for how many; which ones they were follows the link in base64.
std::optional<std::string> fromUnderscores(std::string_view link) {
    const auto begin = link.find("/__http");
    if (begin == link.npos) return std::nullopt;
    link.remove_prefix(begin + 3);
    const auto end = link.find("__;");
    if (end == link.npos) return std::nullopt;
    std::string_view rest = link.substr(end + 3);
    const auto mark = rest.find('!');
    if (mark == rest.npos) return std::nullopt;
    const std::string characters = fromURLBase64(std::string(rest.substr(0, mark)));
    std::string_view left = characters;
    const auto take = [&](std::size_t count) {
        const std::string_view from = left;
        for (; count > 0 && !left.empty(); --count) takeScalar(left);
        return from.substr(0, from.size() - left.size());
    };
    std::string target;
    const std::string written = decodedEscapes(link.substr(0, end));
    for (std::size_t i = 0; i < written.size(); ++i) {
        if (written[i] != '*') {
            target += written[i];
        } else if (written.substr(i + 1, 1) == "*" && i + 2 < written.size()) {
            constexpr std::string_view digits =
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
            const auto digit = digits.find(written[i += 2]);
            if (digit == digits.npos) return std::nullopt;
            target += take(digit + 2);
        } else {
            target += take(1);
        }
    }
    // Two slashes may have become one on the way.
    const auto slash = target.find(":/");
    if (slash != target.npos && target.substr(slash + 2, 1) != "/") target.insert(slash + 2, "/");
    return target;
}

/// …/token/https%3A%2F%2Fexample.org%2Fpath
std::optional<std::string> fromPath(std::string_view path) {
    const auto slash = path.rfind('/');
    if (slash == path.npos || path.find("%3", slash) == path.npos) return std::nullopt;
    return decodedEscapes(path.substr(slash + 1));
}

/// ?url=https%3A%2F%2Fexample.org%2Fpath&data=…, ?u=https-3A__example.org_path&d=…,
/// ?d=example.org&u=aHR0c…&h=…
std::optional<std::string> fromQuery(std::string_view query) {
    if (query.find('&') == query.npos) return std::nullopt;  // what shows that the service wrote it
    while (!query.empty()) {
        std::string_view value = takePiece(query, '&');
        takePiece(value, '=');
        if (startsWithIgnoringCase(value, "http%3A") || startsWithIgnoringCase(value, "https%3A"))
            return decodedEscapes(value);
        if (value.starts_with("http-3A__") || value.starts_with("https-3A__")) {
            std::string target(value);
            std::ranges::replace(target, '_', '/');
            return decodedEscapes(target, '-');
        }
        if (value.starts_with("aHR0c")) {
            std::string target = fromURLBase64(decodedEscapes(value));
            if (isLink(target)) return target;
        }
    }
    return std::nullopt;
}

std::optional<std::string> target(std::string_view link) {
    auto target = fromUnderscores(link);
    if (!target) {
        const auto query = std::min(link.find('?'), link.size());
        target = fromQuery(link.substr(std::min(query + 1, link.size())));
        if (!target) target = fromPath(link.substr(0, query));
    }
    // A line end or a quote in it would change what stands around it.
    const bool isUsable = target && isLink(*target) && target->find_first_of("\r\n\"<>") == target->npos;
    return isUsable ? target : std::nullopt;
}

/// Takes ` name="value"` off the front.
std::optional<std::string_view> takeAttribute(std::string_view& text, std::string_view name) {
    const std::string_view rest = text.substr(std::min(name.size(), text.size()));
    if (!startsWithIgnoringCase(text, name) || !rest.starts_with("=\"")) return std::nullopt;
    const auto end = rest.substr(0, longestLink).find('"', 2);
    if (end == rest.npos) return std::nullopt;
    text = rest.substr(end + 1);
    return rest.substr(2, end - 2);
}

}  // namespace

std::vector<ProtectedLink> protectedLinks(std::string_view text) {
    constexpr std::string_view escapedAmpersand = "&amp;";
    std::vector<ProtectedLink> links;
    for (std::size_t at = text.find("://"); at != text.npos; at = text.find("://", at)) {
        const std::size_t scheme = at >= 5 && equalsIgnoringCase(text.substr(at - 5, 5), "https")  ? 5
                                   : at >= 4 && equalsIgnoringCase(text.substr(at - 4, 4), "http") ? 4
                                                                                                   : 0;
        const std::size_t begin = at - scheme;
        at = std::min(text.find_first_of(" \t\r\n\"'<>", at), text.size());
        if (scheme == 0 || at - begin > longestLink) continue;
        std::string_view written = text.substr(begin, at - begin);
        // What ends a sentence is no part of it.
        written = written.substr(0, written.find_last_not_of(".,;:!?)]}*") + 1);
        ProtectedLink link{.begin = begin, .end = begin + written.size()};
        auto sent = target(replaced(written, escapedAmpersand, "&"));
        if (!sent) continue;
        link.target = std::move(*sent);
        std::string_view behind = text.substr(link.end);
        if (behind.starts_with('"')) {
            // What some services write beside it; the quote that is left is the one at its end.
            behind.remove_prefix(1);
            if (const auto original = takeAttribute(behind, " originalsrc")) {
                link.target = replaced(*original, escapedAmpersand, "&");
                takeAttribute(behind, " shash");
                link.end = text.size() - behind.size() - 1;
                at = link.end;
            }
        }
        links.push_back(std::move(link));
    }
    return links;
}

std::string withoutProtectedLinks(std::string_view text, const std::vector<ProtectedLink>& links,
                                  bool isEscaped) {
    std::string result;
    result.reserve(text.size());
    std::size_t done = 0;
    for (const ProtectedLink& link : links) {
        result.append(text.substr(done, link.begin - done));
        result.append(isEscaped ? replaced(link.target, "&", "&amp;") : link.target);
        done = link.end;
    }
    return result.append(text.substr(done));
}

}  // namespace quillmark
