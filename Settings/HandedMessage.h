#pragma once

#include <filesystem>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Intake/Intake.h"

/// A message on its way from another program of ours to the window: a file in the folder of the session,
/// under a name that nobody can foresee, which the window removes as soon as it has read it.
namespace quillmark {

/// Writes the bytes into a new file of `folder` (`sessionFolder`) that only the user may read, and removes
/// what was never taken from there. Throws `std::filesystem::filesystem_error`.
std::filesystem::path handMessage(std::string_view bytes, const std::filesystem::path& folder);

/// Whether a file of this name in `folder` is such a message: no other may be removed.
bool isHandedMessage(const std::filesystem::path& file, const std::filesystem::path& folder);

/// The bytes of one, which is gone then.
std::variant<ByteBuffer, Refusal> takeHandedMessage(const std::filesystem::path& file);

}  // namespace quillmark
