#pragma once

#include <QWidget>
#include <vector>

#include "Quillmark/Words.h"
#include "Wording/MessageWays.h"

class QBoxLayout;
class QLineEdit;
class QListWidget;
class QScrollArea;

namespace quillmark {

/// How to get a message out of a mail program: programs to choose from, what narrows them down, and the steps
/// of one with a picture.
class MessageWaysView : public QWidget {
    Q_OBJECT
public:
    explicit MessageWaysView(const Words& words, QWidget* parent = nullptr);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void listWays(const QString& typed);
    void showWay(int row);

    const Words m_words;
    const std::vector<MessageWay> m_ways;
    QBoxLayout* m_across = nullptr;
    QLineEdit* m_search = nullptr;
    QListWidget* m_programs = nullptr;
    QScrollArea* m_page = nullptr;
    int m_widest = 0;  // the programs' names
};

}  // namespace quillmark
