#include "Settings/StoredSettings.h"

#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "QuillmarkKit/Support/Text.h"
#include "Settings/UserFolders.h"

namespace quillmark {

namespace {

constexpr std::size_t largestSettings = 1 << 16;  // bytes of JSON

/// What a character behind a backslash stands for.
char unescaped(char c) {
    switch (c) {
        case 'a':
            return '\a';
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case 'v':
            return '\v';
        case '0':
            return '\0';
        default:
            return c;
    }
}

/// What stands between a pair of quotes, up to the closing one, or all of a value that needs none. "\x" and
/// hexadecimal digits, which only other bytes than those of our JSON need, are no value of ours.
std::optional<std::string> unquoted(std::string_view text) {
    const bool isQuoted = text.starts_with('"');
    if (isQuoted) text.remove_prefix(1);
    std::string value;
    while (!text.empty() && !(isQuoted && text.front() == '"')) {
        const bool isEscape = text.front() == '\\';
        if (isEscape) text.remove_prefix(1);
        if (text.empty() || (isEscape && text.front() == 'x')) return std::nullopt;
        value += isEscape ? unescaped(text.front()) : text.front();
        text.remove_prefix(1);
    }
    return isQuoted && text.empty() ? std::nullopt : std::optional(value);
}

template <typename Choices>
Choices choicesFromJSON(std::string_view json) {
    try {
        return decoded<Choices>(parsedJSON(json, largestSettings), MissingMembers::keepDefault);
    } catch (const DecodingError&) {
        return {};
    }
}

std::optional<std::string> storedJSON(const std::filesystem::path& file, std::string_view key) {
    const auto text = fileContents(file, largestSettingsFile);
    return text ? storedBytes(*text, key) : std::nullopt;
}

}  // namespace

AppSettings settingsFromJSON(std::string_view json) { return choicesFromJSON<AppSettings>(json); }

AppOptions optionsFromJSON(std::string_view json) { return choicesFromJSON<AppOptions>(json); }

std::optional<std::string> storedBytes(std::string_view file, std::string_view key) {
    constexpr std::string_view begin = "@ByteArray(", end = ")";
    bool isFirstSection = false;
    while (!file.empty()) {
        const std::string_view line = trimmed(takePiece(file, '\n'));
        if (line.starts_with('[')) isFirstSection = line == "[General]";
        const auto equals = line.find('=');
        if (!isFirstSection || equals == std::string_view::npos || line.substr(0, equals) != key) continue;
        const auto value = unquoted(line.substr(equals + 1));
        if (!value || !value->starts_with(begin) || !value->ends_with(end)) return std::nullopt;
        return value->substr(begin.size(), value->size() - begin.size() - end.size());
    }
    return std::nullopt;
}

std::optional<AppSettings> storedSettings(const std::filesystem::path& file) {
    const auto json = storedJSON(file, settingsKey);
    return json ? std::optional(settingsFromJSON(*json)) : std::nullopt;
}

AppOptions storedOptions(const std::filesystem::path& file) {
    const auto json = storedJSON(file, optionsKey);
    return json ? optionsFromJSON(*json) : AppOptions();
}

bool isFitForSettings(const std::filesystem::path& file) {
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status)) return true;
    return std::filesystem::is_regular_file(status) &&
           std::filesystem::file_size(file, error) <= largestSettingsFile;
}

std::optional<std::filesystem::path> settingsFile() {
    const auto folder = settingsFolder();
    return folder ? std::optional(*folder / "quillmark.conf") : std::nullopt;
}

}  // namespace quillmark
