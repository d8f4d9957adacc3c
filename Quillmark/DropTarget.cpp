#include "Quillmark/DropTarget.h"

#include <QMimeData>
#include <QUrl>
#include <algorithm>
#include <array>
#include <optional>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Intake/PastedText.h"

namespace quillmark {

namespace {

const QString messageType = QStringLiteral("message/rfc822");
// A mail program that hands over neither file nor data often leaves the place of the message under a name of
// its own.
const QString placeOfMessageType = QStringLiteral("text/x-moz-message");

constexpr std::size_t mostOffered = 5'000'000;  // bytes

/// The local files among the links; nothing when there is none.
std::optional<DropContents::Files> filesOf(const QList<QUrl>& urls) {
    DropContents::Files files;
    for (const QUrl& url : urls) {
        if (!url.isLocalFile()) continue;
        files.paths.push_back(url.toLocalFile().toLocal8Bit().toStdString());
    }
    if (files.paths.empty()) return std::nullopt;
    return files;
}

bool looksLikeMessage(const std::string& text) {
    return std::holds_alternative<MailMessage>(messageIn(ByteBuffer(text), ParseMode::lenient));
}

/// Whether text is nothing but one address of something elsewhere: "imap://…", "mid:…", "https://…".
bool isLink(const QString& text) {
    const QString line = text.trimmed();
    if (line.isEmpty() || line.size() > 4096 || line.contains(u' ') || line.contains(u'\n')) return false;
    const QUrl url(line, QUrl::StrictMode);
    return url.isValid() && !url.isRelative();
}

}  // namespace

DropContents dropContents(const QMimeData& data) {
    if (auto files = filesOf(data.urls())) return {std::move(*files)};
    if (data.hasFormat(messageType)) {
        QByteArray bytes = data.data(messageType);
        if (!bytes.isEmpty()) return {DropContents::Data{std::move(bytes)}};
    }
    std::string text = data.text().toStdString();
    const bool link = data.hasUrls() || data.hasFormat(placeOfMessageType) || isLink(data.text());
    if (!text.empty() && (!link || looksLikeMessage(text))) return {DropContents::Text{std::move(text)}};
    if (link) return {DropContents::LinkOnly{}};
    return {};
}

bool holdsMessage(const DropContents& contents) {
    if (std::holds_alternative<DropContents::Data>(contents.value)) return true;
    const auto* text = std::get_if<DropContents::Text>(&contents.value);
    if (!text || text->text.size() > mostOffered) return false;
    const auto taken = messageIn(ByteBuffer(pastedText(text->text).source), ParseMode::lenient);
    const auto* message = std::get_if<MailMessage>(&taken);
    return message && message->first("From") &&
           std::ranges::any_of(std::array{"Received", "Message-ID", "DKIM-Signature"},
                               [&](const char* name) { return message->first(name) != nullptr; });
}

bool mayHoldMessage(const QMimeData& data) {
    return data.hasUrls() || data.hasFormat(messageType) || data.hasFormat(placeOfMessageType) ||
           data.hasText();
}

}  // namespace quillmark
