#include "Quillmark/Words.h"

#include <QList>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr QChar firstStrongIsolate{u'\u2068'}, popDirectionalIsolate{u'\u2069'}, wordJoiner{u'\u2060'};

/// Runs of blanks as one: with many of them somebody could begin a line of the window.
QString withSingleBlanks(const QString& text) {
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool goesOn = i + 1 < text.size() && text[i].isSpace() && text[i + 1].isSpace();
        if (!goesOn) result += i > 0 && text[i].isSpace() && text[i - 1].isSpace() ? u' ' : text[i];
    }
    return result;
}

/// Joins what stands around the hyphens of domains and addresses, where else a line would be broken.
QString withWholeDomains(const QString& text) {
    QStringList words = text.split(u' ');
    for (QString& word : words) {
        if (!word.contains(u'.') && !word.contains(u'@')) continue;
        for (qsizetype i = word.size() - 1; i-- > 0;) {
            if (word[i].category() == QChar::Punctuation_Dash) word.insert(i + 1, wordJoiner);
        }
    }
    return words.join(u' ');
}

QString withWholeLines(std::string_view text) {
    return withWholeDomains(
        withSingleBlanks(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))));
}

bool runsLeftwards(char32_t scalar) {
    const QChar::Direction direction = QChar::direction(scalar);
    return direction == QChar::DirR || direction == QChar::DirAL || direction == QChar::DirAN;
}

}  // namespace

QString isolatedRuns(std::string_view sentence) {
    QString result;
    QString blanks;  // behind a run that perhaps goes on
    bool inRun = false;
    for (const char32_t scalar : withWholeLines(sentence).toUcs4()) {
        const QString character = QString::fromUcs4(&scalar, 1);
        if (inRun && scalar == U' ') {
            blanks += character;
            continue;
        }
        const bool leftwards = runsLeftwards(scalar) || (inRun && blanks.isEmpty() && QChar::isMark(scalar));
        if (leftwards && !inRun) result += firstStrongIsolate;
        if (!leftwards && inRun) result += popDirectionalIsolate;
        result += blanks + character;
        blanks.clear();
        inRun = leftwards;
    }
    if (inRun) result += popDirectionalIsolate;
    return result + blanks;
}

QString shown(std::string_view text, std::size_t limit) {
    const QString inert = QString::fromStdString(forDisplay(text, limit));
    return firstStrongIsolate + withWholeDomains(withSingleBlanks(inert)) + popDirectionalIsolate;
}

QString shown(const QString& text, std::size_t limit) {
    // No character takes more than four bytes: what is cut here lies beyond the limit.
    return shown(text.left(static_cast<qsizetype>(limit) + 1).toStdString(), limit);
}

QString shownDomain(std::string_view domain) { return shown(cutInside(domain)); }

QString withoutIsolation(QString text) {
    text.removeIf([](QChar c) { return (c >= u'\u2066' && c <= popDirectionalIsolate) || c == wordJoiner; });
    return text;
}

QString Words::sentence(std::string_view text) const {
    return factsOf(reader.language).isRightToLeft ? withWholeLines(text) : isolatedRuns(text);
}

QString Words::translateCount(std::string_view one, std::string_view many, std::int64_t count) const {
    return QString::fromStdString(reader.translateCount(one, many, count));
}

}  // namespace quillmark
