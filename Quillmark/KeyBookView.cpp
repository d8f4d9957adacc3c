#include "Quillmark/KeyBookView.h"

#include <QBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <algorithm>
#include <utility>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "WindowBaseline/Mnemonics.h"
#include "Wording/KeyWording.h"

namespace quillmark {

namespace {

constexpr std::size_t mostKeys = 500;  // are listed; the others are to be searched for

}  // namespace

KeyBookView::KeyBookView(KeyBook book, const Words& words, QWidget* parent)
    : QDialog(parent), m_book(std::move(book)), m_words(words) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(words("Keys"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_search = new QLineEdit);
    m_search->setPlaceholderText(words("Search for a domain"));
    m_search->setAccessibleName(words("Search for a domain"));
    m_search->setClearButtonEnabled(true);
    layout->addWidget(m_list = new QListWidget, 1);
    m_list->setItemDelegate(new ClearDelegate(m_list));
    m_list->setAccessibleName(words("Keys"));
    m_list->setUniformItemSizes(true);
    layout->addWidget(m_details = new PlainText({}));
    auto* buttons = new QHBoxLayout;
    auto* done = new Button(words("Done"));
    buttons->addWidget(m_forget = new Button(words("Forget")));
    buttons->addStretch(1);
    buttons->addWidget(done);
    for (QPushButton* each : {m_forget, static_cast<QPushButton*>(done)})
        each->setAutoDefault(false);  // Return in the field must not press one
    layout->addLayout(buttons);
    connect(m_search, &QLineEdit::textChanged, this, &KeyBookView::load);
    connect(m_search, &QLineEdit::returnPressed, m_list, qOverload<>(&QWidget::setFocus));
    connect(m_list, &QListWidget::currentRowChanged, this, &KeyBookView::showSelected);
    connect(m_forget, &QPushButton::clicked, this, &KeyBookView::forgetSelected);
    connect(done, &QPushButton::clicked, this, &QDialog::accept);
    window_baseline::giveMnemonics(*this);
    resize(90 * fontMetrics().averageCharWidth(), 28 * fontMetrics().height());
    load();
}

template <typename Use>
void KeyBookView::withBook(Use use) {
    try {
        use();
    } catch (const std::exception& error) {
        m_details->setContents(m_words.sentence(keyBookProblem(error, m_book.url, m_words.reader)));
    }
}

void KeyBookView::load() {
    {
        const QSignalBlocker quiet(m_list);
        m_list->clear();
        m_keys.clear();
    }
    m_forget->setEnabled(false);
    withBook([this] {
        m_book.forEach(
            m_search->text().trimmed().toStdString(),
            [this](const KnownKey& key) {
                m_keys.push_back(key);
                m_list->addItem(shown(keyLine(key, m_words.reader)));
            },
            mostKeys);
        showSelected();
    });
    if (m_keys.size() == mostKeys)
        m_details->setContents(m_words("There are more. Search for the domain that you mean."));
}

void KeyBookView::showSelected() {
    const int row = m_list->currentRow();
    const bool isAny = row >= 0 && static_cast<std::size_t>(row) < m_keys.size();
    m_forget->setEnabled(isAny);
    QStringList lines;
    if (isAny) {
        for (const std::string& line : keyLines(m_keys[static_cast<std::size_t>(row)], m_words.reader))
            lines << shown(line);
    } else if (m_keys.empty() && m_search->text().isEmpty()) {
        lines << m_words("Keys that DNS gives during checks are listed here.");
    }
    m_details->setContents(lines.join(u'\n'));
}

void KeyBookView::forgetSelected() {
    const int row = m_list->currentRow();
    if (row < 0) return;
    withBook([this, row] {
        m_book.remove(m_keys[static_cast<std::size_t>(row)]);
        load();
        m_list->setCurrentRow(std::min(row, m_list->count() - 1));
    });
}

}  // namespace quillmark
