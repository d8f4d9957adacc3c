#pragma once

#include <QDialog>

#include "Quillmark/Words.h"

namespace quillmark {

/// What the first start says: what the program does, what leaves the machine, and how a message gets in.
class WelcomeView : public QDialog {
    Q_OBJECT
public:
    explicit WelcomeView(const Words& words, QWidget* parent = nullptr);
};

}  // namespace quillmark
