#include "QuillmarkKit/PastedText.h"

#include <algorithm>

#include "QuillmarkKit/Message.h"
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

/// Whether the lines say what a summary of this message says, and nothing that a message begins with.
bool isSummary(std::string_view lines, const MailMessage& source) {
    const HeaderField* field = source.first("Message-ID");
    const std::string id = field ? field->value() : std::string();
    const std::string_view bareID = trimmed(id, "<> ");
    if (bareID.find('@') == std::string_view::npos || lines.find(bareID) == std::string_view::npos)
        return false;
    const auto asHeader = MailMessage::parse(lines, ParseMode::lenient);
    for (const char* const name : {"Received", "DKIM-Signature", "Return-Path", "MIME-Version"}) {
        if (asHeader.first(name)) return false;
    }
    std::size_t count = 0;
    while (!lines.empty()) {
        if (takeLine(lines).size() > longestLineBefore || ++count > mostLinesBefore) return false;
    }
    return true;
}

}  // namespace

PastedText pastedText(std::string_view text) {
    PastedText pasted{.source = std::string(text)};
    const std::string_view begin = withoutEmptyLines(text);
    if (const std::string_view indent = indentation(begin); !indent.empty()) {
        std::string source = withoutIndentation(begin, indent);
        if (hasHeader(source)) pasted.source = std::move(source);
    }
    const std::string_view all = withoutEmptyLines(pasted.source);
    if (isSource(MailMessage::parse(all, ParseMode::lenient))) return pasted;
    std::string_view rest = all;
    for (std::size_t block = 0; block < mostBlocksBefore && !rest.empty(); ++block) {
        takeBlock(rest);
        std::string_view behind = rest;
        const auto source = MailMessage::parse(takeBlock(behind), ParseMode::lenient);
        if (!isSource(source)) continue;
        const std::string_view before = all.substr(0, all.size() - rest.size());
        std::string alone(rest);
        if (isSummary(before, source)) {
            pasted.source = std::move(alone);
        } else {
            pasted.withoutLinesBefore = std::move(alone);
        }
        return pasted;
    }
    return pasted;
}

}  // namespace quillmark
