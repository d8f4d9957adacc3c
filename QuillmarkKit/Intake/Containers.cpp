#include "QuillmarkKit/Intake/Containers.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view separatorBegin = "From ";
constexpr std::size_t longestSeparator = 1000;  // bytes; RFC 5321 allows 254 in an address
constexpr std::size_t longestFieldName = 1000;
constexpr std::size_t lookAhead = longestSeparator + longestFieldName;
constexpr std::size_t longestEmptyLine = 4;  // and the line end before it, where a body has none
constexpr std::size_t longestCount = 20;     // of the line with the count: digits and the blanks behind them
constexpr std::size_t mostSignatures = 10;
constexpr std::size_t asciiUnits = 16;  // that UTF-16 without a mark begins with
constexpr std::string_view mmdfLine = "\1\1\1\1";
constexpr std::size_t tarBlock = 512;
constexpr std::size_t storeSizeAt = 13, storeSizeDigits = 16;  // of a stored message, in its header
constexpr std::size_t longestStoreHeader = 1000;               // and line before it
constexpr std::size_t mostMixedReadings = 256;
constexpr std::size_t mostMixedBytes = 200'000'000;  // to be hashed for them

/// The line at the front, without its line end.
std::string_view firstLine(std::string_view text) {
    std::string_view line = text.substr(0, text.find('\n'));
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

bool isMonth(std::string_view word) {
    constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return std::ranges::any_of(months, [&](const char* month) { return equalsIgnoringCase(word, month); });
}

bool isYear(std::string_view word) {
    return word.size() == 4 && decimal(word) && (word.starts_with("19") || word.starts_with("20"));
}

/// 10:12 or 10:12:00.
bool isTime(std::string_view word) {
    const auto colon = word.find(':');
    return (colon == 1 || colon == 2) && decimal(word.substr(0, colon)) &&
           decimal(word.substr(colon + 1, 2)) &&
           (word.size() == colon + 3 || (word.size() == colon + 6 && word[colon + 3] == ':'));
}

/// Whether the line tells a month, a year and a time, as a separator does in whatever order.
bool hasDate(std::string_view line) {
    bool month = false, year = false, time = false;
    while (!line.empty()) {
        const std::string_view word = takeWord(line, " \t");
        month |= isMonth(word);
        year |= isYear(word);
        time |= isTime(word);
    }
    return month && year && time;
}

bool beginsField(std::string_view text) {
    const std::string_view begin = text.substr(0, longestFieldName);
    const auto end = std::ranges::find_if(begin, [](char c) { return c < 33 || c > 126 || c == ':'; });
    std::string_view rest = begin.substr(static_cast<std::size_t>(end - begin.begin()));
    while (!rest.empty() && isBlank(rest.front())) rest.remove_prefix(1);
    return end != begin.begin() && rest.starts_with(':');
}

/// Whether an empty line ends `text`, or nothing stands in it.
bool endsWithEmptyLine(std::string_view text) {
    for (const std::string_view end : {"\n", "\r\n"}) {
        if (text.empty() || text == end) return true;
        if (text.ends_with(end) && text.substr(0, text.size() - end.size()).ends_with('\n')) return true;
    }
    return false;
}

/// Whether a line is the field From, with blanks before its colon (RFC 5322, section 4.5).
bool isFromField(std::string_view line) {
    return line.starts_with(separatorBegin) &&
           trimmedBlanks(line.substr(separatorBegin.size())).starts_with(':');
}

/// The length of the separator at the front of `text`, its line end included, which may be missing where the
/// file ends; 0 when there is none.
std::size_t separatorLength(std::string_view text, bool isBehindEmptyLine) {
    const std::string_view line = firstLine(text.substr(0, longestSeparator));
    if (isFromField(line)) return 0;
    const auto end = text.substr(0, longestSeparator).find('\n');
    if (end == std::string_view::npos) {
        const bool isLast = text.size() <= longestSeparator && isBehindEmptyLine && hasDate(text);
        return isLast ? text.size() : 0;
    }
    const bool isDated = hasDate(line), isBeforeField = beginsField(text.substr(end + 1));
    const bool isDatelessSeparator =
        isBehindEmptyLine && isBeforeField && line.find('@') != std::string_view::npos;
    return (isDated && (isBehindEmptyLine || isBeforeField)) || isDatelessSeparator ? end + 1 : 0;
}

/// The length of what parts two messages of an MMDF mailbox, at the front of `text`; 0 when that isn't there.
std::size_t mmdfLength(std::string_view text) {
    std::string_view rest = text;
    // One line ends a message, and another begins the next.
    for (int lines = 0; lines < 2 && firstLine(rest) == mmdfLine; ++lines)
        rest.remove_prefix(std::min(rest.find('\n'), rest.size() - 1) + 1);
    return text.size() - rest.size();
}

/// A message without the empty line that parts it from the next separator. One that ends its header stays.
std::string_view withoutLastEmptyLine(std::string_view message) {
    for (const std::string_view end : {"\n", "\r\n"}) {
        const std::string empty = "\n" + std::string(end);
        if (message.ends_with(empty) && message.find(empty) + empty.size() < message.size())
            return message.substr(0, message.size() - end.size());
    }
    return message;
}

/// How many of the signatures name the hash of this body.
std::size_t fitting(const MailMessage& message) {
    if (!message.body()) return 0;
    BodyHashes hashes(*message.body());
    std::size_t count = 0;
    for (const char* const name : {"DKIM-Signature", "ARC-Message-Signature"}) {
        const auto positions = message.positions(name);
        for (const auto position : positions.first(std::min(positions.size(), mostSignatures))) {
            const std::string value = message.headers()[position].value();
            const TagList tags = TagList::parse(value);
            const auto forms = CanonicalizationPair::parse(tags.value("c"));
            const auto named = decodedBase64(tags.compactValue("bh").value_or(""));
            if (!forms || !named || named->empty()) continue;
            const auto limit = decimal(tags.value("l").value_or(""));
            const auto algorithm =
                tags.value("a").value_or("").ends_with("sha1") ? HashAlgorithm::sha1 : HashAlgorithm::sha256;
            const auto& hash =
                hashes.hash(forms->body, algorithm,
                            limit ? std::optional(static_cast<std::uint64_t>(*limit)) : std::nullopt);
            if (hash.digest == *named) ++count;
        }
    }
    return count;
}

}  // namespace

