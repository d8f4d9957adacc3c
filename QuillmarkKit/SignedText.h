#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "QuillmarkKit/Checks/Undo.h"
#include "QuillmarkKit/Mail/Message.h"

namespace quillmark {

/// A message as it is shown beside the message as it was signed, for a person to read: fields, then the text
/// in its order, decoded, never interpreted (a page stands as its source). Every text is inert, one line.
struct SignedText {
    /// The values of the fields of one name, topmost first, encoded words decoded.
    struct Field {
        enum class Kind { same, changed, notSigned };
        Kind kind = Kind::same;
        std::string name = {};  ///< lower-case
        std::vector<std::string> shown = {}, signedValues = {};
        bool operator==(const Field&) const = default;
    };
    /// Where a part begins.
    struct Part {
        std::string type = {};  ///< "text/html"
        std::string name = {};  ///< of its file; empty without one
        /// Of what is no text, and stands for it.
        struct Content {
            std::int64_t bytes = 0;
            std::string sha256 = {};  ///< in hexadecimal digits
            bool operator==(const Content&) const = default;
        };
        std::optional<Content> content = {};
        bool operator==(const Part&) const = default;
    };
    struct Line {
        std::string text = {};
        std::optional<Part> part = {};  ///< in place of a text
        bool operator==(const Line&) const = default;
    };
    /// Lines that follow each other.
    struct Block {
        enum class Kind {
            same,      ///< as they were signed
            added,     ///< not signed
            missing,   ///< signed, and no longer there
            changed,   ///< not signed; a block of what was signed in their place follows
            replaced,  ///< that one
            folded,    ///< as they were signed, and left out
        };
        Kind kind = Kind::same;
        std::vector<Line> lines = {};  ///< the first ones, without those that follow
        /// Of all its lines of text; neither parts nor empty lines around a change that is shown whole.
        std::int64_t count = 0;
        bool operator==(const Block&) const = default;
    };
    std::vector<Field> fields = {};  ///< those that a person reads, and others that differ
    std::vector<Block> blocks = {};
    std::int64_t moreLines = 0;   ///< of a text that is too long to be shown whole
    bool hasMoreChanges = false;  ///< whether some of them are not as they were signed
    bool operator==(const SignedText&) const = default;
};

/// The fields of a message that a person reads, each of the kind `same`.
std::vector<SignedText::Field> fieldsToRead(const MailMessage& message);

/// Of `asSigned`, which is what `undo` found of the message. `told`: the fields that differ. A blank more or
/// less makes no line another. Linear in both messages but for the bounded comparison of lines; what it gives
/// is bounded.
SignedText signedText(const MailMessage& shown, const MailMessage& asSigned,
                      std::span<const ChangedField> told);

}  // namespace quillmark
