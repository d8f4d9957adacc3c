#include "QuillmarkKit/Mail/Message.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";

/// Whether in that many bytes each CR has its LF and, but for the first byte, each LF its CR. Reads one byte
/// more. Written without a branch, so that the compiler makes it sixteen bytes at a time.
template <std::size_t size>
bool hasPlainLineEnds(const char* bytes) {
    unsigned char lone = 0;
    for (std::size_t i = 0; i < size; ++i)
        lone = static_cast<unsigned char>(lone | ((bytes[i] == '\r') ^ (bytes[i + 1] == '\n')));
    return lone == 0;
}

/// How many carriage returns and line feeds stand alone, not as CR LF.
std::size_t loneLineEnds(std::string_view bytes) {
    // In nearly all messages there is none, and this tells it at half the cost of a count.
    constexpr std::size_t stretch = 256;
    if (!bytes.starts_with('\n')) {
        // NOLINTNEXTLINE(bugprone-suspicious-stringview-data-usage): that many are there
        while (bytes.size() > stretch && hasPlainLineEnds<stretch>(bytes.data()))
            bytes.remove_prefix(stretch);
        if (bytes.starts_with('\n')) bytes.remove_prefix(1);  // its CR was the last byte of the stretch
    }
    std::size_t lone = 0;
    // Short blocks without a branch here, too: however short the lines are.
    constexpr std::size_t block = 64;
    for (std::size_t at = 0; at < bytes.size(); at += block) {
        const auto count = [&](std::size_t length) {
            const char* text = bytes.data() + at;
            std::uint8_t ends = 0, pairs = 0;  // at most `block` of each
            for (std::size_t i = 0; i < length; ++i) {
                ends = static_cast<std::uint8_t>(ends + ((text[i] == '\r') | (text[i] == '\n')));
                pairs = static_cast<std::uint8_t>(pairs + ((text[i] == '\r') & (text[i + 1] == '\n')));
            }
            // A pair counts where its CR stands: the LF of a pair across two blocks is made up for by the
            // next.
            lone = lone + ends - std::size_t{2} * pairs;
        };
        if (bytes.size() - at > block) {
            count(block);
        } else {
            count(bytes.size() - at - 1);
            lone += bytes.back() == '\r' || bytes.back() == '\n';
        }
    }
    return lone;
}

/// Whether every line ends with CR CR LF. Mostly the first says no.
bool hasDoubledEnds(std::string_view bytes) {
    std::size_t lines = 0;
    for (std::size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n', at + 1)) {
        if (at < 2 || bytes[at - 1] != '\r' || bytes[at - 2] != '\r') return false;
        ++lines;
    }
    return lines > 1;
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

/// Takes a byte order mark, empty lines and a line that begins with "From " off the front; gives that line.
std::string_view takeSeparator(std::string_view& text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    while (text.starts_with(lineEnd)) text.remove_prefix(2);
    if (!text.starts_with("From ") || text.find(lineEnd) == std::string_view::npos) return {};
    return takeLine(text);
}

/// What stands before the first field and is no part of it.
std::string_view withoutPreface(std::string_view text, ParseMode mode) {
    takeSeparator(text);
    if (mode == ParseMode::lenient) {
        // Text copied from a window often begins with lines of blanks.
        while (!text.empty() && (isBlank(text.front()) || text.starts_with(lineEnd))) {
            text.remove_prefix(isBlank(text.front()) ? 1 : 2);
        }
    }
    return text;
}

bool isWhite(std::string_view body) { return body.find_first_not_of(" \t\r\n") == std::string_view::npos; }

/// Four bytes of a name from `begin` on, in lower case, as a number that sorts as they do; zero behind its
/// end.
std::uint32_t sortKey(std::string_view name, std::size_t begin) {
    std::uint32_t key = 0;
    for (std::size_t i = begin; i < begin + 4; ++i) {
        const char c = i < name.size() ? asciiLowered(name[i]) : '\0';
        key = key << 8 | static_cast<unsigned char>(c);
    }
    return key;
}

}  // namespace

struct MailMessage::Content {
    ByteBuffer bytes = {};
    std::vector<HeaderField> headers = {};
    std::vector<std::uint32_t> byName = {};  // positions, sorted by lower-case name, then position
    std::optional<std::string_view> body = {};
    std::optional<EarlyEnd> earlyEnd = {};
    bool hasDoubledLineEnds = false;

    void parse(ParseMode mode);
    void sortByName();
};

void MailMessage::Content::parse(ParseMode mode) {
    const std::string_view text = withoutPreface(bytes.view(), mode);
    const auto offset = [&](std::string_view part) {
        return static_cast<std::size_t>(part.data() - text.data());
    };
    // Where each field begins, and last where one more would: a field's lines lie together up to the next.
    std::vector<std::size_t> starts;
    std::size_t end = text.size() + (text.ends_with(lineEnd) ? 0 : lineEnd.size());
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = takeLine(rest);
        if (line.empty()) {
            body = rest;
            end = offset(line);
            break;
        }
        if (isBlank(line.front())) continue;
        if (!fieldName(line).empty()) {
            starts.push_back(offset(line));
        } else if (!starts.empty()) {
            end = offset(line);
            const std::string_view before(bytes.data(), static_cast<std::size_t>(line.data() - bytes.data()));
            const auto lineEnds = static_cast<std::size_t>(std::ranges::count(before, '\n'));
            earlyEnd = EarlyEnd{lineEnds + 1, text.size() - end};
            break;
        }
    }
    headers.reserve(starts.size());
    for (std::size_t i = 0; i < starts.size(); ++i) {
        const std::size_t next = i + 1 < starts.size() ? starts[i + 1] : end;
        const std::string_view raw = text.substr(starts[i], next - lineEnd.size() - starts[i]);
        headers.push_back({raw, fieldName(raw)});
    }
    if (mode == ParseMode::lenient && body && isWhite(*body)) body.reset();
}