/// Whether a file that begins so begins with a block for a file in it, whose sum is right.
static bool isTar(std::string_view head) {
    constexpr std::size_t sumAt = 148, sumSize = 8;
    if (head.size() < tarBlock) return false;
    head = head.substr(0, tarBlock);
    std::uint64_t sum = sumSize * ' ', named = 0;
    for (std::size_t i = 0; i < tarBlock; ++i) {
        if (i - sumAt >= sumSize) sum += static_cast<unsigned char>(head[i]);
    }
    const std::string_view digits = trimmed(head.substr(sumAt, sumSize), {" \0", 2});
    for (const char c : digits) {
        if (c < '0' || c > '7') return false;
        named = 8 * named + static_cast<std::uint64_t>(c - '0');
    }
    return !digits.empty() && sum == named;
}

std::optional<PackedForm> packedForm(std::string_view head) {
    using enum PackedForm;
    constexpr std::pair<std::string_view, PackedForm> forms[] = {
        {"\x1F\x8B\x08", gzip},
        {{"\xFD\x37zXZ\0", 6}, xz},
        {"\x28\xB5\x2F\xFD", zstandard},
        {"\x04\x22\x4D\x18", lz4},
        {"PK\x03\x04", zip},
        {"PK\x05\x06", zip},
        {"7z\xBC\xAF\x27\x1C", sevenZip},
        {"Rar!\x1A\x07", rar},
        {"\xCF\xAD\x12\xFE", dbx},
        {"!BDN", pst},
    };
    for (const auto& [begin, form] : forms) {
        if (head.starts_with(begin)) return form;
    }
    if (head.starts_with("BZh") && head.substr(0, 10).ends_with("1AY&SY")) return bzip2;
    return isTar(head) ? std::optional(tar) : std::nullopt;
}

// UTF-16

