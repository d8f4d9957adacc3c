#include "QuillmarkKit/Message.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";

/// What a scan of line ends found.
struct LineEnds {
    std::size_t pairs = 0;  ///< CR LF
    std::size_t lone = 0;   ///< a CR or an LF on its own
};

LineEnds counted(std::string_view bytes) {
    LineEnds ends;
    // Nearly every line feed of a message closes a pair, so one search finds both; carriage returns that
    // close none are found by their number.
    std::size_t loneFeeds = 0;
    for (std::size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n', at + 1)) {
        if (at > 0 && bytes[at - 1] == '\r') {
            ++ends.pairs;
        } else {
            ++loneFeeds;
        }
    }
    const auto returns = static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\r'));
    ends.lone = loneFeeds + (returns - ends.pairs);
    return ends;
}

/// Takes the line at the front of `rest`, without its CR LF.
std::string_view takeLine(std::string_view& rest) {
    const auto end = std::min(rest.find('\n'), rest.size());  // an LF stands behind a CR only
    const std::string_view line = rest.substr(0, end == rest.size() ? end : end - 1);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return line;
}

/// The name of the field that a line begins, or empty when it begins none (RFC 5322, section 2.2).
std::string_view fieldName(std::string_view line) {
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return {};
    std::string_view name = line.substr(0, colon);
    while (!name.empty() && isBlank(name.back())) name.remove_suffix(1);
    return std::ranges::all_of(name, [](char c) { return c >= 33 && c <= 126; }) ? name : std::string_view();
}

/// What stands before the first field and is no part of it.
std::string_view withoutPreface(std::string_view text, ParseMode mode) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    while (text.starts_with(lineEnd)) text.remove_prefix(2);
    if (text.starts_with("From ")) {
        if (const auto end = text.find(lineEnd); end != std::string_view::npos) text.remove_prefix(end + 2);
    }
    if (mode == ParseMode::lenient) {
        // Text copied from a window often begins with lines of blanks.
        while (!text.empty() && (isBlank(text.front()) || text.starts_with(lineEnd))) {
            text.remove_prefix(isBlank(text.front()) ? 1 : 2);
        }
    }
    return text;
}

bool isWhite(std::string_view body) { return body.find_first_not_of(" \t\r\n") == std::string_view::npos; }

/// The first eight bytes of a name in lower case as a number that sorts as they do.
std::uint64_t sortKey(std::string_view name) {
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        const char c = i < name.size() ? asciiLowered(name[i]) : '\0';
        key = key << 8 | static_cast<unsigned char>(c);
    }
    return key;
}

}  // namespace

struct MailMessage::Content {
    ByteBuffer bytes = {};
    std::vector<HeaderField> headers = {};
    std::vector<std::uint32_t> byName =
        {};  // positions in `headers`, sorted by lower-case name, then position
    std::optional<std::string_view> body = {};

    void parse(ParseMode mode);
    void sortByName();
};

void MailMessage::Content::parse(ParseMode mode) {
    std::string_view rest = withoutPreface(bytes.view(), mode);
    const char* begin = nullptr;  // of the current field; its lines lie together, up to `end`
    const char* end = nullptr;
    std::string_view name;
    const auto close = [&] {
        if (begin) headers.push_back({std::string_view(begin, static_cast<std::size_t>(end - begin)), name});
        begin = nullptr;
    };
    while (!rest.empty()) {
        const std::string_view line = takeLine(rest);
        if (line.empty()) {
            body = rest;
            break;
        }
        if (isBlank(line.front())) {
            if (begin) end = line.data() + line.size();
            continue;
        }
        const std::string_view started = fieldName(line);
        if (started.empty() && (begin || !headers.empty())) break;
        if (started.empty()) continue;
        close();
        begin = line.data();
        end = begin + line.size();
        name = started;
    }
    close();
    if (mode == ParseMode::lenient && body && isWhite(*body)) body.reset();
}

