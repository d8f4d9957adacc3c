#pragma once

#include <QDialog>
#include <QString>
#include <utility>
#include <vector>

#include "Quillmark/Words.h"

class QListWidget;
class QStackedWidget;

namespace quillmark {

enum class HelpPage { checks, message, limits, shortcuts };

/// The help window: a list of topics and the text of one.
class HelpView : public QDialog {
    Q_OBJECT
public:
    /// `shortcuts`: each command and its key.
    HelpView(const std::vector<std::pair<QString, QString>>& shortcuts, const Words& words,
             QWidget* parent = nullptr);
    void showPage(HelpPage page);

private:
    void addPage(const QString& title, QWidget* contents);

    QListWidget* m_topics;
    QStackedWidget* m_pages;
};

/// Opens "About Quillmark".
void showAbout(const Words& words, QWidget* parent);

}  // namespace quillmark