std::optional<ByteOrder> utf16Order(std::string_view head) {
    if (head.starts_with("\xFF\xFE")) return ByteOrder::little;
    if (head.starts_with("\xFE\xFF")) return ByteOrder::big;
    if (head.size() < 2 * asciiUnits) return std::nullopt;
    head = head.substr(0, 2 * asciiUnits);
    const auto isASCII = [&](std::size_t low) {
        for (std::size_t i = 0; i < head.size(); i += 2) {
            const auto c = static_cast<unsigned char>(head[i + low]);
            if (c == 0 || c > 126 || head[i + 1 - low] != 0) return false;
        }
        return true;
    };
    if (isASCII(0)) return ByteOrder::little;
    if (isASCII(1)) return ByteOrder::big;
    return std::nullopt;
}

std::string UTF16Decoder::decode(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size() / 2 + 4);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (!m_half) {
            m_half = byte;
            continue;
        }
        const unsigned high = m_order == ByteOrder::big ? *m_half : byte;
        const unsigned low = m_order == ByteOrder::big ? byte : *m_half;
        m_half.reset();
        add(static_cast<char16_t>(high << 8 | low), text);
    }
    return text;
}

void UTF16Decoder::add(char16_t unit, std::string& text) {
    constexpr char16_t mark = 0xFEFF, replacement = 0xFFFD;
    const bool isFirst = !std::exchange(m_hasBegun, true);
    if (isFirst && unit == mark) return;
    const bool isHigh = unit >= 0xD800 && unit < 0xDC00, isLow = unit >= 0xDC00 && unit < 0xE000;
    if (const char16_t high = std::exchange(m_high, isHigh ? unit : char16_t{0})) {
        if (isLow) {
            appendUTF8(text, 0x10000u + ((high & 0x3FFu) << 10 | (unit & 0x3FFu)));
            return;
        }
        appendUTF8(text, replacement);
    }
    if (!isHigh) appendUTF8(text, isLow ? replacement : unit);
}

std::string UTF16Decoder::end() {
    const bool isIncomplete = m_half || m_high != 0;
    return isIncomplete ? "\uFFFD" : "";
}

// A count in front

bool beginsWithCount(std::string_view head) {
    std::string_view line = firstLine(head);
    if (line.size() == head.size() || line.size() > longestCount) return false;
    while (!line.empty() && isBlank(line.back())) line.remove_suffix(1);
    return decimal(line).has_value();
}

std::optional<std::string_view> countedMessage(std::string_view file) {
    if (!beginsWithCount(file)) return std::nullopt;
    std::string_view rest = file.substr(file.find('\n') + 1);
    const auto count = decimal(trimmedBlanks(firstLine(file)));
    if (static_cast<std::uint64_t>(*count) <= rest.size()) {
        const std::string_view message = rest.substr(0, static_cast<std::size_t>(*count));
        const auto behind = trimmed(rest.substr(message.size()).substr(0, longestHead), " \t\r\n");
        for (const char* const begin : {"<?xml", "<!DOCTYPE plist", "<plist", "bplist"}) {
            if (behind.starts_with(begin)) return message;
        }
    }
    const auto begin = rest.rfind("\n<?xml");
    if (begin == std::string_view::npos || !trimmed(rest, " \t\r\n").ends_with("</plist>"))
        return std::nullopt;
    return rest.substr(0, begin + 1);
}

// A server's store

namespace {

/// The parts of the file's first line and of the header behind it.
struct StoreHeader {
    std::size_t size = 0;  ///< of both
    std::uint64_t messageSize = 0;
};

std::optional<std::uint64_t> hexadecimal(std::string_view digits) {
    std::uint64_t value = 0;
    for (const char c : digits) {
        if (hexValue(c) < 0) return std::nullopt;
        value = 16 * value + static_cast<std::uint64_t>(hexValue(c));
    }
    return digits.empty() || digits.size() > storeSizeDigits ? std::nullopt : std::optional(value);
}

std::optional<StoreHeader> storeHeader(std::string_view file) {
    const std::string_view line = file.substr(0, longestStoreHeader).substr(0, file.find('\n'));
    std::string_view rest = line;
    if (!line.starts_with("2 M")) return std::nullopt;
    rest.remove_prefix(3);
    const auto length = hexadecimal(takeWord(rest, " "));
    const std::string_view header = file.substr(std::min(line.size() + 1, file.size()));
    if (!length || *length > longestStoreHeader || *length < storeSizeAt + storeSizeDigits + 1 ||
        *length > header.size() || !header.starts_with("\1\2N")) {
        return std::nullopt;
    }
    const auto size = hexadecimal(header.substr(storeSizeAt, storeSizeDigits));
    if (!size) return std::nullopt;
    return StoreHeader{line.size() + 1 + static_cast<std::size_t>(*length), *size};
}

}  // namespace

