#pragma once

#include <QString>
#include <QStringList>
#include <cstddef>
#include <vector>

#include "Quillmark/Words.h"
#include "QuillmarkKit/MessageText.h"
#include "QuillmarkKit/SignedText.h"

namespace quillmark {

/// Lines of a message, and what is to be said of them. All of it is inert, and nothing is markup.
struct TextBlock {
    enum class Look {
        plain,
        marked,  ///< by a bar, a ground and a word
        quiet,   ///< said by us, not by the message
    };
    Look look = Look::plain;
    QString margin = {};  ///< a word or two that stand beside it
    QString name = {};    ///< what a screen reader says: "added, not signed, 4 lines"
    QStringList lines = {};
    bool isChange = false;  ///< what differs, both as it is shown and as it was signed
    bool operator==(const TextBlock&) const = default;
};

/// In reading order: the fields, those that differ in two rows, and then the text. Of each change at most so
/// many lines are shown, and the others counted.
std::vector<TextBlock> blocksOf(const SignedText& text, const Words& words,
                                std::size_t mostLinesOfChange = 1'000);

/// In reading order: the fields, the texts, what is attached. Hidden text is marked, and each link stands
/// behind its text.
std::vector<TextBlock> blocksOf(const MessageText& text, const Words& words);

}  // namespace quillmark
