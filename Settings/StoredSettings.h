#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Verifier.h"

/// What the person chose in the window, as it is kept from one run to the next.
namespace quillmark {

struct AppSettings {
    bool onboardingDone = false;  ///< the welcome sheet has been shown and dismissed
    bool checkDomainAge = true;   ///< registries may be asked when domains were registered
    bool keepHistory = true;      ///< reports are kept from one run to the next
    bool operator==(const AppSettings&) const = default;
};
constexpr auto fieldsOf(const AppSettings*) {
    return std::tuple{Field{"onboardingDone", &AppSettings::onboardingDone},
                      Field{"checkDomainAge", &AppSettings::checkDomainAge},
                      Field{"keepHistory", &AppSettings::keepHistory}};
}

/// Choices that came later, and have a key of their own.
struct AppOptions {
    std::string resolver = "usual";  ///< who is asked for DNS records: see `chosenResolver`
    bool rememberKeys = true;        ///< keys that DNS gives are kept in the key book
    bool judgeByRFC9989 = false;     ///< DMARC is judged by its rules of 2026
    bool operator==(const AppOptions&) const = default;

    CheckRules rules() const { return {.dmarc = judgeByRFC9989 ? DMARCRules::rfc9989 : DMARCRules::rfc7489}; }
};
constexpr auto fieldsOf(const AppOptions*) {
    return std::tuple{Field{"resolver", &AppOptions::resolver},
                      Field{"rememberKeys", &AppOptions::rememberKeys},
                      Field{"judgeByRFC9989", &AppOptions::judgeByRFC9989}};
}

/// The keys that they are stored under.
constexpr std::string_view settingsKey = "settings", optionsKey = "options";
/// A file of settings that is larger, in bytes, is none of ours.
constexpr std::size_t largestSettingsFile = 1 << 20;

/// Choices as they are stored: JSON. One that is missing has its default; when there is anything but a JSON
/// object whose members are what they should be, all have.
AppSettings settingsFromJSON(std::string_view json);
AppOptions optionsFromJSON(std::string_view json);

/// The bytes under a key of the first section in the text of a settings file: "key=\"@ByteArray(…)\"", or
/// without the quotes, with the escapes of an INI file. Nothing when there is no such line.
std::optional<std::string> storedBytes(std::string_view file, std::string_view key);

/// The choices in a settings file; nothing when none are stored there, or it is no file that can be read.
std::optional<AppSettings> storedSettings(const std::filesystem::path& file);
/// The same of those that came later; the defaults when none are stored there.
AppOptions storedOptions(const std::filesystem::path& file);

/// Whether a file of settings may be opened: there is none, or it is a file like those we write. Reading a
/// pipe would not end, and noise of many megabytes takes long.
bool isFitForSettings(const std::filesystem::path& file);

/// "quillmark/quillmark.conf" in the person's folder for settings ($XDG_CONFIG_HOME, else ~/.config); nothing
/// when the environment names no folder.
std::optional<std::filesystem::path> settingsFile();

}  // namespace quillmark
