#pragma once

#include <optional>
#include <string>

#include "QuillmarkKit/Report.h"

/// Reports as a table for spreadsheets (RFC 4180): one row for each, in UTF-8, every cell in quotes.
namespace quillmark {

/// The row of the columns' names, which are the same in every language. The column `sha256` is there only
/// when it is asked for.
enum class Digests { leftOut, asked };
std::string csvHeader(Digests digests = Digests::leftOut);

/// A report's row. No cell begins with what a spreadsheet takes for a formula ("=", "+", "-", "@", a tab or
/// CR, blanks in front or not): such a text has an apostrophe before it. No cell holds control characters.
/// `path`: where the message lies; empty for standard input. `sha256`: of its bytes, when that is asked for.
std::string csvRow(const ProofReport& report, const std::string& path,
                   const std::optional<std::string>& sha256 = {});

}  // namespace quillmark
