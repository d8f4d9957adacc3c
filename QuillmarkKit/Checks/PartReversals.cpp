#include "QuillmarkKit/Checks/PartReversals.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

#include "QuillmarkKit/Checks/ProtectedLinks.h"
#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Mail/PartContent.h"
#include "QuillmarkKit/Mail/TransferEncodings.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t mostParts = 50, mostPartDepth = 3;
constexpr std::size_t longestHeader = 20'000;          // of a part
constexpr std::size_t largestEncodedText = 1'000'000;  // that is written in every encoding and character set

/// `text` with CR LF at the end of each line, or with LF.
std::string withLineEnds(std::string_view text, std::string_view end) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const auto at = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, at);
        if (at < text.size() && line.ends_with('\r')) line.remove_suffix(1);
        result += line;
        if (at == text.size()) break;
        result += end;
        text.remove_prefix(at + 1);
    }
    return result;
}

/// A header (its lines end in CR LF) in which the first field of this name has another value, or none; where
/// there is no such field, it is put at the end.
std::string withField(std::string_view header, std::string_view name,
                      const std::optional<std::string>& value) {
    std::string result;
    bool isWritten = false, isSkipping = false;
    const auto write = [&](std::string_view writtenName) {
        if (value) result.append(writtenName).append(": ").append(*value).append(lineEnd);
        isWritten = true;
    };
    for (std::string_view rest = header; !rest.empty();) {
        const std::string_view line = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
        rest.remove_prefix(line.size());
        if (isSkipping && isBlank(line.front())) continue;
        isSkipping = false;
        const bool isField = startsWithIgnoringCase(line, name) && line.substr(name.size()).starts_with(':');
        if (isField && !isWritten) {
            write(line.substr(0, name.size()));
            isSkipping = true;
            continue;
        }
        if (line == lineEnd && !isWritten) write(name);
        result += line;
    }
    return result;
}

/// A text part as it is written otherwise.
struct Written {
    std::string body = {};
    std::optional<std::string> encoding = {};  // nothing: the field stays
    bool dropsEncoding = false;                // the field goes
    std::optional<std::string> charset = {};   // nothing: the parameter stays
};

std::string encodingOf(std::string_view text) { return isASCII(text) ? "7bit" : "8bit"; }

