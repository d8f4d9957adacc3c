#include "QuillmarkKit/Mail/TransferEncodings.h"

#include <algorithm>

#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view crlf = "\r\n";
constexpr std::string_view softBreak = "=\r\n";

using Style = QuotedPrintableStyle;

std::string escaped(char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return {'=', digits[byte >> 4], digits[byte & 15]};
}

/// The columns that are kept free behind the escape of a byte beyond ASCII, so that most characters of UTF-8
/// are not broken.
std::size_t roomBehind(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 ? 0 : byte < 0xE0 ? 3 : byte < 0xF0 ? 6 : byte < 0xF5 ? 9 : 0;
}

/// Whether the byte at `at` of a line, in which only blanks stand from `textEnd` on, is written as an escape.
bool isEscaped(std::string_view line, std::size_t at, const QuotedPrintableStyle& style,
               std::size_t textEnd) {
    const char c = line[at];
    const bool isLast = at + 1 == line.size();
    if (c == '\t' && style.escapesTabs) return true;
    if (isBlank(c)) {
        if (style.endBlanks == Style::EndBlanks::all) return at >= textEnd;
        return isLast && style.endBlanks != Style::EndBlanks::none;
    }
    if (c <= ' ' || c == '=' || c > '~') return true;  // beyond ASCII, char is below zero or above '~'
    if (at != 0) return false;
    if (c == '.') return style.escapesFirstStop || (style.escapesStop && isLast);
    return style.escapesFrom && line.starts_with("From ");
}

/// One line, without its end.
void appendLine(std::string& text, std::string_view line, const QuotedPrintableStyle& style) {
    std::size_t begin = text.size();  // of the line that is written
    std::size_t behindBlank = 0;      // where it may be broken; 0: nowhere
    const auto breakLine = [&](std::size_t at) {
        text.insert(at, softBreak);
        begin = at + softBreak.size();
        behindBlank = 0;
    };
    const std::size_t textEnd = line.find_last_not_of(" \t") + 1;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        const bool isLast = at + 1 == line.size();
        const bool isEscape = isEscaped(line, at, style, textEnd);
        const std::size_t columns = text.size() - begin + (isEscape ? 3 : 1);  // with it
        const bool fillsLast = isLast && (style.lastColumn == Style::LastColumn::escapes ||
                                          (style.lastColumn == Style::LastColumn::characters && !isEscape));
        const std::size_t room = style.leavesRoom ? roomBehind(c) : 0;
        if (columns + room > style.longest - (fillsLast ? 0 : 1) && style.breaks != Style::Break::behind) {
            if (isLast && isBlank(c) && style.endBlanks == Style::EndBlanks::lastThatFits &&
                columns - 2 < style.longest) {
                text.append(1, c).append(softBreak);  // it fits as it is
                return;
            }
            breakLine(style.breaks == Style::Break::blank && behindBlank > 0 ? behindBlank : text.size());
        }
        isEscape ? text.append(escaped(c)) : text.append(1, c);
        if (isBlank(c)) behindBlank = text.size();
        if (style.breaks == Style::Break::behind && text.size() - begin > style.longest - 4)
            breakLine(text.size());
    }
    if (textEnd < line.size() && style.endBlanks == Style::EndBlanks::none && text.size() > begin)
        text += softBreak;
}

/// What is written with escapes alone, broken in windows of `longest` characters; its lines end in LF, each
/// of which counts as one.
std::string brokenInWindows(std::string_view text, std::size_t longest) {
    const std::size_t margin = longest / 3;
    std::string broken;
    broken.reserve(text.size() + text.size() / 16);
    const auto append = [&](std::string_view piece) {
        for (const char c : piece) c == '\n' ? broken.append(crlf) : broken.append(1, c);
    };
    while (!text.empty()) {
        std::string_view line = text.substr(0, longest);
        const std::string_view tail = line.substr(line.size() - std::min(margin, line.size()));
        const auto isWhole = [&] { return line.size() == text.size() || line.ends_with('\n'); };
        if (const auto end = tail.rfind('\n'); end != tail.npos) {
            line.remove_suffix(tail.size() - end - 1);
        } else if (const auto mark = tail.find_last_of(" \t.,!?");
                   line.size() > longest - margin && mark != tail.npos) {
            line.remove_suffix(tail.size() - mark - 1);
        } else if (const auto escape = line.find_last_of('=');
                   escape != line.npos && escape + 3 >= line.size()) {
            // Neither an escape nor a character of UTF-8 is cut in two.
            if (escape + 3 > line.size()) line = line.substr(0, escape);
            const auto byteAtEnd = [&] {
                if (line.size() < 3 || line[line.size() - 3] != '=') return -1;
                const int high = hexValue(line[line.size() - 2]), low = hexValue(line.back());
                return high < 0 || low < 0 ? -1 : high * 16 + low;
            };
            while (line.size() > 12 && line.size() < text.size()) {
                const int byte = byteAtEnd();
                if (byte < 0x80) break;
                line.remove_suffix(3);
                if (byte >= 0xC0) break;
            }
        }
        if (!isWhole() && line.size() == longest) {
            const bool endsInEscape = line[line.size() - 3] == '=';
            line.remove_suffix(endsInEscape ? 3 : 1);
        }
        append(line);
        if (!isWhole()) broken += softBreak;
        text.remove_prefix(line.size());
    }
    return broken;
}

}  // namespace