bool beginsStore(std::string_view head) { return storeHeader(head).has_value(); }

std::optional<std::string_view> storedMessage(std::string_view file) {
    const auto header = storeHeader(file);
    if (!header || header->messageSize > file.size() - header->size) return std::nullopt;
    const auto message = file.substr(header->size, static_cast<std::size_t>(header->messageSize));
    const std::string_view notes = file.substr(header->size + message.size());
    const bool isOnly = notes.starts_with("\n\1\3\n") && notes.find("\n\1\2N") == std::string_view::npos;
    return isOnly && !packedForm(message) ? std::optional(message) : std::nullopt;
}

// Mailboxes

static std::optional<std::size_t> mboxBegin(std::string_view head) {
    std::string_view text = head.substr(0, longestHead);
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    text.remove_prefix(std::min(text.find_first_not_of("\r\n"), text.size()));
    if (!text.starts_with(separatorBegin) || isFromField(firstLine(text))) return std::nullopt;
    const auto end = text.substr(0, longestSeparator).find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view rest = text.substr(end + 1);
    if (!hasDate(firstLine(text)) && !beginsField(rest)) return std::nullopt;
    return static_cast<std::size_t>(rest.data() - head.data());
}

std::optional<MailboxBegin> mailboxBegin(std::string_view head) {
    if (firstLine(head) == mmdfLine) return MailboxBegin{MailboxForm::mmdf, mmdfLength(head)};
    const auto begin = mboxBegin(head);
    return begin ? std::optional(MailboxBegin{MailboxForm::mbox, *begin}) : std::nullopt;
}

void MailboxSplitter::add(std::string_view bytes) {
    if (m_begin > 0) {
        // Of a message that is not complete nothing is moved twice: it begins the buffer from now on.
        const std::string_view rest = held();
        std::memmove(m_buffer.data(), rest.data(), rest.size());
        m_buffer.setSize(rest.size());
        m_tried -= std::min(m_tried, m_begin);
        m_search -= std::exchange(m_begin, 0);
    }
    const std::size_t size = m_buffer.size(), needed = size + bytes.size();
    if (needed > m_buffer.capacity()) m_buffer.grow(std::max(needed, 2 * m_buffer.capacity()));
    if (!bytes.empty()) std::memcpy(m_buffer.data() + size, bytes.data(), bytes.size());
    m_buffer.setSize(needed);
}

std::optional<MailboxSplitter::Separator> MailboxSplitter::nextSeparator() {
    const std::string_view text = m_buffer.view(),
                           begin = m_form == MailboxForm::mmdf ? mmdfLine : separatorBegin;
    for (;;) {
        const auto found = text.find(begin, m_search);
        if (found == std::string_view::npos) {
            const std::size_t begun = begin.size() - 1;  // its beginning may have come already
            m_search = std::max(m_search, text.size() - std::min(begun, text.size()));
            return std::nullopt;
        }
        m_search = found;
        if (!m_hasEnded && text.size() - found < lookAhead) return std::nullopt;
        if (const auto separator = separatorAt(found)) {
            // Nothing is hashed twice for this, whatever lengths the messages name.
            const std::size_t end = m_begin < m_tried ? 0 : endByLength(found);
            if (end == 0) return separator;
            if (!m_hasEnded && text.size() < end + longestEmptyLine + lookAhead) return std::nullopt;
            m_tried = end;
            if (!isSignedUpTo(end, found)) return separator;
            m_search = end;
            continue;
        }
        ++m_search;
    }
}

