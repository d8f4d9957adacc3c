#pragma once

#include <filesystem>
#include <functional>
#include <system_error>

namespace quillmark {

/// What is seen on the way through a folder. Each member may be left out.
struct FolderVisitor {
    /// A folder, before what lies in it; whether to go on at all.
    std::function<bool(const std::filesystem::path& folder)> enter = {};
    /// Whatever lies in a folder, folders and links included.
    std::function<void(const std::filesystem::directory_entry& entry)> see = {};
    /// A folder whose entries can't be read, or not all.
    std::function<void(const std::filesystem::path& folder, const std::error_code& error)> fail = {};
};

/// Goes through a folder and those below it, links to folders included; each folder counts once, wherever
/// links lead. Of a file there is nothing to see.
void walkFolder(const std::filesystem::path& root, const FolderVisitor& visitor);

}  // namespace quillmark
