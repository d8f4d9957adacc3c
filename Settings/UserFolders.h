#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

/// The person's folders (XDG base directories), as all programs see them.
namespace quillmark {

/// That of what is kept from run to run, the history among it, for `HistoryFile::defaultLocation`.
constexpr std::string_view dataFolderName = "Quillmark";

/// "quillmark" in the folder for what can be fetched again ($XDG_CACHE_HOME, else ~/.cache); nothing when the
/// environment names no folder.
std::optional<std::filesystem::path> cacheFolder();

/// "quillmark" in the folder for settings ($XDG_CONFIG_HOME, else ~/.config); nothing when the environment
/// names no folder.
std::optional<std::filesystem::path> settingsFolder();

/// The folder of this session ($XDG_RUNTIME_DIR), which goes when it ends; nothing unless it is there, the
/// person's, and nobody else may look into it.
std::optional<std::filesystem::path> sessionFolder();

}  // namespace quillmark
