#include "WindowBaseline/Mnemonics.h"

#include <QAbstractButton>
#include <QAction>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QTabBar>
#include <QToolButton>
#include <set>

namespace window_baseline {

namespace {

/// The letter that is marked, in lower case; null when none is.
QChar marked(const QString& text) {
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != u'&') continue;
        if (text[i + 1] != u'&') return text[i + 1].toLower();
        ++i;
    }
    return {};
}

QString without(const QString& text) {
    QString plain = text;
    const qsizetype mark = plain.indexOf(u'&');
    return mark < 0 ? plain : plain.remove(mark, 1);
}

/// Where a free letter is; -1 when there is none.
qsizetype freeLetter(const QString& text, const std::set<QChar>& taken, bool atBeginning) {
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool isBeginning = i == 0 || !text[i - 1].isLetterOrNumber();
        if (text[i].isLetter() && (isBeginning || !atBeginning) && !taken.contains(text[i].toLower()))
            return i;
    }
    return -1;
}

}  // namespace

QStringList withMnemonics(const QStringList& texts, const QString& taken) {
    std::set<QChar> used;
    for (const QChar letter : taken) used.insert(letter.toLower());
    for (const QString& text : texts) used.insert(marked(text));
    QStringList result = texts;
    for (const bool atBeginning : {true, false}) {
        for (QString& text : result) {
            if (!marked(text).isNull()) continue;
            const qsizetype place = freeLetter(text, used, atBeginning);
            if (place < 0) continue;
            used.insert(text[place].toLower());
            text.insert(place, u'&');
        }
    }
    return result;
}

void giveMnemonics(QMenu& menu) {
    QStringList texts;
    QList<QAction*> entries;
    for (QAction* each : menu.actions()) {
        if (each->menu()) giveMnemonics(*each->menu());
        if (each->isSeparator()) continue;
        entries << each;
        texts << each->text();
    }
    const QStringList given = withMnemonics(texts);
    for (qsizetype i = 0; i < entries.size(); ++i) entries[i]->setText(given[i]);
}

void giveMnemonics(QWidget& window) {
    QString taken;
    if (const auto* main = qobject_cast<QMainWindow*>(&window)) {
        for (QAction* each : main->menuBar()->actions()) taken += marked(each->text());
    }
    for (const QTabBar* bar : window.findChildren<QTabBar*>()) {
        for (int i = 0; i < bar->count(); ++i) taken += marked(bar->tabText(i));
    }
    for (const QLabel* label : window.findChildren<QLabel*>()) {
        if (label->buddy()) taken += marked(label->text());
    }
    QStringList texts, plain;
    QList<QAbstractButton*> buttons;
    for (QAbstractButton* each : window.findChildren<QAbstractButton*>()) {
        const auto* tool = qobject_cast<QToolButton*>(each);
        if (each->window() != &window || tool || each->text().isEmpty()) continue;
        if (plain.contains(without(each->text()))) continue;
        plain << without(each->text());
        buttons << each;
        texts << each->text();
    }
    const QStringList given = withMnemonics(texts, taken);
    for (qsizetype i = 0; i < buttons.size(); ++i) {
        if (buttons[i]->text() != given[i]) buttons[i]->setText(given[i]);
    }
}

}  // namespace window_baseline
