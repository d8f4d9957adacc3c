#include "Quillmark/SettingsView.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QScreen>
#include <QScrollArea>
#include <QStyle>
#include <algorithm>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "Settings/ChosenResolver.h"
#include "WindowBaseline/Mnemonics.h"

namespace quillmark {

SettingsView::SettingsView(const Choices& choices, const Words& words, QWidget* parent)
    : QDialog(parent), m_words(words) {
    setWindowTitle(words("Settings"));
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(fontMetrics().height() / 2);
    auto* page = new QWidget;
    m_rows = new QVBoxLayout(page);
    m_rows->setContentsMargins(0, 0, 0, 0);
    m_rows->setSpacing(layout->spacing());
    m_scroller = new QScrollArea;
    m_scroller->setFrameShape(QFrame::NoFrame);
    m_scroller->setWidgetResizable(true);
    m_scroller->setFocusPolicy(Qt::NoFocus);
    m_scroller->setWidget(page);
    layout->addWidget(m_scroller, 1);

    const auto addChoice = [this](const QString& text, const QStringList& explanations, bool on,
                                  void (SettingsView::*changed)(bool)) {
        auto* box = new QCheckBox(text);
        add(box, explanations, on);
        connect(box, &QCheckBox::toggled, this, changed);
    };
    addChoice(
        words("Look up how old the sender’s domain is"),
        {words("Asks the domain’s registry (RDAP) when the From and Reply-To domains were registered, to "
               "flag brand-new ones. Only the domain names are sent.")},
        choices.checkDomainAge, &SettingsView::checkDomainAgeChanged);
    QStringList aboutHistory = {
        words("The history keeps the findings, From and Subject lines and file names on this Mac, never the "
              "message text. Nothing is uploaded."),
        words("When this is switched off, what was kept stays until you clear it.")};
    if (!choices.lockedHistory.isEmpty()) aboutHistory << choices.lockedHistory;
    addChoice(words("Keep a history of checked messages"), aboutHistory, choices.keepHistory,
              &SettingsView::keepHistoryChanged);
    addChoice(
        words("Remember the keys of senders"),
        {words("Keeps the public keys that DNS gives during checks, so that a message can still be "
               "compared with its sender’s key when DNS no longer has it. They stay on this computer.")},
        choices.rememberKeys, &SettingsView::rememberKeysChanged);
    addChoice(words("Judge DMARC by its rules of 2026 (RFC 9989)"),
              {words("Most receivers still go by the older ones (RFC 7489). A report that is judged by the "
                     "newer ones says so.")},
              choices.judgeByRFC9989, &SettingsView::judgeByRFC9989Changed);

    addResolvers(choices.resolver);

    auto* actions = new QHBoxLayout;
    m_rows->addSpacing(fontMetrics().height() / 2);
    m_rows->addLayout(actions);
    m_rows->addStretch(1);
    const auto button = [&](const QString& text) {
        auto* each = new Button(text);
        each->setAutoDefault(false);
        actions->addWidget(each);
        return each;
    };
    connect(button(words("Show Data Folder in Finder")), &QPushButton::clicked, this,
            &SettingsView::dataFolderWanted);
    connect(button(words("Keys…")), &QPushButton::clicked, this, &SettingsView::keyBookWanted);
    QPushButton* clear = button(words("Clear History…"));
    clear->setEnabled(choices.lockedHistory.isEmpty());
    connect(clear, &QPushButton::clicked, this, &SettingsView::clearHistoryWanted);
    connect(button(words("Show the Welcome Screen Again")), &QPushButton::clicked, this, [this] {
        accept();
        emit welcomeWanted();
    });
    actions->addStretch(1);
    layout->addWidget(m_outcome = new PlainText({}));
    m_outcome->setObjectName("outcome");
    m_outcome->hide();

    m_buttons = new QDialogButtonBox;
    m_buttons->addButton(new Button(words("Done")), QDialogButtonBox::AcceptRole);
    connect(m_buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    layout->addWidget(m_buttons);
    window_baseline::giveMnemonics(*this);
    // Nothing scrolls sideways, also beside the bar of a screen that is too low for all of it.
    m_scroller->setMinimumWidth(m_rows->minimumSize().width() +
                                style()->pixelMetric(QStyle::PM_ScrollBarExtent));
    fit({80 * fontMetrics().averageCharWidth(), 0});
}

void SettingsView::fit(QSize least) {
    const QMargins around = layout()->contentsMargins();
    const int sides = around.left() + around.right();
    const int inner = std::max(least.width() - sides, m_scroller->minimumWidth());
    int height = around.top() + m_rows->heightForWidth(inner) + layout()->spacing() +
                 m_buttons->sizeHint().height() + around.bottom();
    if (!m_outcome->isHidden()) height += layout()->spacing() + m_outcome->heightForWidth(inner);
    resize(QSize(inner + sides, std::max(least.height(), height)).boundedTo(screen()->availableSize() * 0.9));
}

void SettingsView::add(QAbstractButton* button, const QStringList& explanations, bool on) {
    button->setChecked(on);
    button->setAccessibleDescription(explanations.join(u' '));
    const bool isFirst = m_rows->count() == 0 || qobject_cast<QRadioButton*>(button);
    if (!isFirst) m_rows->addSpacing(fontMetrics().height() / 2);
    m_rows->addWidget(button);
    for (const QString& each : explanations) addUnderIt(new PlainText(each));
}

void SettingsView::addUnderIt(QWidget* widget) {
    auto* line = new QHBoxLayout;
    line->addSpacing(style()->pixelMetric(QStyle::PM_IndicatorWidth) +
                     style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing));
    line->addWidget(widget, 1);
    m_rows->addLayout(line);
}

void SettingsView::addResolvers(const std::string& choice) {
    m_rows->addSpacing(fontMetrics().height() / 2);
    m_rows->addWidget(new PlainText(
        m_words("Who is asked for the keys and rules of senders (DNS)? Whoever it is sees the names of the "
                "domains in your messages, never the messages.")));
    const bool isUsual = choice == usualResolver, isSystem = choice == systemResolver;
    auto* usual = new QRadioButton(m_words("Cloudflare and, when that doesn’t answer, Google"));
    add(usual, {m_words("Nobody on the way sees the names or can change the answers.")}, isUsual);
    auto* system = new QRadioButton(m_words("The servers that this computer asks for everything else"));
    add(system,
        {m_words("Your network or provider sees the names, and so may others on the way. Any of them could "
                 "make up the answers that reports rest on.")},
        isSystem);
    m_ownService = new QRadioButton(m_words("This DNS service (DNS over HTTPS):"));
    add(m_ownService, {}, !isUsual && !isSystem);
    m_service = new QLineEdit(isUsual || isSystem ? QString() : QString::fromStdString(choice));
    m_service->setPlaceholderText(QStringLiteral("https://dns.example.org/dns-query"));
    m_service->setAccessibleName(m_words("The service’s address"));
    m_service->setEnabled(m_ownService->isChecked());
    addUnderIt(m_service);
    const QString aboutService = m_words(
        "Whoever runs it sees the names, and could make up the answers that reports rest on. "
        "Reports say who answered.");
    m_service->setAccessibleDescription(aboutService);
    addUnderIt(new PlainText(aboutService));
    const auto choose = [this](QRadioButton* button, std::string_view resolver) {
        connect(button, &QRadioButton::toggled, this, [this, resolver](bool on) {
            if (!on) return;
            m_outcome->hide();
            emit resolverChanged(std::string(resolver));
        });
    };
    choose(usual, usualResolver);
    choose(system, systemResolver);
    connect(m_ownService, &QRadioButton::toggled, this, [this](bool on) {
        m_service->setEnabled(on);
        if (on) m_service->setFocus();
        if (on && !m_service->text().isEmpty()) chooseService();
    });
    connect(m_service, &QLineEdit::editingFinished, this, &SettingsView::chooseService);
}

bool SettingsView::chooseService() {
    const std::string url = m_service->text().trimmed().toStdString();
    if (DoHEndpoint::ofURL(url)) {
        m_outcome->hide();
        emit resolverChanged(url);
        return true;
    }
    showOutcome(m_words("That is no address of a DNS service. One looks like this: %1")
                    .arg(m_service->placeholderText()));
    return false;
}

void SettingsView::accept() {
    if (m_ownService->isChecked() && !chooseService()) return m_service->setFocus();
    QDialog::accept();
}

void SettingsView::askWhetherToClear(const QString& what, const std::function<void()>& clear) {
    if (findChild<QMessageBox*>()) return;
    auto* question = new QMessageBox(this);
    question->setAttribute(Qt::WA_DeleteOnClose);
    question->setIcon(QMessageBox::Warning);
    question->setTextFormat(Qt::PlainText);
    question->setText(m_words("Clear the whole history?"));
    question->setInformativeText(
        m_words("This removes every saved check from this Mac. It can’t be undone.") +
        QStringLiteral("\n\n") + what);
    QPushButton* yes = question->addButton(m_words("Clear History"), QMessageBox::DestructiveRole);
    question->setDefaultButton(question->addButton(m_words("Cancel"), QMessageBox::RejectRole));
    connect(yes, &QPushButton::clicked, this, clear);
    window_baseline::giveMnemonics(*question);
    question->open();
}

void SettingsView::showOutcome(const QString& text) {
    m_outcome->setContents(text);
    m_outcome->show();
    fit(size());
}

}  // namespace quillmark
