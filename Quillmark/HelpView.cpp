#include "Quillmark/HelpView.h"

#include <QApplication>
#include <QBoxLayout>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QScreen>
#include <QStackedWidget>

#include "Quillmark/MessageWaysView.h"
#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/Tones.h"
#include "WindowBaseline/Mnemonics.h"
#include "Wording/Signs.h"

namespace quillmark {

namespace {

struct Paragraph {
    QString heading, text;
};

std::vector<Paragraph> aboutChecks(const Words& words) {
    return {
        {words("Signatures (DKIM)"), words("A domain can sign the messages it sends. Quillmark fetches the "
                                           "domain’s public key and checks by "
                                           "itself whether the signed lines and the body are still the same. "
                                           "A valid signature is the strongest "
                                           "thing that can be said of an email.")},
        {words("Sending server (SPF)"),
         words("A domain publishes which servers may send its mail. Quillmark takes the server’s address "
               "from the "
               "message’s own lines, so this is worth less than a signature.")},
        {words("Domain policy (DMARC)"), words("It joins the two: does what was proven belong to the domain "
                                               "in From? And what does its owner ask "
                                               "receivers to do with mail that fails?")},
        {words("Forwarding chain (ARC)"),
         words("Mailing lists and forwarders change messages and so break signatures. Some leave a signed "
               "mark of "
               "what they saw before. That is worth as much as you trust them.")},
        {words("Your mail server said"),
         words("Your mail provider checks, too, and often writes its results into the message. They stand "
               "beside "
               "ours; anybody could have written such a line, so they are never trusted.")},
        {words("What the symbols mean"),
         words(
             "✓ Good: this was proven. ! Caution: something is proven, but not all you may expect. ✕ Bad: it "
             "doesn’t fit, or nothing is proven. ? Unknown: it couldn’t be found out.")},
        {words("What leaves this computer"),
         words(
             "Only lookups: DNS is asked over HTTPS for the keys and rules of the domains named in the "
             "message, "
             "and, if you allow it, registries for their registration dates. A sender’s SPF record may ask "
             "for "
             "names that contain the envelope sender’s address, and by such names its owner can learn that a "
             "message was checked. The message itself is never sent, and attachments are never opened.")},
        {words("What the history keeps"),
         words("The findings of each check, the From, Reply-To, To, Subject and Date lines, the message’s "
               "identifier and envelope sender, and the file’s name. Not the message’s text.")},
        {words("Getting a message out of a mail program"),
         words("Drag it onto the window. Or save it (“Save As…”, “Export” or “Download”), which gives a file "
               "whose "
               "name often ends in .eml. Or show its source (“View Source”, “Show Original”) and copy all of "
               "it. "
               "Don’t forward it: that makes a new message.")},
    };
}

std::vector<Paragraph> aboutLimits(const Words& words) {
    std::vector<Paragraph> paragraphs;
    for (const Limit limit : {Limit::domainNotCompany, Limit::compromisedMailbox, Limit::oldKeys,
                              Limit::forwarding, Limit::spfFromReceived, Limit::headersOnly}) {
        paragraphs.push_back({QString::fromStdString(title(limit, words.reader)),
                              QString::fromStdString(sentence(limit, words.reader))});
    }
    return paragraphs;
}

QLabel* headingOf(const QString& text) {
    auto* label = new QLabel(text);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

QWidget* textPage(const std::vector<Paragraph>& paragraphs) {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    for (const Paragraph& each : paragraphs) {
        layout->addWidget(headingOf(each.heading));
        auto* text = new PlainText(each.text);
        text->setAccessibleName(each.heading);
        text->makeStop();
        layout->addWidget(text);
        layout->addSpacing(page->fontMetrics().height() / 2);
    }
    layout->addStretch(1);
    return page;
}

QWidget* shortcutPage(const std::vector<std::pair<QString, QString>>& shortcuts) {
    auto* page = new QWidget;
    auto* grid = new QGridLayout(page);
    int row = 0;
    for (const auto& [command, key] : shortcuts) {
        grid->addWidget(new QLabel(command), row, 0);
        grid->addWidget(headingOf(key), row++, 1);
    }
    grid->setColumnStretch(1, 1);
    grid->setRowStretch(row, 1);
    return page;
}

}  // namespace

HelpView::HelpView(const std::vector<std::pair<QString, QString>>& shortcuts, const Words& words,
                   QWidget* parent)
    : QDialog(parent), m_topics(new QListWidget), m_pages(new QStackedWidget) {
    setWindowTitle(words("Quillmark Help"));
    auto* layout = new QVBoxLayout(this);
    auto* across = new QHBoxLayout;
    layout->addLayout(across, 1);
    across->addWidget(m_topics);
    across->addWidget(m_pages, 1);
    m_topics->setSpacing(fontMetrics().height() / 6);
    m_topics->setItemDelegate(new ClearDelegate(m_topics));
    m_topics->setAccessibleName(words("Help topics"));
    // In the order of HelpPage.
    addPage(words("How Checks Work"), textPage(aboutChecks(words)));
    m_topics->addItem(words("Getting a Message"));
    m_pages->addWidget(new MessageWaysView(words));
    addPage(words("What Can’t Be Proven"), textPage(aboutLimits(words)));
    addPage(words("Keyboard Shortcuts"), shortcutPage(shortcuts));
    m_topics->setFixedWidth(m_topics->sizeHintForColumn(0) + 5 * fontMetrics().averageCharWidth());
    connect(m_topics, &QListWidget::currentRowChanged, m_pages, &QStackedWidget::setCurrentIndex);
    auto* buttons = new QDialogButtonBox;
    auto* close = new Button(words("Close"));
    close->setAutoDefault(false);  // Return in the search must not press it
    buttons->addButton(close, QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    resize(QSize(120 * fontMetrics().averageCharWidth(), 32 * fontMetrics().height())
               .boundedTo(screen()->availableSize() * 0.9));
    window_baseline::giveMnemonics(*this);
    showPage(HelpPage::checks);
}

void HelpView::showPage(HelpPage page) {
    m_topics->setCurrentRow(static_cast<int>(page));
    if (page == HelpPage::message) m_pages->currentWidget()->setFocus();
}

void HelpView::addPage(const QString& title, QWidget* contents) {
    m_topics->addItem(title);
    auto* scroller = new Scroller;
    scroller->setAccessibleName(title);
    scroller->setWidget(contents);
    m_pages->addWidget(scroller);
}

void showAbout(const Words& words, QWidget* parent) {
    auto* about = new QMessageBox(parent);
    about->setAttribute(Qt::WA_DeleteOnClose);
    about->setWindowTitle(words("About Quillmark"));
    about->setTextFormat(Qt::PlainText);
    const int side = 4 * about->fontMetrics().height();
    about->setIconPixmap(QApplication::windowIcon().pixmap(QSize(side, side)));
    about->setText(words("Quillmark %1", QApplication::applicationVersion()));
    about->setInformativeText(
        words("Tells who can be proven to have sent an email, and whether it changed since.\n\nFree software "
              "under the "
              "MIT license. The list of public suffixes in it is under the MPL 2.0. Made with Qt."));
    about->addButton(words("Close"), QMessageBox::RejectRole);
    window_baseline::giveMnemonics(*about);
    about->open();
}

}  // namespace quillmark
