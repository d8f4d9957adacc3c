#pragma once

#include <QSettings>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Settings/StoredSettings.h"

namespace quillmark {

/// Keeps bytes under a key, for one person, from one run to the next. Fails without a word.
class SettingsStore {
public:
    SettingsStore() = default;
    SettingsStore(const SettingsStore&) = delete;
    SettingsStore& operator=(const SettingsStore&) = delete;
    virtual ~SettingsStore() = default;

    virtual std::optional<std::string> bytes(std::string_view key) const = 0;
    virtual void setBytes(std::string_view key, std::string_view bytes) = 0;
};

/// The store of the person who runs the program: a file in their folder for settings. One that is not fit is
/// left alone, and nothing is kept.
class UserSettingsStore : public SettingsStore {
public:
    /// "quillmark/quillmark.conf" in the person's folder for settings ($XDG_CONFIG_HOME, else ~/.config).
    UserSettingsStore();
    explicit UserSettingsStore(const QString& file);

    std::optional<std::string> bytes(std::string_view key) const override;
    void setBytes(std::string_view key, std::string_view bytes) override;

private:
    std::optional<QSettings> m_settings = {};
};

/// Forgets with the run.
class MemorySettingsStore : public SettingsStore {
public:
    std::optional<std::string> bytes(std::string_view key) const override;
    void setBytes(std::string_view key, std::string_view bytes) override;

private:
    std::map<std::string, std::string, std::less<>> m_values = {};
};

/// What is stored under "settings".
AppSettings loadSettings(const SettingsStore& store);
void saveSettings(const AppSettings& settings, SettingsStore& store);
/// What is stored under "options".
AppOptions loadOptions(const SettingsStore& store);
void saveOptions(const AppOptions& options, SettingsStore& store);

}  // namespace quillmark
