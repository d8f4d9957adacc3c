#pragma once

#include <string>
#include <string_view>

#include "Manual/CommandTable.h"

namespace quillmark {

/// The program's page for section 1, for groff or mandoc. `date` is that of the version, as 2026-11-21.
std::string manPage(const CommandTable& program, const std::string& version, const std::string& date);

/// A chapter of the book as the page quillmark-formats of section 5. Of Markdown it takes what the book uses:
/// headings of two levels, paragraphs, lists, tables, indented text, `code`, **strong** and [links](of which
/// the text stays); what comes behind a line "---" leads to other chapters and is left out. Throws
/// std::invalid_argument, with the line, where there is anything else.
std::string formatsPage(std::string_view markdown, const std::string& version, const std::string& date);

}  // namespace quillmark