/// Four bytes of each name are compared at a time, together with the position in one number; names that agree
/// in them are sorted again by the next four. No byte of a name is looked at twice, so a million long names
/// that differ only in their last byte cost little more than reading them.
void MailMessage::Content::sortByName() {
    std::vector<std::uint64_t> entries(headers.size());  // the key, then the position
    for (std::uint32_t i = 0; i < entries.size(); ++i) entries[i] = i;
    struct Run {
        std::span<std::uint64_t> entries;
        std::size_t begin;  // of the bytes that come next
    };
    std::vector<Run> open = {{entries, 0}};
    while (!open.empty()) {
        const auto [run, begin] = open.back();
        open.pop_back();
        for (std::uint64_t& entry : run) {
            const std::uint64_t position = entry & 0xFFFF'FFFF;
            entry = std::uint64_t{sortKey(headers[position].name, begin)} << 32 | position;
        }
        if (!std::ranges::is_sorted(run)) std::ranges::sort(run);
        for (auto first = run.begin(); first != run.end();) {
            const std::uint64_t key = *first >> 32;
            const auto last = std::find_if(first, run.end(), [&](auto entry) { return entry >> 32 != key; });
            const bool ended = (key & 0xFF) == 0;
            if (!ended && last - first > 1) open.push_back({{first, last}, begin + 4});
            first = last;
        }
    }
    byName.reserve(entries.size());
    for (const std::uint64_t entry : entries) byName.push_back(static_cast<std::uint32_t>(entry));
}

ByteBuffer Bytes::normalizedLineEnds(ByteBuffer bytes) {
    const std::size_t lone = loneLineEnds(bytes.view());
    if (lone == 0) return bytes;
    ByteBuffer normalized(bytes.size() + lone);
    char* out = normalized.data();
    const std::string_view text = bytes.view();
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r' && text[i] != '\n') {
            *out++ = text[i];
            continue;
        }
        *out++ = '\r';
        *out++ = '\n';
        if (text.substr(i).starts_with(lineEnd)) ++i;
    }
    normalized.setSize(bytes.size() + lone);
    return normalized;
}

std::string_view HeaderField::valueBytes() const {
    const auto colon = raw.find(':');
    return colon == std::string_view::npos ? raw.substr(raw.size()) : raw.substr(colon + 1);
}

std::string HeaderField::value() const {
    // Most fields have one line, and blanks at their ends go in any case.
    const std::string_view rest = trimmed(valueBytes(), " \t\r\n");
    std::string unfolded(rest);
    if (unfolded.find('\n') != std::string::npos || unfolded.find('\r') != std::string::npos) {
        std::erase_if(unfolded, [](char c) { return c == '\r' || c == '\n'; });
    }
    if (!isUTF8(unfolded)) unfolded = decodedText(unfolded);
    const std::string_view value = trimmed(unfolded);
    return value.size() == unfolded.size() ? std::move(unfolded) : std::string(value);
}

MailMessage MailMessage::parse(ByteBuffer bytes, ParseMode mode) {
    auto content = std::make_shared<Content>();
    content->hasDoubledLineEnds = hasDoubledEnds(bytes.view());
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

std::string_view MailMessage::separatorLine() const {
    std::string_view text = m_content ? m_content->bytes.view() : std::string_view();
    const std::string_view line = takeSeparator(text);
    if (line.empty()) return line;
    while (!text.empty() && isBlank(text.front())) takeLine(text);
    // NOLINTNEXTLINE(bugprone-suspicious-stringview-data-usage): up to where the rest begins
    return {line.data(), static_cast<std::size_t>(text.data() - line.data())};
}

std::optional<MailMessage::EarlyEnd> MailMessage::earlyEnd() const {
    return m_content ? m_content->earlyEnd : std::nullopt;
}

std::string_view MailMessage::text() const {
    return m_content ? m_content->bytes.view() : std::string_view();
}

bool MailMessage::hasDoubledLineEnds() const { return m_content && m_content->hasDoubledLineEnds; }

std::span<const std::uint32_t> MailMessage::positions(std::string_view name) const {
    if (!m_content) return {};
    const auto& fields = m_content->headers;
    const auto& byName = m_content->byName;
    const auto first = std::ranges::partition_point(
        byName, [&](std::uint32_t i) { return compareIgnoringCase(fields[i].name, name) < 0; });
    const auto hasName = [&](std::uint32_t i) { return equalsIgnoringCase(fields[i].name, name); };
    if (first == byName.end() || !hasName(*first)) return {};
    return {first, std::partition_point(first, byName.end(), hasName)};
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
