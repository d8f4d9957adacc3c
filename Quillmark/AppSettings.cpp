#include "Quillmark/AppSettings.h"

#include <QByteArray>
#include <QStandardPaths>

#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

namespace {

QString qstring(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

UserSettingsStore::UserSettingsStore()
    : UserSettingsStore(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                        "/quillmark/quillmark.conf") {}

UserSettingsStore::UserSettingsStore(const QString& file) {
    if (isFitForSettings(file.toStdString())) m_settings.emplace(file, QSettings::IniFormat);
}

std::optional<std::string> UserSettingsStore::bytes(std::string_view key) const {
    const QVariant value = m_settings ? m_settings->value(qstring(key)) : QVariant();
    if (!value.isValid()) return std::nullopt;
    return value.toByteArray().toStdString();
}

void UserSettingsStore::setBytes(std::string_view key, std::string_view bytes) {
    if (!m_settings) return;
    m_settings->setValue(qstring(key), QByteArray(bytes.data(), static_cast<qsizetype>(bytes.size())));
    m_settings->sync();
}

std::optional<std::string> MemorySettingsStore::bytes(std::string_view key) const {
    const auto found = m_values.find(key);
    return found != m_values.end() ? std::optional(found->second) : std::nullopt;
}

void MemorySettingsStore::setBytes(std::string_view key, std::string_view bytes) {
    m_values.insert_or_assign(std::string(key), std::string(bytes));
}

AppSettings loadSettings(const SettingsStore& store) {
    const auto stored = store.bytes(settingsKey);
    return stored ? settingsFromJSON(*stored) : AppSettings();
}

void saveSettings(const AppSettings& settings, SettingsStore& store) {
    store.setBytes(settingsKey, encoded(settings));
}

AppOptions loadOptions(const SettingsStore& store) {
    const auto stored = store.bytes(optionsKey);
    return stored ? optionsFromJSON(*stored) : AppOptions();
}

void saveOptions(const AppOptions& options, SettingsStore& store) {
    store.setBytes(optionsKey, encoded(options));
}

}  // namespace quillmark
