#pragma once

#include <string>
#include <string_view>

#include "Manual/CommandTable.h"
#include "Manual/Help.h"

namespace quillmark {

/// What a page says besides what stands in the table.
struct ManPageWords {
    std::string summary = "find out who can be proven to have sent an email";
    HelpWords usage = {};
};

/// The program's page for section 1, for groff or mandoc, in UTF-8. `date` is that of the version, as
/// 2026-11-21. `words` and the table's texts are in one language; the headings are English in each.
std::string manPage(const CommandTable& program, const std::string& version, const std::string& date,
                    const ManPageWords& words = {});

/// A chapter of the book as the page quillmark-formats of section 5. Of Markdown it takes what the book uses:
/// headings of two levels, paragraphs, lists, tables, indented text, `code`, **strong** and [links](of which
/// the text stays); what comes behind a line "---" leads to other chapters and is left out. Throws
/// std::invalid_argument, with the line, where there is anything else.
std::string formatsPage(std::string_view markdown, const std::string& version, const std::string& date);

}  // namespace quillmark
