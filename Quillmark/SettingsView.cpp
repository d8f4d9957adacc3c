#include "Quillmark/SettingsView.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <algorithm>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"

namespace quillmark {

SettingsView::SettingsView(const Choices& choices, const Words& words, QWidget* parent)
    : QDialog(parent), m_words(words) {
    setWindowTitle(words("Settings"));
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(fontMetrics().height() / 2);

    QCheckBox* age = addSwitch(
        words("Look up how old the sender’s domain is"),
        {words(
            "Asks the domain’s registry (RDAP) when the From and Reply-To domains were registered, to flag "
            "brand-new ones. Only the domain names are sent.")},
        choices.checkDomainAge);
    connect(age, &QCheckBox::toggled, this, &SettingsView::checkDomainAgeChanged);

    QStringList aboutHistory = {
        words("The history keeps the findings, From and Subject lines and file names on this Mac, never the "
              "message text. Nothing is uploaded."),
        words("When this is switched off, what was kept stays until you clear it.")};
    if (!choices.lockedHistory.isEmpty()) aboutHistory << choices.lockedHistory;
    QCheckBox* history =
        addSwitch(words("Keep a history of checked messages"), aboutHistory, choices.keepHistory);
    connect(history, &QCheckBox::toggled, this, &SettingsView::keepHistoryChanged);

    auto* actions = new QHBoxLayout;
    layout->addSpacing(fontMetrics().height() / 2);
    layout->addLayout(actions);
    const auto button = [&](const QString& text) {
        auto* each = new Button(text);
        each->setAutoDefault(false);
        actions->addWidget(each);
        return each;
    };
    connect(button(words("Show Data Folder in Finder")), &QPushButton::clicked, this,
            &SettingsView::dataFolderWanted);
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
    layout->addStretch(1);

    auto* buttons = new QDialogButtonBox;
    buttons->addButton(new Button(words("Done")), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    layout->addWidget(buttons);
    const int width = 80 * fontMetrics().averageCharWidth();
    resize(width, layout->heightForWidth(width));
}

QCheckBox* SettingsView::addSwitch(const QString& label, const QStringList& explanations, bool on) {
    auto* box = new QCheckBox(label);
    box->setChecked(on);
    box->setAccessibleDescription(explanations.join(u' '));
    auto* all = static_cast<QVBoxLayout*>(layout());
    if (all->count() > 0) all->addSpacing(fontMetrics().height() / 2);
    all->addWidget(box);
    const int indent = style()->pixelMetric(QStyle::PM_IndicatorWidth) +
                       style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing);
    for (const QString& each : explanations) {
        auto* line = new QHBoxLayout;
        line->addSpacing(indent);
        line->addWidget(new PlainText(each), 1);
        all->addLayout(line);
    }
    return box;
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
    question->open();
}

void SettingsView::showOutcome(const QString& text) {
    m_outcome->setContents(text);
    m_outcome->show();
    layout()->activate();
    resize(width(), std::max(height(), layout()->heightForWidth(width())));
}

}  // namespace quillmark
