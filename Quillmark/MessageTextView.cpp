#include "Quillmark/MessageTextView.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QLabel>
#include <algorithm>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/TextPanel.h"

namespace quillmark {

MessageTextView::MessageTextView(const QString& subject, const std::vector<Signature>& signatures,
                                 std::size_t which, const Words& words, QWidget* parent)
    : QDialog(parent),
      m_words(words),
      m_signatures(signatures),
      m_which(which),
      m_panel(new TextPanel(words)),
      m_previous(new Button(words("&Previous Change"))),
      m_next(new Button(words("&Next Change"))) {
    setWindowTitle(words("What Was Signed: %1", withoutIsolation(subject)));
    auto* layout = new QVBoxLayout(this);
    if (signatures.size() > 1) {
        auto* row = new QHBoxLayout;
        auto* label = new QLabel(words("&Signature:"));
        auto* choice = new QComboBox;
        choice->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        for (const Signature& each : signatures) choice->addItem(each.title);
        choice->setCurrentIndex(static_cast<int>(which));
        label->setBuddy(choice);
        row->addWidget(label);
        row->addWidget(choice, 1);
        layout->addLayout(row);
        connect(choice, &QComboBox::currentIndexChanged, this,
                [this](int index) { show(static_cast<std::size_t>(index)); });
    }
    m_panel->setAccessibleName(words("What was signed"));
    layout->addWidget(m_panel, 1);
    auto* buttons = new QHBoxLayout;
    auto* close = new Button(words("Close"));
    for (QPushButton* each : {m_previous, m_next, static_cast<QPushButton*>(close)})
        each->setAutoDefault(false);  // Return must not press one that nobody went to
    buttons->addWidget(m_previous);
    buttons->addWidget(m_next);
    buttons->addStretch(1);
    buttons->addWidget(close);
    layout->addLayout(buttons);
    connect(m_previous, &QPushButton::clicked, m_panel, [this] { m_panel->goToMarked(false); });
    connect(m_next, &QPushButton::clicked, m_panel, [this] { m_panel->goToMarked(true); });
    connect(close, &QPushButton::clicked, this, &QDialog::reject);
    const QSize wanted(100 * fontMetrics().averageCharWidth(), 36 * fontMetrics().height());
    resize(parent ? wanted.boundedTo(parent->window()->size() * 0.95) : wanted);
    show(which);
    m_panel->setFocus();
}

void MessageTextView::setTexts(const std::vector<SignedText>& texts) {
    m_texts = texts;
    m_isRead = true;
    show(m_which);
}

void MessageTextView::show(std::size_t which) {
    m_which = which;
    const QString intro = which < m_signatures.size() ? m_signatures[which].intro : QString();
    const auto said = [](const QString& line) {
        return std::vector<TextBlock>{{TextBlock::Look::quiet, {}, line, {line}}};
    };
    if (which < m_texts.size()) {
        m_panel->setContents(intro, blocksOf(m_texts[which], m_words));
    } else {
        m_panel->setContents(intro, said(m_isRead ? m_words("It couldn’t be found again what was signed.")
                                                  : m_words("Reading the message…")));
    }
    m_previous->setEnabled(m_panel->hasMarked());
    m_next->setEnabled(m_panel->hasMarked());
}

}  // namespace quillmark
