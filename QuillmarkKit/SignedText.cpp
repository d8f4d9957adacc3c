#include "QuillmarkKit/SignedText.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Checks/TextDifference.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Mail/PartContent.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

using Block = SignedText::Block;
using Kind = Block::Kind;

constexpr std::size_t mostParts = 200, mostPartDepth = 3;
constexpr std::size_t mostValues = 4;        // of one name
constexpr std::size_t longestValue = 1'000;  // bytes
// What is shown of the text:
constexpr std::size_t mostLines = 1'000, mostBlocks = 300, mostBytes = 100'000;
constexpr std::int64_t mostLinesOfChange = 200;
constexpr std::size_t longestLine = 1'000, shownBeforeChange = 200;  // bytes
/// Lines beside a change, and at both ends of a text for reading.
constexpr std::int64_t linesAround = 3, linesOfText = 100;

// The fields

constexpr std::string_view readFields[] = {"from", "sender", "reply-to", "to", "cc", "date", "subject"};

std::vector<std::string> rawValues(const MailMessage& message, std::string_view name) {
    std::vector<std::string> values;
    for (const auto position : message.positions(name)) {
        if (values.size() < mostValues) values.push_back(message.headers()[position].value());
    }
    return values;
}

void addField(SignedText& text, std::string_view name, const MailMessage& shown, const MailMessage& asSigned,
              bool isTold) {
    using Field = SignedText::Field;
    auto values = rawValues(shown, name), signedValues = rawValues(asSigned, name);
    if (values.empty() && signedValues.empty()) return;
    Field field{.name = std::string(name)};
    field.kind = isTold                   ? Field::Kind::changed
                 : values == signedValues ? Field::Kind::same
                 : signedValues.empty()   ? Field::Kind::notSigned
                                          : Field::Kind::changed;
    const auto readable = [](std::vector<std::string> raw, bool isDecoded) {
        for (std::string& value : raw)
            value = forDisplay(isDecoded ? EncodedWords::decode(value) : value, longestValue);
        return raw;
    };
    field.shown = readable(values, true);
    field.signedValues = readable(signedValues, true);
    if (field.kind == Field::Kind::changed && field.shown == field.signedValues) {
        // They read alike, so what differs is how they are written.
        field.shown = readable(values, false);
        field.signedValues = readable(signedValues, false);
    }
    text.fields.push_back(std::move(field));
}

// The texts

/// Begins a line that stands for the head of a part. No line of a text begins so.
constexpr char mark = '\x01';

std::string_view withoutBlankEnd(std::string_view line) {
    return line.substr(0, line.find_last_not_of(" \t\r") + 1);
}

void addLines(std::string& out, std::string_view text) {
    while (!text.empty()) {
        const std::string_view line = withoutBlankEnd(takePiece(text, '\n'));
        if (line.starts_with(mark)) out += ' ';
        out.append(line) += '\n';
    }
}

/// What a message says, part for part, line by line; each part begins with its mark.
struct ReadText {
    std::string text = {};
    std::size_t parts = 0;
};

ReadText readText(const MailMessage& message) {
    ReadText read;
    std::string& out = read.text;
    CharsetDecoder decoder;
    const std::string_view body = message.body().value_or("");
    const auto parts = mimeParts(message, mostPartDepth, mostParts);
    std::vector<MIMEPart::Line> closings;
    for (const MIMEPart& part : parts) {
        if (part.closing) closings.push_back(*part.closing);
    }
    std::ranges::sort(closings, {}, &MIMEPart::Line::begin);
    std::size_t at = 0;  // up to which all is told
    // What lies between and behind the parts, but for the lines that end multiparts.
    const auto goTo = [&](std::size_t end) {
        for (const MIMEPart::Line& closing : closings) {
            if (closing.begin < at || closing.begin >= end) continue;
            addLines(out, body.substr(at, closing.begin - at));
            at = closing.end;
        }
        if (end > at) addLines(out, body.substr(at, end - at));
        at = std::max(at, end);
    };
    for (const MIMEPart& part : parts) {
        if (part.number > 0) goTo(part.begin);
        if (part.kind == MIMEPart::Kind::multipart) {
            at = std::max(at, part.bodyBegin);
            continue;
        }
        ++read.parts;
        const std::string type = mediaType(part);
        out += mark + forDisplay(type, longestValue) + mark +
               forDisplay(fileNameOf(message, part), longestValue);
        if (type.starts_with("text/")) {
            out += '\n';
            addLines(out, textOf(message, part, decoder));
        } else {
            const std::string content = decodedContent(message, part);
            out += mark + std::to_string(content.size()) + mark + sha256(content) + '\n';
        }
        at = std::max(at, part.end);
    }
    goTo(body.size());
    while (out.ends_with("\n\n")) out.pop_back();
    return read;
}

