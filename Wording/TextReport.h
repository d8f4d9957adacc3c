#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

/// One page of it for somebody to whom the message's reader turns, such as a bank: the verdict and what must
/// be seen first, what the message says, a line for each finding, and what to do with it. `digest`: the
/// message's SHA-256, where that is known.
std::string textPage(const ProofReport& report, const Reader& reader, const TextLayout& layout,
                     std::string_view expected, const std::optional<std::string>& digest);

/// What somebody has to know who is given that page: sentences.
std::vector<std::string> forWhoeverIsGivenIt(const Reader& reader);

}  // namespace quillmark
