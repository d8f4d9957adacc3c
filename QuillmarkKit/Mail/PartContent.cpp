#include "QuillmarkKit/Mail/PartContent.h"

#include <algorithm>

#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestHeader = 20'000;  // of a part, that is read for its file's name
constexpr std::size_t longestName = 1'000;     // of a file

std::string_view rawContent(const MailMessage& message, const MIMEPart& part) {
    return message.body().value_or("").substr(part.bodyBegin, part.bodyEnd - part.bodyBegin);
}

/// A parameter's value in plain form, or in that of RFC 2231, section 4, without continuations.
std::string nameIn(std::string_view value, const std::string& parameter) {
    std::string name = fieldParameter(value.substr(0, longestHeader), parameter);
    if (!name.empty()) return EncodedWords::decode(decodedText(name));
    const std::string extended = fieldParameter(value.substr(0, longestHeader), parameter + "*");
    const auto language = extended.find('\'');
    const auto text = language == std::string::npos ? language : extended.find('\'', language + 1);
    if (text == std::string::npos) return decodedText(extended);
    CharsetDecoder decoder;
    const std::string bytes = decodedEscapes(std::string_view(extended).substr(text + 1));
    const auto decoded = decoder.decode(extended.substr(0, language), bytes);
    return decoded ? *decoded : decodedText(bytes);
}

}  // namespace

std::string mediaType(std::string_view contentType) {
    std::string type = contentTypeName(contentType);
    return type.empty() ? "text/plain" : type;
}

std::string decodedContent(const MailMessage& message, const MIMEPart& part) {
    return decodedBytes(part.encoding, rawContent(message, part));
}

std::string textOf(const MailMessage& message, const MIMEPart& part, CharsetDecoder& decoder) {
    std::string content = decodedContent(message, part);
    const std::string charset = fieldParameter(part.contentType, "charset");
    auto decoded = decoder.decode(charset.empty() ? "utf-8" : charset, content);
    std::string text = decoded ? std::move(*decoded) : decodedText(content);
    if (part.encoding == TransferEncoding::base64) {
        const std::string_view raw = rawContent(message, part);
        const auto behind = raw.find_first_not_of("= \t\r\n", std::min(raw.find('='), raw.size()));
        if (behind != std::string_view::npos) {
            if (!text.empty() && !text.ends_with('\n')) text += '\n';
            text += decodedText(raw.substr(behind));
        }
    }
    return text;
}

std::string fileNameOf(const MailMessage& message, const MIMEPart& part) {
    std::string name;
    if (part.number == 0) {
        if (const HeaderField* field = message.first("Content-Disposition"))
            name = nameIn(field->valueBytes(), "filename");
    } else {
        const std::string_view header =
            message.body().value_or("").substr(part.headerBegin, part.bodyBegin - part.headerBegin);
        const MailMessage own = MailMessage::parse(header.substr(0, longestHeader));
        if (const HeaderField* field = own.first("Content-Disposition"))
            name = nameIn(field->valueBytes(), "filename");
    }
    if (name.empty()) name = nameIn(part.contentType, "name");
    return name.size() > longestName ? repairedUTF8(name.substr(0, longestName)) : name;
}

}  // namespace quillmark
