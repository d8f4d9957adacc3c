#pragma once

#include <QDialog>
#include <vector>

#include "Quillmark/Words.h"
#include "QuillmarkKit/Lookups/KeyBook.h"

class QLineEdit;
class QListWidget;
class QPushButton;

namespace quillmark {

class PlainText;

/// The keys of the key book: to search, to look at, to forget. Goes with its window.
class KeyBookView : public QDialog {
    Q_OBJECT
public:
    KeyBookView(KeyBook book, const Words& words, QWidget* parent = nullptr);

private:
    void load();
    void showSelected();
    void forgetSelected();
    template <typename Use>
    void withBook(Use use);

    const KeyBook m_book;
    const Words m_words;
    std::vector<KnownKey> m_keys = {};  // those that are listed
    QLineEdit* m_search;
    QListWidget* m_list;
    PlainText* m_details;
    QPushButton* m_forget;
};

}  // namespace quillmark
