#include "Settings/HandedMessage.h"

#include <chrono>
#include <string>
#include <system_error>

#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/UUID.h"

namespace quillmark {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = "quillmark-message-", suffix = ".eml";
/// Longer than a window takes to start.
constexpr std::chrono::minutes longestWay{10};

void removeForgotten(const fs::path& folder) {
    std::error_code ignored;
    for (fs::directory_iterator each(folder, ignored), end; !ignored && each != end;
         each.increment(ignored)) {
        std::error_code error;
        const auto written = each->last_write_time(error);
        const bool isOld = !error && fs::file_time_type::clock::now() - written > longestWay;
        if (isOld && isHandedMessage(each->path(), folder)) fs::remove(each->path(), error);
    }
}

}  // namespace

fs::path handMessage(std::string_view bytes, const fs::path& folder) {
    removeForgotten(folder);
    const fs::path file = folder / (std::string(prefix) + UUID::random().text() + std::string(suffix));
    createFile(file, bytes);
    return file;
}

bool isHandedMessage(const fs::path& file, const fs::path& folder) {
    const std::string name = file.filename().string();
    if (file.lexically_normal() != (folder / name).lexically_normal()) return false;
    if (name.size() <= prefix.size() + suffix.size()) return false;
    const auto id = std::string_view(name).substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    return name.starts_with(prefix) && name.ends_with(suffix) && UUID::parse(id);
}

std::variant<ByteBuffer, Refusal> takeHandedMessage(const fs::path& file) {
    auto bytes = readFile(file.string());
    std::error_code ignored;
    fs::remove(file, ignored);
    return bytes;
}

}  // namespace quillmark