SignedText::Part partOf(std::string_view line) {
    line.remove_prefix(1);
    SignedText::Part part;
    part.type = takePiece(line, mark);
    part.name = takePiece(line, mark);
    if (line.empty()) return part;
    part.content = {decimal(takePiece(line, mark)).value_or(0), {}};
    part.content->sha256 = line;
    return part;
}

/// Whether two runs of lines say the same but for blanks.
bool differInBlanks(std::string_view a, std::string_view b) {
    const auto next = [](std::string_view& rest) {
        if (rest.empty()) return '\0';
        const char c = rest.front();
        rest.remove_prefix(1);
        if (!isBlank(c)) return c;
        while (!rest.empty() && isBlank(rest.front())) rest.remove_prefix(1);
        return ' ';
    };
    while (!a.empty() || !b.empty()) {
        if (a.empty() != b.empty() || next(a) != next(b)) return false;
    }
    return true;
}

class Composer {
public:
    Composer(SignedText& text, bool hasHeads) : m_result(text), m_hasHeads(hasHeads) {}

    /// Lines that differ, of which a long one is cut around `spot`, a place in them.
    void addChange(Kind kind, std::string_view lines, std::size_t spot) {
        add(kind, lines, mostLinesOfChange, spot);
    }

    /// Lines of the shown text that are as they were signed.
    void addSame(std::string_view lines, bool isBehindChange, bool isBeforeChange) {
        while (!lines.empty()) {
            constexpr char lineOfMark[] = {'\n', mark, '\0'};
            const auto end = lines.find(lineOfMark);
            const std::string_view piece = lines.substr(0, end == std::string_view::npos ? end : end + 1);
            lines.remove_prefix(piece.size());
            enter(piece);
            addSamePiece(piece, isBehindChange, isBeforeChange && lines.empty());
            isBehindChange = false;
        }
    }

    /// Takes note of the part that the lines of the shown text that follow these stand in.
    void enter(std::string_view lines) {
        while (!lines.empty()) {
            const std::string_view line = takePiece(lines, '\n');
            if (line.starts_with(mark)) m_isForReading = partOf(line).type == "text/plain";
        }
    }

private:
    bool hasRoom() const { return m_lines < mostLines && m_bytes < mostBytes; }

    void addSamePiece(std::string_view piece, bool isBehindChange, bool isBeforeChange) {
        const std::int64_t around = m_isForReading ? linesOfText : linesAround;
        const std::int64_t first = isBehindChange || m_isForReading ? around : 0,
                           last = isBeforeChange || m_isForReading ? around : 0;
        const std::int64_t all = std::ranges::count(piece, '\n');
        // Its head counts as none of them.
        const std::int64_t head = piece.starts_with(mark) ? 1 : 0;
        if (all - head <= first + last + 1) return add(Kind::same, piece, all, std::string_view::npos);
        std::size_t begin = 0, end = piece.size();
        for (std::int64_t i = 0; i < first + head; ++i) begin = piece.find('\n', begin) + 1;
        for (std::int64_t i = 0; i < last; ++i) end = piece.rfind('\n', end - 2) + 1;
        add(Kind::same, piece.substr(0, begin), all, std::string_view::npos);
        const std::int64_t folded = all - head - first - last;
        if (hasRoom() && m_result.blocks.size() < mostBlocks) {
            m_result.blocks.push_back({Kind::folded, {}, folded});
        } else {
            m_result.moreLines += folded;
        }
        add(Kind::same, piece.substr(end), all, std::string_view::npos);
    }

