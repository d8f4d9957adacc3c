#include "Quillmark/MessageTextView.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QLabel>
#include <QTabWidget>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/TextPanel.h"
#include "WindowBaseline/Mnemonics.h"

namespace quillmark {

namespace {

std::vector<TextBlock> said(const QString& line) {
    return {{TextBlock::Look::quiet, {}, line, {line}, false}};
}

}  // namespace

MessageTextView::MessageTextView(const QString& subject, const std::vector<Signature>& signatures,
                                 std::size_t which, Page page, const Words& words, QWidget* parent)
    : QDialog(parent),
      m_words(words),
      m_signatures(signatures),
      m_which(which),
      m_tabs(new QTabWidget),
      m_signed(new TextPanel(words)),
      m_message(new TextPanel(words)),
      m_previous(new Button(words("&Previous Change"))),
      m_next(new Button(words("&Next Change"))) {
    setWindowTitle(words("Message: %1", withoutIsolation(subject)));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs, 1);
    m_tabs->setTabBarAutoHide(true);
    auto* signedPage = buildSignedPage();
    if (!signatures.empty()) m_tabs->addTab(signedPage, words("What Was &Signed"));
    m_message->setAccessibleName(words("Message as text"));
    m_message->setContents({}, said(words("Reading the message…")));
    m_tabs->addTab(m_message, words("Message as &Text"));
    if (signatures.empty()) {
        signedPage->setParent(this);
        signedPage->hide();
    }
    auto* buttons = new QHBoxLayout;
    auto* close = new Button(words("Close"));
    for (QPushButton* each : {m_previous, m_next, static_cast<QPushButton*>(close)})
        each->setAutoDefault(false);  // Return must not press one that nobody went to
    buttons->addWidget(m_previous);
    buttons->addWidget(m_next);
    buttons->addStretch(1);
    buttons->addWidget(close);
    layout->addLayout(buttons);
    connect(m_previous, &QPushButton::clicked, this, [this] { panel()->goToMarked(false); });
    connect(m_next, &QPushButton::clicked, this, [this] { panel()->goToMarked(true); });
    connect(close, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_tabs, &QTabWidget::currentChanged, this, &MessageTextView::refreshButtons);
    const QSize wanted(100 * fontMetrics().averageCharWidth(), 36 * fontMetrics().height());
    window_baseline::giveMnemonics(*this);
    resize(parent ? wanted.boundedTo(parent->window()->size() * 0.95) : wanted);
    showSigned(which);
    m_tabs->setCurrentIndex(page == Page::message ? m_tabs->count() - 1 : 0);
    panel()->setFocus();
}

QWidget* MessageTextView::buildSignedPage() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    if (m_signatures.size() > 1) {
        auto* row = new QHBoxLayout;
        auto* label = new QLabel(m_words("S&ignature:"));
        auto* choice = new QComboBox;
        choice->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        for (const Signature& each : m_signatures) choice->addItem(each.title);
        choice->setCurrentIndex(static_cast<int>(m_which));
        label->setBuddy(choice);
        row->addWidget(label);
        row->addWidget(choice, 1);
        layout->addLayout(row);
        connect(choice, &QComboBox::currentIndexChanged, this,
                [this](int index) { showSigned(static_cast<std::size_t>(index)); });
    }
    m_signed->setAccessibleName(m_words("What was signed"));
    layout->addWidget(m_signed, 1);
    return page;
}

TextPanel* MessageTextView::panel() const {
    return m_tabs->currentWidget() == m_message ? m_message : m_signed;
}

void MessageTextView::setText(const MessageText& text) {
    m_message->setContents(
        m_words("What the message holds, as plain text. Nothing of it is loaded, opened or run."),
        blocksOf(text, m_words));
    refreshButtons();
}

void MessageTextView::setSignedTexts(const std::vector<SignedText>& texts) {
    m_texts = texts;
    m_isRead = true;
    showSigned(m_which);
}

void MessageTextView::showSigned(std::size_t which) {
    m_which = which;
    const QString intro = which < m_signatures.size() ? m_signatures[which].intro : QString();
    m_signed->setContents(intro, which < m_texts.size()
                                     ? blocksOf(m_texts[which], m_words)
                                     : said(m_isRead ? m_words("It couldn’t be found again what was signed.")
                                                     : m_words("Reading the message…")));
    refreshButtons();
}

void MessageTextView::refreshButtons() {
    for (QPushButton* each : {m_previous, m_next}) {
        each->setVisible(panel() == m_signed);
        each->setEnabled(m_signed->hasMarked());
    }
}

}  // namespace quillmark
