#pragma once

#include <QDialog>
#include <vector>

#include "Quillmark/TextBlocks.h"

class QPushButton;
class QTabWidget;

namespace quillmark {

class TextPanel;

/// A message as plain text, and what was signed of it, beside what is shown, of each signature that holds
/// again.
class MessageTextView : public QDialog {
    Q_OBJECT
public:
    /// One of those signatures, without its text.
    struct Signature {
        QString title = {};  ///< "example.org"
        QString intro = {};  ///< what the report says of it
    };
    enum class Page { signedText, message };

    /// Shows that the message is being read. `which`: the signature that is shown first.
    MessageTextView(const QString& subject, const std::vector<Signature>& signatures, std::size_t which,
                    Page page, const Words& words, QWidget* parent = nullptr);

    void setText(const MessageText& text);
    /// The texts of the signatures, in their order; of those that are missing it says that they can't be
    /// shown.
    void setSignedTexts(const std::vector<SignedText>& texts);

    /// What is shown.
    TextPanel* panel() const;

private:
    QWidget* buildSignedPage();
    void showSigned(std::size_t which);
    void refreshButtons();

    Words m_words;
    std::vector<Signature> m_signatures;
    std::vector<SignedText> m_texts = {};
    bool m_isRead = false;
    std::size_t m_which;
    QTabWidget* m_tabs;
    TextPanel *m_signed, *m_message;
    QPushButton *m_previous, *m_next;
};

}  // namespace quillmark