/// The separator that begins there, if one does.
std::optional<MailboxSplitter::Separator> MailboxSplitter::separatorAt(std::size_t position) const {
    const std::string_view text = m_buffer.view();
    const bool isFirst = position == m_begin && !m_isTooLarge;
    if (!isFirst && (position <= m_begin || text[position - 1] != '\n')) return std::nullopt;
    const bool isBehindEmptyLine = endsWithEmptyLine(text.substr(m_begin, position - m_begin));
    const auto length = m_form == MailboxForm::mmdf
                            ? mmdfLength(text.substr(position))
                            : separatorLength(text.substr(position), isBehindEmptyLine);
    return length > 0 ? std::optional(Separator{position, position + length}) : std::nullopt;
}

/// Where the message's body ends by its Content-Length, when that lies behind this separator; else 0.
std::size_t MailboxSplitter::endByLength(std::size_t separator) const {
    constexpr std::string_view name = "\nContent-Length:";
    const std::string_view message = held().substr(0, separator - m_begin);
    std::string_view header = message.substr(0, longestHead);
    header = header.substr(0, header.find("\n\n"));
    header = header.substr(0, header.find("\n\r\n"));
    const auto field = header.rfind(name);
    if (m_form != MailboxForm::mbox || m_isTooLarge ||
        header.size() >= std::min(message.size(), longestHead) || field == std::string_view::npos)
        return 0;
    const auto length = decimal(trimmedBlanks(firstLine(header.substr(field + name.size()))));
    if (!length || *length > static_cast<std::int64_t>(largestMessage)) return 0;
    const std::size_t body = message.find('\n', header.size() + 1) + 1;
    const std::size_t size = body + static_cast<std::size_t>(*length);
    return size > message.size() && size <= largestMessage ? m_begin + size : 0;
}

/// Whether the message ends there, at a separator or at the end of the file, and more of its signatures fit
/// it so than when it ends at this separator.
bool MailboxSplitter::isSignedUpTo(std::size_t end, std::size_t separator) const {
    const std::string_view text = m_buffer.view();
    if (end > text.size()) return false;
    const auto lineEnds = std::min(text.substr(end).find_first_not_of("\r\n"), text.size() - end);
    if (lineEnds > longestEmptyLine || (end + lineEnds < text.size() && !separatorAt(end + lineEnds)))
        return false;
    const auto fits = [&](std::size_t size) {
        return fitting(MailMessage::parse(held().substr(0, size - m_begin)));
    };
    return fits(end) > fits(separator);
}

/// Of a message that is too large only as much stays as tells whether an empty line stands before a
/// separator.
void MailboxSplitter::discardLarge() {
    constexpr std::size_t context = 4;
    if (held().size() <= largestMessage + lookAhead) {
        if (!m_isTooLarge) return;
    }
    m_isTooLarge = true;
    m_begin = std::max(m_begin, m_search - std::min(context, m_search));
}

std::optional<MailboxSplitter::Message> MailboxSplitter::next() {
    while (!m_isDone) {
        const auto separator = nextSeparator();
        if (!separator && !m_hasEnded) {
            discardLarge();
            return std::nullopt;
        }
        const bool isMbox = m_form == MailboxForm::mbox;
        m_isDone = !separator || (!isMbox && m_hasEnded && separator->end == m_buffer.size());
        const std::size_t end = separator ? separator->begin : m_buffer.size();
        const std::string_view bytes = m_buffer.view().substr(m_begin, end - m_begin);
        Message message{.bytes = isMbox ? withoutLastEmptyLine(bytes) : bytes,
                        .number = ++m_number,
                        .isTooLarge = m_isTooLarge,
                        .isOnly = m_isDone && m_number == 1};
        message.isTooLarge |= message.bytes.size() > largestMessage;
        m_isTooLarge = false;
        m_begin = m_search = separator ? separator->end : m_buffer.size();
        if (message.isTooLarge) message.bytes = {};
        const bool isEmpty = message.bytes.find_first_not_of("\r\n") == std::string_view::npos;
        if (message.isTooLarge || !isEmpty) return message;
    }
    return std::nullopt;
}

// Quoted lines

