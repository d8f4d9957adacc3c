#pragma once

#include <QDialog>
#include <vector>

#include "Quillmark/TextBlocks.h"

class QPushButton;

namespace quillmark {

class TextPanel;

/// What was signed, beside what is shown: of each signature of one report that holds again.
class MessageTextView : public QDialog {
    Q_OBJECT
public:
    /// One of those signatures, without its text.
    struct Signature {
        QString title = {};  ///< "example.org"
        QString intro = {};  ///< what the report says of it
    };
    /// Shows that the text is being read. `which`: the signature that is shown first.
    MessageTextView(const QString& subject, const std::vector<Signature>& signatures, std::size_t which,
                    const Words& words, QWidget* parent = nullptr);

    /// The texts of the signatures, in their order; of those that are missing it says that they can't be
    /// shown.
    void setTexts(const std::vector<SignedText>& texts);

    TextPanel* panel() const { return m_panel; }

private:
    void show(std::size_t which);

    Words m_words;
    std::vector<Signature> m_signatures;
    std::vector<SignedText> m_texts = {};
    bool m_isRead = false;
    std::size_t m_which;
    TextPanel* m_panel;
    QPushButton *m_previous, *m_next;
};

}  // namespace quillmark
