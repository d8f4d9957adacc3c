#include "Quillmark/Words.h"

#include <QList>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr QChar firstStrongIsolate{u'\u2068'}, popDirectionalIsolate{u'\u2069'};

bool runsLeftwards(char32_t scalar) {
    const QChar::Direction direction = QChar::direction(scalar);
    return direction == QChar::DirR || direction == QChar::DirAL || direction == QChar::DirAN;
}

}  // namespace

QString isolatedRuns(std::string_view sentence) {
    QString result;
    QString blanks;  // behind a run that perhaps goes on
    bool inRun = false;
    const QString text = QString::fromUtf8(sentence.data(), static_cast<qsizetype>(sentence.size()));
    for (const char32_t scalar : text.toUcs4()) {
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
    return firstStrongIsolate + QString::fromStdString(forDisplay(text, limit)) + popDirectionalIsolate;
}

QString shown(const QString& text, std::size_t limit) {
    // No character takes more than four bytes: what is cut here lies beyond the limit.
    return shown(text.left(static_cast<qsizetype>(limit) + 1).toStdString(), limit);
}

QString withoutIsolation(QString text) {
    return text.remove(firstStrongIsolate).remove(popDirectionalIsolate);
}

QString Words::translateCount(std::string_view one, std::string_view many, std::int64_t count) const {
    return QString::fromStdString(reader.translateCount(one, many, count));
}

}  // namespace quillmark