    void add(Kind kind, std::string_view lines, std::int64_t most, std::size_t spot) {
        Block block{.kind = kind};
        const bool isOpen = m_result.blocks.size() < mostBlocks;
        std::size_t begin = 0;  // of the line
        // Lines from the first that isn't empty to the last such one, and empty ones behind that.
        std::int64_t filled = 0, empty = 0;
        for (std::string_view rest = lines; !rest.empty();) {
            const std::string_view line = takePiece(rest, '\n');
            const bool isHead = line.starts_with(mark);
            if (!isHead) ++block.count;
            if (!isHead && line.empty()) {
                ++empty;
            } else if (!isHead) {
                filled += filled == 0 ? 1 : empty + 1;
                empty = 0;
            }
            if (isOpen && hasRoom() && block.count <= most && (!isHead || m_hasHeads)) {
                SignedText::Line told;
                isHead ? void(told.part = partOf(line)) : void(told.text = shownLine(line, begin, spot));
                m_bytes += told.text.size();
                ++m_lines;
                block.lines.push_back(std::move(told));
            }
            begin += line.size() + 1;
        }
        // Counted as where the change is told in a sentence.
        if (kind != Kind::same && filled > 0 && block.count <= most) block.count = filled;
        if (block.lines.empty()) {
            m_result.moreLines += block.count;
            m_result.hasMoreChanges |= kind != Kind::same && block.count > 0;
        } else {
            m_result.blocks.push_back(std::move(block));
        }
    }

    static std::string shownLine(std::string_view line, std::size_t begin, std::size_t spot) {
        std::size_t from = 0;
        if (line.size() > longestLine && spot > begin + shownBeforeChange && spot < begin + line.size()) {
            from = spot - begin - shownBeforeChange;
            while (from < line.size() && (static_cast<unsigned char>(line[from]) & 0xC0) == 0x80) ++from;
        }
        return (from > 0 ? "…" : "") + forDisplay(line.substr(from), longestLine);
    }

    SignedText& m_result;
    const bool m_hasHeads;
    bool m_isForReading = true;  // and no source
    std::size_t m_lines = 0, m_bytes = 0;
};

}  // namespace

std::vector<SignedText::Field> fieldsToRead(const MailMessage& message) {
    SignedText text;
    for (const std::string_view name : readFields) addField(text, name, message, message, false);
    return std::move(text.fields);
}

SignedText signedText(const MailMessage& shown, const MailMessage& asSigned,
                      std::span<const ChangedField> told) {
    SignedText result;
    const auto isTold = [&](std::string_view name) {
        return std::ranges::find(told, name, &ChangedField::name) != told.end();
    };
    for (const std::string_view name : readFields) addField(result, name, shown, asSigned, isTold(name));
    for (const ChangedField& field : told) {
        if (std::ranges::find(readFields, field.name) == std::end(readFields))
            addField(result, field.name, shown, asSigned, true);
    }

    const ReadText now = readText(shown), then = readText(asSigned);
    const std::string_view text = now.text, signedOne = then.text;
    const bool isOneText = now.parts == 1 && then.parts == 1 &&
                           text.substr(0, text.find('\n')) == std::string{mark} + "text/plain" + mark;
    Composer composer(result, !isOneText);
    std::size_t at = 0;
    bool isBehindChange = false;
    for (const DifferentLines& run : differentLines(signedOne, text)) {
        const std::string_view before = signedOne.substr(run.beforeBegin, run.beforeEnd - run.beforeBegin);
        const std::string_view after = text.substr(run.afterBegin, run.afterEnd - run.afterBegin);
        if (differInBlanks(before, after)) continue;
        composer.addSame(text.substr(at, run.afterBegin - at), isBehindChange, true);
        const auto mismatch = std::ranges::mismatch(before, after);
        const auto spot = static_cast<std::size_t>(mismatch.in1 - before.begin());
        composer.addChange(before.empty()  ? Kind::added
                           : after.empty() ? Kind::missing
                                           : Kind::changed,
                           after.empty() ? before : after, spot);
        if (!before.empty() && !after.empty()) composer.addChange(Kind::replaced, before, spot);
        composer.enter(after);
        at = run.afterEnd;
        isBehindChange = true;
    }
    composer.addSame(text.substr(at), isBehindChange, false);
    return result;
}

}  // namespace quillmark
