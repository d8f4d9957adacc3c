#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillmark {

class MailMessage;

/// Lines that stood before a message and are no part of it.
struct DroppedLines {
    std::int64_t count = 0;  ///< of those that are not empty
    std::string first = {};
    bool operator==(const DroppedLines&) const = default;
};

/// Those before the first field; nothing where all of them are empty, or there is no field. A line that parts
/// the messages of a mailbox is none of them.
std::optional<DroppedLines> linesBeforeFields(const MailMessage& message);

/// Text that was pasted, as the source of a message (to be parsed leniently).
struct PastedText {
    /// What is certain: the text, without an indentation that all of its lines have, and without lines before
    /// the source that are a summary of it.
    std::string source = {};
    /// The source alone, when lines stand before something that looks like one and could as well be the
    /// message itself: only the person who pasted it knows. Whoever can't ask takes the text as it is, for
    /// the other way round somebody could have a message's text taken for its header.
    std::optional<std::string> withoutLinesBefore = {};
    /// The summary, if there was one, or what stands above the header and is no part of it.
    std::optional<DroppedLines> dropped = {};
};

/// Looks at how text arrives from a window: a message's source with a block of lines before it, or indented.
///
/// An indentation is certain when every line that is not empty has it and at least two header fields begin
/// behind it: in a source itself only the lines that go on with a field are indented. Lines before the
/// source, up to an empty line, are certain to be a summary when they are header lines and short, none of
/// them is a field that servers add, their From, Subject and Date say the same as those of the header that
/// follows at once, and that has a Received or DKIM-Signature field. Anything else is the message itself,
/// lest its sender have it pass for another by quoting that one's source.
PastedText pastedText(std::string_view text);

}  // namespace quillmark
