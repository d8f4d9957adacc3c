#pragma once

#include <QString>
#include <string>
#include <string_view>

#include "Wording/Reader.h"

namespace quillmark {

/// The most of one text that stands in a label, and in a tooltip, in bytes: laying out one long line takes
/// more than linear time.
constexpr std::size_t longestLabel = 500, longestToolTip = 1000;
/// The most rows of one kind on a screen; the rest is counted.
constexpr std::size_t mostRows = 50;

/// Somebody else's text for the window: one line, inert, at most `limit` bytes of it, and isolated (U+2068 …
/// U+2069), so that its direction cannot rearrange the sentence around it. Runs of blanks are one, and a word
/// joiner (U+2060) behind each hyphen of a domain keeps its lines from being broken there.
QString shown(std::string_view text, std::size_t limit = longestLabel);
QString shown(const QString& text, std::size_t limit = longestLabel);
/// The same for a domain; of a long one more of the end, which says whose it is.
QString shownDomain(std::string_view domain);

/// One of our sentences with somebody else's words in it, which are inert already: each run of letters
/// written from right to left is isolated, so that it cannot pull what stands beside it, such as the rest of
/// a domain, to its other side. Blanks and hyphens are as in `shown`.
QString isolatedRuns(std::string_view sentence);

/// `text` without the characters that isolate and join, for the clipboard and for file names.
QString withoutIsolation(QString text);

/// The window's texts, in the language of one reader.
struct Words {
    Reader reader = {};

    /// `text` in the reader's language, "%1" to "%9" replaced by the arguments, once.
    template <typename... Arguments>
    QString operator()(std::string_view text, const Arguments&... arguments) const {
        return QString::fromStdString(reader.translate(text, {std::string_view(arguments.toStdString())...}));
    }
    /// One of our sentences for the window: `isolatedRuns`, but in a language written from right to left,
    /// where the words of others were set apart when they were put in (`isolated`) and the rest is our own.
    QString sentence(std::string_view text) const;
    /// The form that goes with `count`, which stands for "%n".
    QString translateCount(std::string_view one, std::string_view many, std::int64_t count) const;
    QString time(Date date) const { return QString::fromStdString(reader.time(date)); }
};

}  // namespace quillmark
