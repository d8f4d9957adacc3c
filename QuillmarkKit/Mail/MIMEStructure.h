#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Mail/TransferEncodings.h"

namespace quillmark {

/// In bytes; a boundary of more is none (RFC 2046 allows 70).
constexpr std::size_t longestBoundary = 200;

/// The type that a Content-Type value names, in lower case, without blanks and comments: "text/plain".
std::string contentTypeName(std::string_view value);

/// The values of a parameter in order: of several, programs differ in which they take. Otherwise as
/// `fieldParameter`.
std::vector<std::string> fieldParameters(std::string_view value, std::string_view name);
/// The value of a parameter of a structured field such as Content-Type (RFC 2045, section 5.1), quoting
/// undone; empty without one. `value` is what stands behind the colon; the name is matched without regard to
/// case.
std::string fieldParameter(std::string_view value, std::string_view name);

/// One part of a message (RFC 2046, section 5.1), or the whole of it. Places are bytes from the beginning of
/// the message's body; views are valid while any copy of the message lives.
struct MIMEPart {
    enum class Kind { other, message, multipart };
    Kind kind = Kind::other;
    std::size_t number = 0;  ///< counted from the message itself, which is 0, each before the parts inside it
    std::optional<std::size_t> parent = {};  ///< the number of the multipart that it lies in
    std::size_t depth = 0;                   ///< of multiparts around it

    std::size_t begin = 0;        ///< of the boundary line in front of it
    std::size_t headerBegin = 0;  ///< behind that line
    std::size_t bodyBegin = 0;    ///< behind the empty line that ends its header; `end` when there is none
    /// Of its content; the line end in front of a boundary belongs to the boundary.
    std::size_t bodyEnd = 0;
    std::size_t end = 0;  ///< of the part: where the next boundary line begins, or the body ends

    std::string_view contentType = {};  ///< the value of the first such field, folding kept
    TransferEncoding encoding = TransferEncoding::none;
    bool isDigest = false;      ///< multiparts whose parts are messages unless they say otherwise
    std::string boundary = {};  ///< of multiparts, without the hyphens
    /// Of multiparts: their last boundary line, with its line end; nothing when they are never closed.
    struct Line {
        std::size_t begin = 0, end = 0;
        bool operator==(const Line&) const = default;
    };
    std::optional<Line> closing = {};
    bool operator==(const MIMEPart&) const = default;
};

/// The parts of a message, one after the other, in one walk through the lines of its body however they are
/// nested: each when its end is known, so that a multipart comes after the parts in it. The content of
/// attached messages is not looked into.
class MIMEWalker {
public:
    /// Multiparts inside `mostDepth` others are parts like any other.
    explicit MIMEWalker(MailMessage message, std::size_t mostDepth);

    std::optional<MIMEPart> next();

private:
    std::string_view takeLine();
    struct Boundary {
        std::size_t open;  // how many multiparts are open behind it
        bool isClosing;
    };
    std::optional<Boundary> boundaryAt(std::string_view line) const;
    void takeBoundary(const Boundary& boundary, std::size_t begin);
    void takeHeaderLine(std::string_view line);
    void takeValue(std::string_view MIMEWalker::* field, std::optional<std::string_view> value);
    void beginContent();
    void end(MIMEPart part, std::size_t at);

    MailMessage m_message;
    std::size_t m_mostDepth;
    std::string_view m_body, m_rest;
    std::size_t m_count = 0;              // of the parts begun
    std::vector<MIMEPart> m_open = {};    // multiparts inside each other
    std::optional<MIMEPart> m_part = {};  // the one that is read, unless it is a multipart
    bool m_isInHeader = false, m_isAtEnd = false;
    std::string_view m_contentType = {}, m_encoding = {};  // of the part whose header is read
    std::string_view MIMEWalker::* m_last = nullptr;       // the one that a folded line goes on with
    std::vector<MIMEPart> m_ended = {};                    // and not yet given, the next one last
};

/// The first `mostParts` parts of a message in their order (`number`), the message itself among them. Linear
/// in the message.
std::vector<MIMEPart> mimeParts(const MailMessage& message, std::size_t mostDepth, std::size_t mostParts);

}  // namespace quillmark
