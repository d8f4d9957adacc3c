#pragma once

#include <optional>
#include <string>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// The words for what a person must know that the verdict does not say.
namespace quillmark {

std::string sentence(const ReportNote& note, const Reader& reader);

/// The lines that stand under it where there is room: what was and what is, as it is written. Each is inert;
/// two blanks more for each step in.
std::vector<std::string> details(const ReportNote& note, const Reader& reader);

/// The sentence as it stands beside the headline, where it may be shorter.
std::string sentenceBesideHeadline(const ReportNote& note, const Reader& reader);

/// The part of a report that a note belongs to.
enum class NoteSection { message, signatures, sendingServer, policy, chain, receiverResults };
NoteSection sectionOf(const ReportNote& note);

/// Caution, or nothing for what only informs.
std::optional<Tone> tone(const ReportNote& note);

/// Whether the headline of a verdict of this tone alone would mislead: such a note is also said beside it.
bool standsBesideHeadline(const ReportNote& note, Tone verdict);

}  // namespace quillmark
