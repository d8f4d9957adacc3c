#pragma once

#include <QDialog>
#include <string>

#include "Quillmark/Words.h"

class QPushButton;

namespace quillmark {

class SourceEdit;

/// The sheet that takes a message's source, or only its headers, by paste or by drop.
class PasteView : public QDialog {
    Q_OBJECT
public:
    explicit PasteView(const Words& words, QWidget* parent = nullptr);

signals:
    /// The person wants this text checked. The sheet closes by itself afterwards.
    void submitted(const std::string& text);

private:
    SourceEdit* m_edit;
    QPushButton* m_check;
};

}  // namespace quillmark
