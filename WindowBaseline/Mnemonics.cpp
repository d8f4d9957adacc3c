#include "WindowBaseline/Mnemonics.h"

#include <QAbstractButton>
#include <QAction>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QTabBar>
#include <QToolButton>
#include <algorithm>
#include <map>
#include <set>
#include <vector>

namespace window_baseline {

namespace {

constexpr const char* givenProperty = "hasGivenMnemonic";

/// The letter that is marked, in lower case; null when none is.
QChar marked(const QString& text) {
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != u'&') continue;
        if (text[i + 1] != u'&') return text[i + 1].toLower();
        ++i;
    }
    return {};
}

/// Chinese and Japanese letters: no key has them.
bool hasNoKey(QChar letter) {
    const QChar::Script script = letter.script();
    return script == QChar::Script_Han || script == QChar::Script_Hiragana ||
           script == QChar::Script_Katakana || letter == u'ー';
}

QString without(const QString& text) {
    QString plain = text;
    const qsizetype mark = plain.indexOf(u'&');
    if (mark < 0) return plain;
    const bool isBehind = mark > 0 && plain[mark - 1] == u'(' && plain.mid(mark + 2, 1) == u")";
    return isBehind ? plain.remove(mark - 1, 4) : plain.remove(mark, 1);
}

/// A text whose letters have no keys, with another letter behind it, as is usual there: "表示(&V)…".
QString withLetterBehind(QString text, QChar letter) {
    qsizetype end = text.size();
    while (end > 0 && !text[end - 1].isLetterOrNumber()) --end;
    return text.insert(end, QStringLiteral("(&") + letter.toUpper() + u')');
}

/// The places of letters that may be marked: the beginnings of words first.
std::vector<qsizetype> candidates(const QString& text) {
    std::vector<qsizetype> beginnings, others;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!text[i].isLetter() || hasNoKey(text[i])) continue;
        const bool isBeginning = i == 0 || !text[i - 1].isLetterOrNumber();
        (isBeginning ? beginnings : others).push_back(i);
    }
    beginnings.insert(beginnings.end(), others.begin(), others.end());
    return beginnings;
}

/// Gives letters to as many texts as can have one: who has one gives way where there is another for it.
struct Matching {
    const QStringList& texts;
    std::map<QChar, qsizetype> owners = {};      // texts by their letters; -1: of no text
    std::map<qsizetype, qsizetype> places = {};  // in the texts

    bool give(qsizetype text, std::set<QChar>& tried) {
        for (const qsizetype place : candidates(texts[text])) {
            const QChar letter = texts[text][place].toLower();
            if (!tried.insert(letter).second) continue;
            const auto owner = owners.find(letter);
            if (owner != owners.end() && (owner->second < 0 || !give(owner->second, tried))) continue;
            owners[letter] = text;
            places[text] = place;
            return true;
        }
        return false;
    }
};

}  // namespace

QStringList withMnemonics(const QStringList& texts, const QString& taken) {
    Matching matching{texts};
    for (const QChar letter : taken) matching.owners[letter.toLower()] = -1;
    for (const QString& text : texts) {
        if (!marked(text).isNull()) matching.owners[marked(text)] = -1;
    }
    for (qsizetype i = 0; i < texts.size(); ++i) {
        std::set<QChar> tried;
        if (marked(texts[i]).isNull()) matching.give(i, tried);
    }
    QStringList result = texts;
    for (const auto& [text, place] : matching.places) result[text].insert(place, u'&');
    QChar free = u'a';
    for (qsizetype i = 0; i < texts.size(); ++i) {
        if (matching.places.contains(i) || !marked(texts[i]).isNull()) continue;
        if (!std::ranges::any_of(texts[i], hasNoKey)) continue;
        while (matching.owners.contains(free)) free = QChar(free.unicode() + 1);
        if (free > u'z') break;
        matching.owners[free] = i;
        result[i] = withLetterBehind(texts[i], free);
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
        // One of ours gives way to one that came since with a letter of its own.
        if (each->property(givenProperty).toBool()) each->setText(without(each->text()));
        if (plain.contains(without(each->text()))) continue;
        plain << without(each->text());
        buttons << each;
        texts << each->text();
    }
    const QStringList given = withMnemonics(texts, taken);
    for (qsizetype i = 0; i < buttons.size(); ++i) {
        if (buttons[i]->text() == given[i]) continue;
        buttons[i]->setText(given[i]);
        buttons[i]->setProperty(givenProperty, true);
    }
}

}  // namespace window_baseline