const std::array<QuotedPrintableStyle, 12> quotedPrintableStyles = {
    // Perl's MIME::QuotedPrint
    Style{.lastColumn = Style::LastColumn::escapes, .endBlanks = Style::EndBlanks::all},
    // The usual library of Node
    Style{.breaks = Style::Break::window},
    // PHP
    Style{.lastColumn = Style::LastColumn::nothing, .escapesTabs = true, .leavesRoom = true},
    // Go
    Style{.lastColumn = Style::LastColumn::nothing},
    // Python's email, with older and with newer policies
    Style{.lastColumn = Style::LastColumn::escapes, .endBlanks = Style::EndBlanks::lastThatFits},
    Style{
        .longest = 78, .lastColumn = Style::LastColumn::escapes, .endBlanks = Style::EndBlanks::lastThatFits},
    // Ruby
    Style{.breaks = Style::Break::behind, .endBlanks = Style::EndBlanks::none},
    // Java
    Style{.lastColumn = Style::LastColumn::nothing, .escapesTabs = true},
    Style{.breaks = Style::Break::blank},
    // Python's quopri
    Style{.escapesStop = true},
    // mutt
    Style{.lastColumn = Style::LastColumn::escapes, .escapesFirstStop = true, .escapesFrom = true},
    // s-nail
    Style{.escapesStop = true, .escapesFrom = true},
};

TransferEncoding transferEncoding(std::string_view value) {
    value = trimmed(value);
    if (equalsIgnoringCase(value, "base64")) return TransferEncoding::base64;
    if (equalsIgnoringCase(value, "quoted-printable")) return TransferEncoding::quotedPrintable;
    return TransferEncoding::none;
}

std::string decodedBase64Lines(std::string_view text) {
    std::string digits;
    digits.reserve(text.size() + 3);
    for (const char c : text) {
        if (c == '=') break;
        if (isASCIILetter(c) || isDigit(c) || c == '+' || c == '/') digits += c;
    }
    if (digits.size() % 4 == 1) digits.pop_back();
    digits.append((4 - digits.size() % 4) % 4, '=');
    return decodedBase64(digits).value_or("");
}

std::string decodedBytes(TransferEncoding encoding, std::string_view text) {
    switch (encoding) {
        case TransferEncoding::base64:
            return decodedBase64Lines(text);
        case TransferEncoding::quotedPrintable:
            return decodedQuotedPrintable(text);
        case TransferEncoding::none:
            break;
    }
    return std::string(text);
}

std::string decodedEscapes(std::string_view text, char mark) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == mark && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
                              hexValue(text[i + 2]) >= 0;
        bytes += isEscape ? static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])) : text[i];
        if (isEscape) i += 2;
    }
    return bytes;
}

std::string encodedBase64Lines(std::string_view bytes, std::size_t width, std::string_view lineEnd) {
    const std::string digits = encodedBase64(bytes);
    std::string text;
    text.reserve(digits.size() + (digits.size() / width + 1) * lineEnd.size());
    for (std::string_view rest = digits; !rest.empty(); rest.remove_prefix(std::min(width, rest.size())))
        text.append(rest.substr(0, width)).append(lineEnd);
    return text;
}

std::string decodedQuotedPrintable(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isBlank(text[i])) {
            const auto end = std::min(text.find_first_not_of(" \t", i), text.size());
            if (end < text.size() && text[end] != '\r') bytes.append(text.substr(i, end - i));
            i = end - 1;
            continue;
        }
        if (text[i] != '=') {
            bytes += text[i];
            continue;
        }
        const std::string_view escape = text.substr(i + 1, 2);
        const auto behind = std::min(text.find_first_not_of(" \t", i + 1), text.size());
        if (text.substr(behind).starts_with(crlf)) {
            i = behind + 1;
        } else if (escape.size() == 2 && hexValue(escape[0]) >= 0 && hexValue(escape[1]) >= 0) {
            bytes += static_cast<char>(hexValue(escape[0]) * 16 + hexValue(escape[1]));
            i += 2;
        } else {
            bytes += '=';
        }
    }
    return bytes;
}

std::string encodedQuotedPrintable(std::string_view text, const QuotedPrintableStyle& style) {
    const bool isInWindows = style.breaks == QuotedPrintableStyle::Break::window;
    std::string written;
    written.reserve(text.size() + text.size() / 8);
    while (!text.empty()) {
        const auto end = std::min(text.find(crlf), text.size());
        const std::string_view line = text.substr(0, end);
        if (isInWindows) {
            const std::size_t textEnd = line.find_last_not_of(" \t") + 1;
            for (std::size_t at = 0; at < line.size(); ++at)
                isEscaped(line, at, style, textEnd) ? written.append(escaped(line[at]))
                                                    : written.append(1, line[at]);
        } else {
            appendLine(written, line, style);
        }
        if (end == text.size()) break;
        written += isInWindows ? crlf.substr(1) : crlf;
        text.remove_prefix(end + crlf.size());
    }
    return isInWindows ? brokenInWindows(written, style.longest) : written;
}

}  // namespace quillmark