/// Content-Type fields as programs write them for a text in this character set, the likeliest first. The name
/// is one as it stands in the message.
std::vector<std::vector<std::string>> typeFields(std::string_view name, std::string_view given,
                                                 bool isASCIIText, std::string_view charset) {
    const std::string type = mediaType(given);
    std::vector<std::string> charsets;
    const auto add = [&](std::string_view each) {
        std::string upper(each);
        std::ranges::transform(upper, upper.begin(),
                               [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
        for (const std::string& form : {asciiLowered(each), upper})
            if (std::ranges::find(charsets, form) == charsets.end()) charsets.push_back(form);
    };
    if (!charset.empty()) add(charset);
    if (isASCIIText) add("us-ascii");
    add("utf-8");
    if (charset.empty() || isASCIIText) add("iso-8859-1");
    std::vector<std::vector<std::string>> fields;
    const std::string start = std::string(name) + ": " + type;
    std::vector<std::string_view> formats = {""};
    if (type == "text/plain")
        formats = {"", "; format=flowed", "; format=flowed; delsp=yes", "; format=flowed; delsp=no"};
    for (const std::string_view format : formats) {
        for (const std::string& each : charsets) {
            fields.push_back({start + "; charset=" + each + std::string(format)});
            fields.push_back({start + "; charset=\"" + each + "\"" + std::string(format)});
        }
    }
    fields.push_back({start});
    fields.push_back({});
    std::erase_if(fields, [&](const auto& each) {
        return !each.empty() && each.front().substr(std::min(name.size() + 1, each.front().size())) == given;
    });
    return fields;
}

std::string nameIn(std::string_view raw, std::string_view otherwise) {
    const auto colon = raw.find(':');
    return std::string(trimmedBlanks(raw.substr(0, colon == raw.npos ? 0 : colon)).empty()
                           ? otherwise
                           : trimmedBlanks(raw.substr(0, colon)));
}

std::string_view valueIn(std::string_view raw) {
    const auto colon = raw.find(':');
    return colon == raw.npos ? std::string_view() : raw.substr(colon + 1);
}

/// What a text that was written anew says of the message's own fields.
void addHints(Reading& made, const MailMessage& message, const Written& written, bool isASCIIText) {
    const std::string_view type = made.field(message, "content-type");
    const std::string_view encoding = made.field(message, "content-transfer-encoding");
    if (written.encoding || written.dropsEncoding) {
        const std::string name = nameIn(encoding, "Content-Transfer-Encoding");
        HeaderHint hint{.name = "content-transfer-encoding", .isCertain = !encoding.empty()};
        if (written.encoding && *written.encoding != "7bit" && *written.encoding != "8bit") {
            hint.alternatives = {{name + ": " + *written.encoding}};
        } else {
            const bool isPlain = written.encoding && *written.encoding == "7bit";
            hint.alternatives = {
                {name + (isPlain ? ": 7bit" : ": 8bit")}, {}, {name + (isPlain ? ": 8bit" : ": 7bit")}};
        }
        made.hint(std::move(hint));
    }
    const std::string charset = written.charset ? *written.charset : fieldParameter(valueIn(type), "charset");
    HeaderHint hint{.name = "content-type", .isCertain = written.charset.has_value()};
    // As it stands, for who reads the parts.
    if (!written.charset && !type.empty()) hint.alternatives.push_back({std::string(type)});
    for (auto& fields : typeFields(nameIn(type, "Content-Type"), valueIn(type), isASCIIText, charset))
        hint.alternatives.push_back(std::move(fields));
    made.hint(std::move(hint));
}

/// The reading with its text parts written otherwise; nothing when none is. `change` gives, for a part and
/// its content with the transfer encoding undone, how it is written, or nothing.
template <typename Change>
std::optional<Reading> eachText(const Reading& reading, const MailMessage& message, Change change) {
    const MailMessage whole = messageOf(reading, message);
    const std::string_view body = whole.body().value_or("");
    std::string made;
    std::size_t at = 0;
    std::optional<std::pair<Written, bool>> ofWhole;
    for (const MIMEPart& part : mimeParts(whole, mostPartDepth, mostParts)) {
        const std::size_t headerSize = part.bodyBegin - part.headerBegin;
        if (part.kind != MIMEPart::Kind::other || !mediaType(part.contentType).starts_with("text/") ||
            headerSize > longestHeader || part.bodyBegin == part.end)
            continue;
        const std::string_view raw = body.substr(part.bodyBegin, part.bodyEnd - part.bodyBegin);
        const std::string content = decodedBytes(part.encoding, raw);
        std::optional<Written> written = change(part, content);
        if (!written) continue;
        made += body.substr(at, part.headerBegin - at);
        at = part.bodyEnd;
        if (part.number == 0) {
            made += written->body;
            ofWhole = {std::move(*written), isASCII(content)};
            break;
        }
        std::string header(body.substr(part.headerBegin, headerSize));
        if (written->encoding || written->dropsEncoding)
            header = withField(header, "Content-Transfer-Encoding",
                               written->dropsEncoding ? std::nullopt : written->encoding);
        if (written->charset) {
            std::string type(trimmed(part.contentType));
            const std::string old = fieldParameter(type, "charset");
            const auto place = old.empty() ? std::string::npos : type.rfind(old);
            if (place != std::string::npos) type.replace(place, old.size(), *written->charset);
            header = withField(header, "Content-Type", type);
        }
        // The line end in front of a boundary is the boundary's.
        std::string_view text = written->body;
        if (written->encoding == "base64" && text.ends_with(lineEnd)) text.remove_suffix(lineEnd.size());
        made.append(header).append(text);
    }
    if (at == 0) return std::nullopt;
    made += body.substr(at);
    Reading next = reading.with(std::move(made), 0);
    if (ofWhole) addHints(next, message, ofWhole->first, ofWhole->second);
    return next;
}

void push(std::vector<Reading>& made, std::optional<Reading> reading, std::optional<RewrittenForm> form,
          int cost) {
    if (!reading) return;
    if (form) reading->forms.insert(*form);
    reading->cost += cost;
    made.push_back(std::move(*reading));
}

/// Texts in base64 or quoted-printable that were sent as they are.
std::vector<Reading> unencoded(const Reading& reading, const MailMessage& message) {
    std::vector<Reading> made;
    for (const bool drops : {false, true}) {
        bool hasHeader = false;
        push(made,
             eachText(reading, message,
                      [&](const MIMEPart& part, const std::string& content) -> std::optional<Written> {
                          if (part.encoding == TransferEncoding::none) return std::nullopt;
                          hasHeader = hasHeader || part.number > 0;
                          Written written{.body = withLineEnds(content, lineEnd), .dropsEncoding = drops};
                          if (!drops) written.encoding = encodingOf(content);
                          return written;
                      }),
             RewrittenForm::transferEncoding, drops ? 2 : 0);
        if (!hasHeader) break;  // the message's own fields are searched anyway
    }
    return made;
}

/// Texts that were sent in base64 or in quoted-printable, as far as it is known how programs write it. A text
/// of short lines in ASCII needs neither.
std::vector<Reading> encoded(const Reading& reading, const MailMessage& message) {
    struct Base64Form {
        std::size_t width;
        std::string_view end;
        int cost;
    };
    constexpr Base64Form forms[] = {{76, "\r\n", 0}, {76, "\n", 1},   {60, "\r\n", 3},
                                    {60, "\n", 3},   {72, "\r\n", 4}, {64, "\r\n", 4}};
    bool isWorth = false;
    std::size_t size = 0;
    eachText(
        reading, message, [&](const MIMEPart& part, const std::string& content) -> std::optional<Written> {
            std::size_t longest = 0;
            for (std::string_view rest = content; !rest.empty();)
                longest = std::max(longest, takePiece(rest, '\n').size());
            size += content.size();
            isWorth = isWorth || part.encoding != TransferEncoding::none || longest > 77 || !isASCII(content);
            return std::nullopt;
        });
    std::vector<Reading> made;
    if (!isWorth || size > largestEncodedText) return made;
    // Who decodes quoted-printable writes it again, or leaves the text as it is.
    const auto given = mimeParts(message, mostPartDepth, mostParts);
    const bool isQuoted = std::ranges::any_of(
        given, [](const MIMEPart& part) { return part.encoding == TransferEncoding::quotedPrintable; });
    for (const Base64Form& form : forms) {
        push(made,
             eachText(reading, message,
                      [&](const MIMEPart&, const std::string& content) -> std::optional<Written> {
                          return Written{
                              .body = encodedBase64Lines(withLineEnds(content, form.end), form.width),
                              .encoding = "base64"};
                      }),
             RewrittenForm::transferEncoding, form.cost + (isQuoted ? 3 : 0));
    }
    int cost = 0;
    for (const QuotedPrintableStyle& style : quotedPrintableStyles) {
        push(made,
             eachText(reading, message,
                      [&](const MIMEPart&, const std::string& content) -> std::optional<Written> {
                          return Written{
                              .body = encodedQuotedPrintable(withLineEnds(content, lineEnd), style),
                              .encoding = "quoted-printable"};
                      }),
             RewrittenForm::transferEncoding, cost++ / 3);
    }
    return made;
}

/// Links that lead through a service, as they were. A text in which there were any is given as it is, so that
/// it can then be encoded as it was, and, in base64, once more.
std::vector<Reading> withSentLinks(const Reading& reading, const MailMessage& message) {
    std::vector<Reading> made;
    bool hasAmpersand = false;
    for (const bool isPage : {true, false}) {  // in which "&" is escaped
        for (const bool isAsItIs : {false, true}) {
            std::int64_t links = 0;
            bool isEncoded = false;
            auto next = eachText(
                reading, message,
                [&](const MIMEPart& part, const std::string& content) -> std::optional<Written> {
                    const auto found = protectedLinks(content);
                    const bool isCoded = part.encoding != TransferEncoding::none;
                    isEncoded = isEncoded || isCoded;
                    // A gateway that writes one part anew writes all of them.
                    if (found.empty() && !(isCoded && !isAsItIs)) return std::nullopt;
                    links += static_cast<std::int64_t>(found.size());
                    const bool isHTML = mediaType(part.contentType) == "text/html";
                    for (const ProtectedLink& link : found)
                        hasAmpersand = hasAmpersand || (isHTML && link.target.find('&') != std::string::npos);
                    std::string text = withoutProtectedLinks(content, found, isHTML && isPage);
                    if (isAsItIs && part.encoding == TransferEncoding::base64)
                        return Written{.body = encodedBase64Lines(text, 76), .encoding = "base64"};
                    Written written{.body = withLineEnds(text, lineEnd)};
                    if (isCoded) written.encoding = encodingOf(text);
                    return written;
                });
            if (!next || links == 0) return made;
            next->links += links;
            push(made, std::move(next),
                 isEncoded ? std::optional(RewrittenForm::transferEncoding) : std::nullopt,
                 (isAsItIs ? 1 : 0) + (isPage ? 0 : 2));
            if (!isEncoded) break;
        }
        if (!hasAmpersand) break;
    }
    return made;
}

/// The text, which is UTF-8, in a character set of single bytes; nothing when it has others.
std::optional<std::string> inCharset(std::string_view text, std::string_view charset,
                                     CharsetDecoder& decoder) {
    std::map<char32_t, char> bytes;
    for (int byte = 0x80; byte < 0x100; ++byte) {
        const char c = static_cast<char>(byte);
        const auto character = decoder.decode(charset, std::string_view(&c, 1));
        if (!character || character->empty()) continue;
        std::string_view rest = *character;
        bytes.emplace(takeScalar(rest), c);
    }
    std::string result;
    while (!text.empty()) {
        const char32_t scalar = takeScalar(text);
        if (scalar < 0x80) {
            result += static_cast<char>(scalar);
        } else if (const auto found = bytes.find(scalar); found != bytes.end()) {
            result += found->second;
        } else {
            return std::nullopt;
        }
    }
    return result;
}

/// Texts beyond ASCII that were sent in another character set, or that a program took for another one when it
/// saved them.
std::vector<Reading> inOtherCharsets(const Reading& reading, const MailMessage& message) {
    constexpr std::string_view charsets[] = {"utf-8",      "iso-8859-1",   "windows-1252", "iso-8859-15",
                                             "iso-8859-2", "windows-1250", "windows-1251", "windows-1254",
                                             "koi8-r",     "iso-8859-9",   "iso-8859-7"};
    CharsetDecoder decoder;
    std::vector<Reading> made;
    int cost = 0;
    // The text as it reads now in another character set; then the same bytes, told to be in it but not read
    // so.
    for (const bool isTold : {true, false}) {
        for (const std::string_view charset : charsets) {
            push(made,
                 eachText(reading, message,
                          [&](const MIMEPart& part, const std::string& content) -> std::optional<Written> {
                              if (part.encoding != TransferEncoding::none || isASCII(content) ||
                                  content.size() > largestEncodedText)
                                  return std::nullopt;
                              const std::string given =
                                  asciiLowered(fieldParameter(part.contentType, "charset"));
                              const std::string_view told = given.empty() ? std::string_view("utf-8") : given;
                              if (isTold && told == charset) return std::nullopt;
                              // Bytes that were read in `charset` and saved as UTF-8, or the reverse.
                              const bool wasSavedAsUTF8 = !isTold && charset != "utf-8";
                              if (!isTold && !wasSavedAsUTF8 && isUTF8(content)) return std::nullopt;
                              const auto text = isTold ? decoder.decode(told, content)
                                                : wasSavedAsUTF8
                                                    ? isUTF8(content) ? std::optional(content) : std::nullopt
                                                    : decoder.decode("windows-1252", content);
                              if (!text) return std::nullopt;
                              auto bytes = charset == "utf-8" ? text : inCharset(*text, charset, decoder);
                              if (!bytes || *bytes == content) return std::nullopt;
                              Written written{.body = std::move(*bytes)};
                              if (isTold) written.charset = charset;
                              return written;
                          }),
                 RewrittenForm::charset, cost++ / 3);
        }
    }
    return made;
}

/// Plain text that a program broke at a width, joined again: a line goes on where the next one's first word
/// would not have fitted.
std::vector<Reading> refilled(const Reading& reading, const MailMessage& message) {
    constexpr std::size_t narrowest = 40, widest = 100;
    std::vector<Reading> made;
    push(made,
         eachText(reading, message,
                  [&](const MIMEPart& part, const std::string& content) -> std::optional<Written> {
                      if (part.encoding != TransferEncoding::none ||
                          mediaType(part.contentType) != "text/plain")
                          return std::nullopt;
                      std::size_t width = 0;
                      for (std::string_view rest = content; !rest.empty();)
                          width = std::max(width, trimmed(takePiece(rest, '\n'), "\r").size());
                      if (width < narrowest || width > widest) return std::nullopt;
                      std::string text;
                      std::size_t last = 0;  // length of the line before, as it is broken now
                      for (std::string_view rest = content; !rest.empty();) {
                          const std::string_view line =
                              rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
                          rest.remove_prefix(line.size());
                          const auto word = std::min(line.find_first_of(" \r\n"), line.size());
                          if (last > 0 && word > 0 && last + 1 + word > width) {
                              text.resize(text.size() - lineEnd.size());
                              text += ' ';
                          }
                          text += line;
                          last = line.ends_with(lineEnd) ? line.size() - lineEnd.size() : 0;
                      }
                      if (text == content) return std::nullopt;
                      return Written{.body = std::move(text)};
                  }),
         RewrittenForm::lineBreaks, 0);
    return made;
}

/// Lines that a scanner wrote into the headers of parts.
std::vector<Reading> withoutPartLines(const Reading& reading, const MailMessage& message) {
    const MailMessage whole = messageOf(reading, message);
    const std::string_view body = whole.body().value_or("");
    std::string made;
    std::size_t at = 0;
    for (const MIMEPart& part : mimeParts(whole, mostPartDepth, mostParts)) {
        bool isSkipping = false;
        const std::size_t end = std::min(part.bodyBegin, part.headerBegin + longestHeader);
        for (std::size_t line = part.headerBegin; line < end;) {
            const std::size_t next = std::min(body.find('\n', line), body.size() - 1) + 1;
            const bool goesOn = isBlank(body[line]);
            isSkipping = goesOn ? isSkipping : startsWithIgnoringCase(body.substr(line, 2), "X-");
            if (isSkipping) {
                made += body.substr(at, line - at);
                at = next;
            }
            line = next;
        }
    }
    if (at == 0) return {};
    made += body.substr(at);
    Reading next = reading.with(std::move(made), 0);
    next.forms.insert(RewrittenForm::partHeaders);
    return {std::move(next)};
}

constexpr Reversal all[] = {
    {1, unencoded}, {1, withSentLinks},   {2, withoutPartLines},
    {2, encoded},   {4, inOtherCharsets}, {4, refilled},
};

}  // namespace

std::span<const Reversal> partReversals() { return all; }

std::vector<HeaderHint> rewrittenTextFields(const MailMessage& message) {
    const HeaderField* given = message.first("Content-Type");
    const std::string_view type = given ? given->raw : std::string_view();
    if (!mediaType(valueIn(type)).starts_with("text/")) return {};
    HeaderHint types{.name = "content-type"};
    types.alternatives =
        typeFields(nameIn(type, "Content-Type"), valueIn(type), isASCII(message.body().value_or("")),
                   fieldParameter(valueIn(type), "charset"));
    return {types,
            {.name = "content-transfer-encoding",
             .alternatives = {{}, {"Content-Transfer-Encoding: 7bit"}, {"Content-Transfer-Encoding: 8bit"}}},
            {.name = "mime-version", .alternatives = {{}}}};
}

}  // namespace quillmark
