#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

namespace quillmark {

/// "[OK]" and the like in the text report: as they are, or with the escape sequences that colour them on a
/// terminal.
enum class Markers { plain, coloured };

/// How a text report is laid out: as it is for a file, unless it is for a terminal.
struct TextLayout {
    Markers markers = Markers::plain;
    std::size_t width = 0;  ///< columns, in which lines are `wrapped`; 0: each line is whole
};

/// The readable record of a check: lines with a line feed between them and none after the last. Each field
/// is one line, whatever it holds, and no text of somebody else's stands where a marker or a label would:
/// nothing in a message can pass for a line of the report. Long lists are cut; the JSON form has them whole.
/// What the verdict means follows it only where there is something to beware of: a note, a warning sign or a
/// reservation about the signature.
/// `expected`: the domain or address that the reader believes it is from, to which one line answers; may be
/// empty.
std::string textReport(const ProofReport& report, const Reader& reader, const TextLayout& layout = {},
                       std::string_view expected = {});

}  // namespace quillmark
