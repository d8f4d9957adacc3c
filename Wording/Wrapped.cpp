#include "Wording/Wrapped.h"

#include <algorithm>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t furtherIn = 2;
constexpr std::size_t fewestColumns = 16;  // behind the indent; on a narrower terminal nothing helps
constexpr std::string_view goingOn = "… ";

/// One line after the other, as they fill.
class Filling {
public:
    Filling(std::size_t indent, std::size_t width)
        : m_indent(indent),
          // The last column stays empty: some terminals go on to the next line there.
          m_columns(std::max(width - 1, indent + furtherIn + fewestColumns)),
          m_text(indent, ' '),
          m_column(indent) {}

    void add(std::string_view word) {
        std::size_t width = columns(word), owner = beginOfOwner(word);
        if (!m_isAtBegin && m_column + 1 + width <= m_columns) {
            m_text += ' ';
            ++m_column;
        } else if (!m_isAtBegin) {
            beginLine(word);
        }
        while (m_column + width > m_columns) {
            const std::size_t length = fitting(word, owner);
            m_text += word.substr(0, length);
            width -= columns(word.substr(0, length));
            word.remove_prefix(length);
            owner -= std::min(owner, length);
            beginLine(word);
        }
        m_text += word;
        m_column += width;
        m_isAtBegin = false;
    }
    std::string text() && { return std::move(m_text); }

private:
    static std::size_t columns(std::string_view text) {
        std::size_t sum = 0;
        while (!text.empty()) sum += static_cast<std::size_t>(columnsOf(takeScalar(text)));
        return sum;
    }

    void beginLine(std::string_view next) {
        m_column = m_indent + furtherIn;
        m_text += '\n' + std::string(m_column, ' ');
        if (!next.starts_with('[')) return;
        m_text += goingOn;
        m_column += columns(goingOn);
    }

    /// Where the name begins that was registered, of a word that ends with a host's; 0 when that is at its
    /// begin.
    static std::size_t beginOfOwner(std::string_view word) {
        const std::size_t length = PublicSuffixList::shared().organizationalDomain(word).size();
        return length + 1 < word.size() && word[word.size() - length - 1] == '.' ? word.size() - length - 1
                                                                                 : 0;
    }

    /// How many bytes of a word that is too long stand in this line: up to the name that was registered, or
    /// to a dot in the second half of what there is room for, and never up to a hyphen, behind which one
    /// would read on as if it were a word.
    std::size_t fitting(std::string_view word, std::size_t owner) const {
        std::size_t length = 0;
        for (std::size_t column = m_column; length < word.size();) {
            std::string_view rest = word.substr(length);
            column += static_cast<std::size_t>(columnsOf(takeScalar(rest)));
            if (column > m_columns && length > 0) break;
            length = word.size() - rest.size();
        }
        if (owner > 0 && owner <= length) return owner;
        const std::size_t dot = word.rfind('.', length);
        if (dot != std::string_view::npos && dot > length / 2) return dot;
        std::size_t beforeHyphens = length;
        while (beforeHyphens > 1 && word[beforeHyphens - 1] == '-') --beforeHyphens;
        return beforeHyphens > length / 2 ? beforeHyphens : length;
    }

    const std::size_t m_indent, m_columns;
    std::string m_text;
    std::size_t m_column;
    bool m_isAtBegin = true;
};

/// The next word off the front, and the blanks behind it. A single no-break space is a part of its word.
std::string_view takeShownWord(std::string_view& rest) {
    constexpr char32_t noBreak = 0xA0, narrowNoBreak = 0x202F;
    const std::string_view whole = rest;
    std::size_t end = 0;
    while (!rest.empty()) {
        std::string_view next = rest;
        const char32_t c = takeScalar(next);
        if (isWhiteSpace(c)) {
            std::string_view behind = next;
            const bool isRun = behind.empty() || isWhiteSpace(takeScalar(behind));
            if (isRun || (c != noBreak && c != narrowNoBreak)) break;
        }
        rest = next;
        end = whole.size() - rest.size();
    }
    while (!rest.empty()) {
        std::string_view next = rest;
        if (!isWhiteSpace(takeScalar(next))) break;
        rest = next;
    }
    return whole.substr(0, end);
}

}  // namespace

std::string wrapped(std::string_view line, std::size_t indent, std::size_t width) {
    if (width == 0) return std::string(indent, ' ').append(line);
    Filling filling(indent, width);
    while (!line.empty()) {
        const std::string_view word = takeShownWord(line);
        if (!word.empty()) filling.add(word);
    }
    return std::move(filling).text();
}

}  // namespace quillmark