void MailMessage::Content::sortByName() {
    struct Entry {
        std::uint64_t key;
        std::uint32_t position;
    };
    std::vector<Entry> entries;
    entries.reserve(headers.size());
    for (std::uint32_t i = 0; i < headers.size(); ++i) entries.push_back({sortKey(headers[i].name), i});
    std::ranges::sort(entries, [&](const Entry& a, const Entry& b) {
        if (a.key != b.key) return a.key < b.key;
        // A key of eight bytes, the last of them not zero, does not tell the rest of the name.
        if ((a.key & 0xFF) != 0) {
            const int order = compareIgnoringCase(headers[a.position].name, headers[b.position].name);
            if (order != 0) return order < 0;
        }
        return a.position < b.position;
    });
    byName.reserve(entries.size());
    for (const Entry& entry : entries) byName.push_back(entry.position);
}

ByteBuffer Bytes::normalizedLineEnds(ByteBuffer bytes) {
    const LineEnds ends = counted(bytes.view());
    if (ends.lone == 0) return bytes;
    ByteBuffer normalized(bytes.size() + ends.lone);
    char* out = normalized.data();
    std::string_view rest = bytes.view();
    // Where the next of each stands; most text has only one of the two, which is then looked for only once.
    const auto ahead = [&](char c) { return std::min(rest.find(c), rest.size()); };
    std::size_t nextReturn = ahead('\r'), nextFeed = ahead('\n');
    while (!rest.empty()) {
        const std::size_t plain = std::min(nextReturn, nextFeed);
        std::memcpy(out, rest.data(), plain);
        out += plain;
        if (plain == rest.size()) break;
        *out++ = '\r';
        *out++ = '\n';
        const std::size_t taken = plain + (rest.substr(plain).starts_with(lineEnd) ? 2 : 1);
        rest.remove_prefix(taken);
        nextReturn = nextReturn >= taken ? nextReturn - taken : ahead('\r');
        nextFeed = nextFeed >= taken ? nextFeed - taken : ahead('\n');
    }
    normalized.setSize(static_cast<std::size_t>(out - normalized.data()));
    return normalized;
}

std::string_view HeaderField::valueBytes() const {
    const auto colon = raw.find(':');
    return colon == std::string_view::npos ? raw.substr(raw.size()) : raw.substr(colon + 1);
}

std::string HeaderField::value() const {
    std::string_view rest = valueBytes();
    std::string unfolded;
    unfolded.reserve(rest.size());
    while (!rest.empty()) {
        const auto plain = std::min(rest.find_first_of(lineEnd), rest.size());
        unfolded += rest.substr(0, plain);
        rest.remove_prefix(std::min(plain + 1, rest.size()));
    }
    if (!isUTF8(unfolded)) unfolded = decodedText(unfolded);
    const std::string_view value = trimmed(unfolded);
    return value.size() == unfolded.size() ? std::move(unfolded) : std::string(value);
}

MailMessage MailMessage::parse(ByteBuffer bytes, ParseMode mode) {
    auto content = std::make_shared<Content>();
    content->bytes = Bytes::normalizedLineEnds(std::move(bytes));
    content->parse(mode);
    content->sortByName();
    MailMessage message;
    message.m_content = std::move(content);
    return message;
}

const std::vector<HeaderField>& MailMessage::headers() const {
    static const std::vector<HeaderField> none;
    return m_content ? m_content->headers : none;
}

std::optional<std::string_view> MailMessage::body() const {
    return m_content ? m_content->body : std::nullopt;
}

std::span<const std::uint32_t> MailMessage::positions(std::string_view name) const {
    if (!m_content) return {};
    const auto& fields = m_content->headers;
    const auto& byName = m_content->byName;
    const auto first = std::ranges::partition_point(
        byName, [&](std::uint32_t i) { return compareIgnoringCase(fields[i].name, name) < 0; });
    const auto last = std::partition_point(
        first, byName.end(), [&](std::uint32_t i) { return compareIgnoringCase(fields[i].name, name) == 0; });
    return {first, last};
}

const HeaderField* MailMessage::first(std::string_view name) const {
    const auto found = positions(name);
    return found.empty() ? nullptr : &m_content->headers[found.front()];
}

std::string MailMessage::bytes() const {
    std::string bytes;
    for (const HeaderField& field : headers()) {
        bytes += field.raw;
        bytes += lineEnd;
    }
    if (const auto text = body()) {
        bytes += lineEnd;
        bytes += *text;
    }
    return bytes;
}

}  // namespace quillmark
