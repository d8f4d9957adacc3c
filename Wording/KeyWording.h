#pragma once

#include <exception>
#include <filesystem>
#include <string>

#include "Wording/Reader.h"

/// The lines that tell of the key book, in every program.
namespace quillmark {

/// Why the book can't be used, in one line. Nothing was changed in it.
std::string keyBookProblem(const std::exception& error, const std::filesystem::path& book,
                           const Reader& reader);

}  // namespace quillmark
