#pragma once

#include <QToolButton>

#include "Quillmark/Words.h"
#include "Wording/Glossary.h"

namespace quillmark {

/// A small "?" beside a technical word: pressing it explains the word below, pressing it again takes that
/// away.
class ExplainButton : public QToolButton {
public:
    /// `name`: the word as it stands there. `raw`: what the message and DNS hold of it, as it stands there.
    ExplainButton(const QString& name, const GlossaryEntry& entry, QStringList raw, const Words& words,
                  QWidget* parent = nullptr);

    /// The paragraph, and one step deeper where the word is defined and the raw values.
    QWidget* explanation() const;

private:
    const GlossaryEntry& m_entry;  // which lives for ever
    QStringList m_raw;
    Words m_words;
};

/// A button that unfolds what is one click deeper, with an arrow that shows which way it is.
QToolButton* disclosureButton(const QString& text, const QString& accessibleName);

}  // namespace quillmark
