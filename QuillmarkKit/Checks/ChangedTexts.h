#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Checks/Reversals.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// Lines of the text that differ, or a part of the message.
struct ChangedText {
    enum class Place { start, end, inside, part, htmlStart, htmlEnd };
    enum class Kind { added, missing, changed };
    Place place = Place::end;
    Kind kind = Kind::added;
    std::int64_t lines = 0;    ///< that are shown and not signed; of a missing text, those that are missing
    std::int64_t bytes = 0;    ///< of them; of a part that is no text, of its content
    std::string excerpt = {};  ///< of the same
    std::optional<std::string> last = {};           ///< line of them, where `excerpt` doesn't reach it
    std::optional<std::string> type = {};           ///< of a part that was added or is missing
    std::optional<std::int64_t> signedLines = {};   ///< of a changed text, as it was signed
    std::optional<std::string> signedExcerpt = {};  ///< of the same
    /// A program may show what was added in place of what was signed, or hide that by it; or nothing.
    std::optional<bool> alone = {};
    bool operator==(const ChangedText&) const = default;
};
constexpr auto namesOf(ChangedText::Place) {
    return EnumTable<ChangedText::Place, 6>{EnumStyle::word,
                                            {"start", "end", "inside", "part", "htmlStart", "htmlEnd"}};
}
constexpr auto namesOf(ChangedText::Kind) {
    return EnumTable<ChangedText::Kind, 3>{EnumStyle::word, {"added", "missing", "changed"}};
}
constexpr auto fieldsOf(const ChangedText*) {
    using T = ChangedText;
    return std::tuple{Field{"place", &T::place},
                      Field{"kind", &T::kind},
                      Field{"lines", &T::lines},
                      Field{"bytes", &T::bytes},
                      Field{"excerpt", &T::excerpt},
                      Field{"last", &T::last},
                      Field{"type", &T::type},
                      Field{"signedLines", &T::signedLines},
                      Field{"signedExcerpt", &T::signedExcerpt},
                      Field{"alone", &T::alone}};
}

struct TextChanges {
    std::vector<ChangedText> texts = {};  ///< in message order; the last one stands for all that follow
    std::int64_t addedBytes = 0;          ///< by which what is shown is longer where it differs
    bool isWrapped = false;               ///< other multiparts lie around the same parts
    /// What isn't told, since it reads alike once a text is written in another form.
    bool isWritten = false;
};

/// What two messages say to a person, part for part, decoded, and where it differs; how they are written
/// doesn't count, nor do the boundaries of parts and, with `isRelaxed`, the number of blanks. `forms`: in
/// which ways the one may be written otherwise. Linear in the messages but for the bounded comparison.
TextChanges changedTexts(const MailMessage& shown, const MailMessage& asSigned,
                         const std::set<RewrittenForm>& forms, bool isRelaxed);

/// The same of two texts that are no messages, line by line as they stand.
TextChanges changedLines(std::string_view shown, std::string_view asSigned);

}  // namespace quillmark
