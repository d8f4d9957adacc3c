#pragma once

#include <QString>
#include <QStringList>
#include <vector>

#include "Quillmark/Words.h"
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
    bool operator==(const TextBlock&) const = default;
};

/// In reading order: the fields, those that differ in two rows, and then the text.
std::vector<TextBlock> blocksOf(const SignedText& text, const Words& words);

}  // namespace quillmark
