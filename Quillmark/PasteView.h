#pragma once

#include <QDialog>
#include <string>

#include "Quillmark/Words.h"

class QPushButton;

namespace quillmark {

class Card;
class PlainText;
class SourceEdit;

/// The sheet that takes a message's source, or only its headers, by paste or by drop.
class PasteView : public QDialog {
    Q_OBJECT
public:
    explicit PasteView(const Words& words, QWidget* parent = nullptr);

    /// Says why the text is not taken in, until it is changed.
    void refuse(const QString& line);

signals:
    /// The person wants this text checked. Whoever hears it closes the sheet, or refuses the text.
    void submitted(const std::string& text);

private:
    SourceEdit* m_edit;
    Card* m_refusal;
    PlainText* m_refusalText;
    QPushButton* m_check;
};

}  // namespace quillmark
