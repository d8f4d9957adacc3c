#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillmark {

/// The whole of a file of at most `limit` bytes; nothing when it cannot be read or is larger.
std::optional<std::string> fileContents(const std::filesystem::path& path, std::size_t limit);

/// Puts a file with these bytes in the place of whatever has the name, in one step: whoever reads it sees the
/// old or the new, whole. Only the user may read it (0600), and a folder that has to be made (0700). A
/// symbolic link of that name is replaced, not followed. Throws `std::filesystem::filesystem_error`; then the
/// old file is as it was.
void replaceFile(const std::filesystem::path& path, std::string_view bytes);
/// The same, but throws when anything has the name already.
void createFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace quillmark
