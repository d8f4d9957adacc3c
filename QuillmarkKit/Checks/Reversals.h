#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Checks/HeaderAlternatives.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Fields.h"

/// What is done to bodies on their way, taken back: each makes, of a body as it came, bodies as they may have
/// been sent.
namespace quillmark {

/// What was written otherwise and reads alike.
enum class RewrittenForm {
    transferEncoding,
    charset,
    fromQuoting,
    dots,
    blanks,
    blankLines,
    lineBreaks,
    indentation,
    typography,
    lineEnds,
    wrapped,
    folding,
    fieldNames,
    partHeaders,
};
constexpr auto namesOf(RewrittenForm) {
    return EnumTable<RewrittenForm, 14>{
        EnumStyle::word,
        {"transferEncoding", "charset", "fromQuoting", "dots", "blanks", "blankLines", "lineBreaks",
         "indentation", "typography", "lineEnds", "wrapped", "folding", "fieldNames", "partHeaders"}};
}

/// Whether the lines of a text that a person reads are others in this form.
bool changesLines(RewrittenForm form);

/// Quotation marks, dashes and blanks as one types them (UTF-8).
std::string withPlainTypography(std::string_view text);

/// A body as it may have been sent.
struct Reading {
    std::shared_ptr<const std::string> bytes = {};  ///< that `body` lies in; null for the body as it came
    std::string_view body = {};
    std::vector<HeaderHint> hints = {};  ///< what it says of the header
    std::set<RewrittenForm> forms = {};  ///< what was taken back, as far as it reads alike
    std::int64_t links = 0;              ///< that were written back
    int cost = 0;                        ///< how unusual it is
    int steps = 0;                       ///< how many changes were taken back

    /// A reading one step further.
    Reading with(std::string body, int cost) const;
    /// The first field of this name (lower-case) as it stood, as raw bytes; empty without one.
    std::string_view field(const MailMessage& message, std::string_view name) const;
    /// Says how the fields of a name stood, in place of what was said before.
    void hint(HeaderHint hint);
};

/// A message with the fields that say what the body is, and a body: that of the reading, or its canonical
/// form.
MailMessage messageOf(const Reading& reading, const MailMessage& message, std::string_view body);
inline MailMessage messageOf(const Reading& reading, const MailMessage& message) {
    return messageOf(reading, message, reading.body);
}

/// One kind of change taken back.
struct Reversal {
    int cost = 0;  ///< added to that of the reading
    /// The readings that come of one, and none when it holds nothing of the kind. Linear in the body.
    std::vector<Reading> (*apply)(const Reading& reading, const MailMessage& message) = nullptr;
};

/// The cheap ones first.
std::span<const Reversal> reversals();

}  // namespace quillmark
