#pragma once

#include <string>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

namespace quillmark {

/// "[OK]" and the like in the text report: as they are, or with the escape sequences that colour them on a
/// terminal.
enum class Markers { plain, coloured };

/// The readable record of a check: lines with a line feed between them and none after the last. Each field
/// is one line, whatever it holds, and no text of somebody else's stands where a marker or a label would:
/// nothing in a message can pass for a line of the report. Long lists are cut; the JSON form has them whole.
std::string textReport(const ProofReport& report, const Reader& reader, Markers markers = Markers::plain);

}  // namespace quillmark