namespace {

/// Where body lines begin that consist of ">"s, "From " and more: the positions of the first ">".
std::vector<std::size_t> quotedLines(std::string_view body) {
    std::vector<std::size_t> lines;
    // A quoted line holds ">From ", so that searching for it finds all; each is looked at once.
    for (auto found = body.find(">From "); found != std::string_view::npos;
         found = body.find(">From ", found + 1)) {
        std::size_t begin = found;
        while (begin > 0 && body[begin - 1] == '>') --begin;
        if (begin == 0 || body[begin - 1] == '\n') lines.push_back(begin);
    }
    return lines;
}

std::string withoutQuotes(std::string_view text, const std::vector<std::size_t>& lines, FromQuoting reading) {
    std::string bytes;
    bytes.reserve(text.size());
    std::size_t from = 0;
    for (const std::size_t line : lines) {
        if (reading == FromQuoting::plain && text[line + 1] == '>') continue;
        bytes.append(text.substr(from, line - from));
        from = line + 1;
    }
    return bytes.append(text.substr(from));
}

/// Looks for a reading that fits in which some lines with just one ">" had it from the beginning: the fewer
/// they, or the others, are, the sooner.
void readMixed(std::string_view message, std::vector<std::size_t> lines, UnquotedMessage& quoted) {
    std::erase_if(lines, [&](auto line) { return message[line + 1] == '>'; });
    std::size_t readings = std::min(mostMixedReadings, mostMixedBytes / message.size());
    for (std::size_t step = 1; step < lines.size(); ++step) {
        const std::size_t fewer = (step + 1) / 2, kept = step % 2 == 1 ? fewer : lines.size() - fewer;
        std::vector<char> isKept(lines.size());
        std::fill_n(isKept.begin(), kept, 1);
        do {
            if (readings-- == 0) return;
            std::vector<std::size_t> taken;
            for (std::size_t i = 0; i < lines.size(); ++i) {
                if (isKept[i] == 0) taken.push_back(lines[i]);
            }
            const std::string bytes = withoutQuotes(message, taken, FromQuoting::full);
            if (fitting(MailMessage::parse(bytes)) == 0) continue;
            quoted.fromLines.isLossy = true;
            quoted.fromLines.lines = static_cast<std::int64_t>(taken.size());
            quoted.bytes = ByteBuffer(bytes);
            return;
        } while (std::ranges::prev_permutation(isKept).found);
    }
}

}  // namespace

std::optional<UnquotedMessage> withoutFromQuoting(std::string_view message) {
    if (message.find(">From ") == std::string_view::npos) return std::nullopt;
    const auto lines = quotedLines(message);
    if (lines.empty()) return std::nullopt;
    std::size_t most = 0;
    bool isSigned = false;
    {
        // Only lines of the body: in the header such a line is no field, whatever it stands for.
        const auto parsed = MailMessage::parse(message);
        if (!parsed.body()) return std::nullopt;
        most = fitting(parsed);
        isSigned = parsed.first("DKIM-Signature") || parsed.first("ARC-Message-Signature");
    }  // its fields may take ten times its bytes, and others are parsed below

    UnquotedMessage quoted{.fromLines = {.lines = static_cast<std::int64_t>(lines.size())}};
    std::size_t fewest = most;
    for (const FromQuoting reading : {FromQuoting::full, FromQuoting::plain}) {
        const bool isSame = std::ranges::none_of(lines, [&](auto line) { return message[line + 1] == '>'; });
        if (reading == FromQuoting::plain && isSame) break;
        const std::string bytes = withoutQuotes(message, lines, reading);
        const std::size_t count = fitting(MailMessage::parse(bytes));
        fewest = std::min(fewest, count);
        if (count <= most) continue;
        most = count;
        quoted.fromLines.reading = reading;
        quoted.fromLines.lines = static_cast<std::int64_t>(message.size() - bytes.size());
        quoted.bytes = ByteBuffer(bytes);
    }
    quoted.fromLines.isDecided = most > fewest;
    if (most == 0 && isSigned) readMixed(message, lines, quoted);
    return quoted;
}

bool isInternalData(std::string_view message) {
    if (message.size() > longestHead) return false;
    const auto parsed = MailMessage::parse(message);
    const HeaderField* subject = parsed.first("Subject");
    return (parsed.first("X-IMAP") || parsed.first("X-IMAPbase")) && !parsed.first("Received") &&
           !parsed.first("DKIM-Signature") && subject && subject->value().ends_with("FOLDER INTERNAL DATA");
}

}  // namespace quillmark
