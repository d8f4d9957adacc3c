#include "Quillmark/WelcomeView.h"

#include <QBoxLayout>
#include <QDialogButtonBox>
#include <QIcon>
#include <QLabel>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "WindowBaseline/Mnemonics.h"

namespace quillmark {

WelcomeView::WelcomeView(const Words& words, QWidget* parent) : QDialog(parent) {
    setWindowTitle(words("Welcome to Quillmark"));
    auto* layout = new QVBoxLayout(this);
    const int line = fontMetrics().height();
    layout->setContentsMargins(2 * line, 2 * line, 2 * line, line);
    layout->setSpacing(line);

    auto* icon = new QLabel;
    icon->setPixmap(windowIcon().pixmap(QSize(4 * line, 4 * line), devicePixelRatioF()));
    icon->setAccessibleName(words("Quillmark"));
    layout->addWidget(icon, 0, Qt::AlignHCenter);
    auto* title = new QLabel(words("Welcome to Quillmark"));
    QFont large = title->font();
    large.setPointSizeF(large.pointSizeF() * 1.6);
    large.setBold(true);
    title->setFont(large);
    layout->addWidget(title, 0, Qt::AlignHCenter);

    for (const QString& each : {
             words(
                 "Quillmark tells you who can be proven to have sent an email, and whether it changed on the "
                 "way."),
             words("Messages are checked on this computer. Only names of domains leave it: DNS is asked for "
                   "their "
                   "keys and rules, and registries for how old they are."),
             words("What came of each check is kept in your history on this computer, without the message’s "
                   "text. The settings turn that off."),
             words("Drag a message out of your mail program onto the window, or save it as a file (.eml or "
                   "mbox) "
                   "and open it. Where neither works, show the message’s source and paste it."),
         }) {
        layout->addWidget(new PlainText(each));
    }
    layout->addStretch(1);
    auto* buttons = new QDialogButtonBox;
    buttons->addButton(new Button(words("Get Started")), QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    layout->addWidget(buttons);
    const int width = 64 * fontMetrics().averageCharWidth();
    window_baseline::giveMnemonics(*this);
    resize(width, layout->heightForWidth(width));
}

}  // namespace quillmark
