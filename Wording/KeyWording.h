#pragma once

#include <cstddef>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "Wording/Reader.h"

/// The lines that tell of the key book, in every program.
namespace quillmark {

/// Why the book can't be used, in one line. Nothing was changed in it.
std::string keyBookProblem(const std::exception& error, const std::filesystem::path& book,
                           const Reader& reader);

/// Who says that a name had a key: this computer, or a file.
std::string sourceOfKey(const KnownKey& key, const Reader& reader);
/// "RSA, 2048 bits", "Ed25519".
std::string kindOfKey(const KnownKey& key, const Reader& reader);
/// A key in one line: name, days, kind, and who says so.
std::string keyLine(const KnownKey& key, const Reader& reader);
/// All of it, in a few lines.
std::vector<std::string> keyLines(const KnownKey& key, const Reader& reader);

/// What was found out of `count` signatures: how many messages of which years, and the key.
std::vector<std::string> derivedKeyLines(const KnownKey& key, std::size_t count, int bits,
                                         const Reader& reader);
/// What that proves.
std::string derivedKeysMeaning(const Reader& reader);

}  // namespace quillmark
