#include "QuillmarkKit/Intake/PastedText.h"

#include <algorithm>

#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnds = "\r\n", white = " \t\r\n";
constexpr std::size_t mostLinesBefore = 30, longestLineBefore = 1000;  // of a summary
constexpr std::size_t mostBlocksBefore = 8;                            // with empty lines between them

/// Takes the line at the front of `rest`, with its line end: LF, CR LF or CR.
std::string_view takeLine(std::string_view& rest) {
    auto end = std::min(rest.find_first_of(lineEnds), rest.size());
    if (rest.substr(end).starts_with("\r\n")) ++end;
    if (end < rest.size()) ++end;
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end);
    return line;
}

bool isEmptyLine(std::string_view line) { return trimmed(line, white).empty(); }

/// The text from its first line that is not empty on.
std::string_view withoutEmptyLines(std::string_view text) {
    while (!text.empty()) {
        std::string_view rest = text;
        if (!isEmptyLine(takeLine(rest))) break;
        text = rest;
    }
    return text;
}

bool isSource(const MailMessage& message) {
    return message.first("From") && (message.first("Received") || message.first("DKIM-Signature"));
}

/// The blanks that the first line begins with, if every line that is not empty begins with them.
std::string_view indentation(std::string_view text) {
    const auto blanks = std::min(text.find_first_not_of(" \t"), text.size());
    const std::string_view indent = text.substr(0, blanks);
    while (!indent.empty() && !text.empty()) {
        const std::string_view line = takeLine(text);
        if (!isEmptyLine(line) && !line.starts_with(indent)) return {};
    }
    return indent;
}

std::string withoutIndentation(std::string_view text, std::string_view indent) {
    std::string source;
    source.reserve(text.size());
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        // An empty line may have lost its blanks.
        const auto length =
            line.starts_with(indent) ? indent.size() : std::min(line.find_first_not_of(" \t"), line.size());
        source += line.substr(length);
    }
    return source;
}

/// Takes the lines up to an empty one off the front of `text`, and the empty lines behind them.
std::string_view takeBlock(std::string_view& text) {
    const std::string_view all = text;
    std::string_view rest = text;
    while (!text.empty() && !isEmptyLine(takeLine(rest))) text = rest;
    const std::string_view block = all.substr(0, all.size() - text.size());
    text = withoutEmptyLines(text);
    return block;
}

/// Whether one of the first blocks is the header of something.
bool hasHeader(std::string_view text) {
    for (std::size_t block = 0; block <= mostBlocksBefore && !text.empty(); ++block) {
        if (MailMessage::parse(takeBlock(text), ParseMode::lenient).headers().size() >= 2) return true;
    }
    return false;
}

/// The value of a field that stands just once.
std::optional<std::string> onlyValue(const MailMessage& message, std::string_view name) {
    const auto positions = message.positions(name);
    if (positions.size() != 1) return std::nullopt;
    return message.headers()[positions.front()].value();
}

/// Whether each address of a summary is the source's, and its name too where it has one.
bool isSameSender(std::string_view summary, std::string_view source) {
    const AddressExtras extras = MailAddress::extras(summary);
    if (!extras.text.empty() || !extras.part.empty() || !extras.route.empty()) return false;
    const auto shown = MailAddress::parseList(summary), real = MailAddress::parseList(source);
    return !shown.empty() && std::ranges::equal(shown, real, [](const auto& a, const auto& b) {
        return a.address == b.address && (!a.displayName || a.displayName == b.displayName);
    });
}

bool isSameSubject(std::string_view summary, std::string_view source) {
    return withoutWhitespace(EncodedWords::decode(summary)) ==
           withoutWhitespace(EncodedWords::decode(source));
}

bool isSameDate(std::string_view summary, std::string_view source) {
    const auto date = parsedMailDate(summary);
    return summary == source || (date && date == parsedMailDate(source));
}

/// Whether the text, which was parsed into these fields, begins with the first of them.
bool beginsWithField(std::string_view text, const MailMessage& parsed) {
    if (parsed.headers().empty()) return false;
    const std::string_view field = parsed.headers().front().raw;
    return text.starts_with(field.substr(0, field.find('\r')));
}

/// Whether the lines say what a summary of the message in `text` says, and nothing that a message begins
/// with, and neither there nor here a line stands that is no header line.
bool isSummary(std::string_view lines, std::string_view text, const MailMessage& source) {
    const auto asHeader = MailMessage::parse(lines);
    if (!beginsWithField(lines, asHeader) || asHeader.earlyEnd() || !beginsWithField(text, source))
        return false;
    for (const char* const name : {"Received", "DKIM-Signature", "Return-Path", "MIME-Version"}) {
        if (asHeader.first(name)) return false;
    }
    const auto says = [&](const char* name, auto isSame) {
        const auto shown = onlyValue(asHeader, name), real = onlyValue(source, name);
        return shown && real && isSame(*shown, *real);
    };
    if (!says("From", isSameSender) || !says("Subject", isSameSubject) || !says("Date", isSameDate))
        return false;
    std::size_t count = 0;
    while (!lines.empty()) {
        if (takeLine(lines).size() > longestLineBefore || ++count > mostLinesBefore) return false;
    }
    return true;
}

/// The lines without those that are empty; nothing when there are no others.
std::optional<DroppedLines> linesIn(std::string_view text) {
    std::optional<DroppedLines> lines;
    while (!text.empty()) {
        const std::string_view line = trimmed(takeLine(text));
        if (line.empty()) continue;
        if (!lines) lines = DroppedLines{0, repairedUTF8(line)};
        ++lines->count;
    }
    return lines;
}

/// What stands before the first field and is neither one nor what parts the messages of a mailbox.
std::string_view textBeforeFields(const MailMessage& message) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";  // of the byte order
    const std::string_view text = message.text(), separator = message.separatorLine();
    const char* begin = text.data() + (text.starts_with(mark) ? mark.size() : 0);
    if (!separator.empty()) begin = separator.data() + separator.size();
    // A field behind the separator that begins with a blank is read as part of both.
    const char* const end = std::max(begin, message.headers().front().raw.data());
    return {begin, static_cast<std::size_t>(end - begin)};
}

}  // namespace

std::optional<DroppedLines> linesBeforeFields(const MailMessage& message) {
    return message.headers().empty() ? std::nullopt : linesIn(textBeforeFields(message));
}

PastedText pastedText(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);  // the mark of the byte order
    PastedText pasted{.source = std::string(text)};
    const std::string_view begin = withoutEmptyLines(text);
    if (const std::string_view indent = indentation(begin); !indent.empty()) {
        std::string source = withoutIndentation(begin, indent);
        if (hasHeader(source)) pasted.source = std::move(source);
    }
    const std::string_view all = withoutEmptyLines(pasted.source);
    if (const auto message = MailMessage::parse(all, ParseMode::lenient); isSource(message)) {
        pasted.dropped = linesBeforeFields(message);
        return pasted;
    }
    std::string_view rest = all;
    const std::string_view first = takeBlock(rest);
    for (std::size_t blocks = 1; blocks <= mostBlocksBefore && !rest.empty(); ++blocks, takeBlock(rest)) {
        std::string_view behind = rest;
        const auto source = MailMessage::parse(takeBlock(behind), ParseMode::lenient);
        if (!isSource(source)) continue;
        std::string alone(rest);
        if (blocks == 1 && isSummary(first, rest, source)) {
            pasted.dropped = linesIn(first);
            pasted.source = std::move(alone);
        } else {
            pasted.withoutLinesBefore = std::move(alone);
        }
        break;
    }
    return pasted;
}

}  // namespace quillmark
