#pragma once

#include <string>
#include <string_view>

#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Support/Unicode.h"

/// What a part of a message holds, for a person. A part is one of the message that it is given with.
namespace quillmark {

/// The type as readers take it, in lower case: "text/plain" where the part names none (RFC 2045,
/// section 5.2).
std::string mediaType(std::string_view contentType);
inline std::string mediaType(const MIMEPart& part) { return mediaType(part.contentType); }

/// Its content, the transfer encoding undone.
std::string decodedContent(const MailMessage& message, const MIMEPart& part);

/// The same as text, by the character set that it names; bytes that are not valid in it as `decodedText`.
/// What stands behind the end of base64, which some programs show, follows as it is.
std::string textOf(const MailMessage& message, const MIMEPart& part, CharsetDecoder& decoder);

/// The name that a file of it is given (RFC 2183, section 2.3; RFC 2231, section 4), as text; else the one in
/// its type; empty without one.
std::string fileNameOf(const MailMessage& message, const MIMEPart& part);

}  // namespace quillmark
