#include "Wording/Wrapped.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Direction.h"

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
        std::size_t blank = 1;
        for (const std::string_view piece : piecesOf(word)) addPiece(piece, std::exchange(blank, 0));
    }
    std::string text() && { return std::move(m_text); }

private:
    /// With a blank before it, or none.
    void addPiece(std::string_view word, std::size_t blank) {
        std::size_t width = columnsOf(word), owner = beginOfOwner(word);
        if (!m_isAtBegin && m_column + blank + width <= m_columns) {
            m_text.append(blank, ' ');
            m_column += blank;
        } else if (!m_isAtBegin) {
            beginLine(word);
        }
        while (m_column + width > m_columns) {
            const std::size_t length = fitting(word, owner);
            append(word.substr(0, length));
            width -= columnsOf(word.substr(0, length));
            word.remove_prefix(length);
            owner -= std::min(owner, length);
            beginLine(word);
        }
        append(word);
        m_column += width;
        m_isAtBegin = false;
    }

    void append(std::string_view text) {
        m_text += text;
        while (!text.empty()) {
            const std::string_view before = text;
            const char32_t c = takeScalar(text);
            if (isBeginOfIsland(c)) m_islands.push_back(before.substr(0, before.size() - text.size()));
            if (c == endOfIsland && !m_islands.empty()) m_islands.pop_back();
        }
    }

    /// An island ends with its line, as a terminal has it, and goes on in the next.
    void beginLine(std::string_view next) {
        for (std::size_t i = 0; i < m_islands.size(); ++i) appendUTF8(m_text, endOfIsland);
        m_column = m_indent + furtherIn;
        m_text += '\n' + std::string(m_column, ' ');
        for (const std::string_view begin : m_islands) m_text += begin;
        for (std::string_view rest = next; !rest.empty() && isBeginOfIsland(takeScalar(rest));) next = rest;
        if (!next.starts_with('[')) return;
        m_text += goingOn;
        m_column += columnsOf(goingOn);
    }

    /// Where the name begins that was registered, of a word that ends with a host's; 0 when that is at its
    /// begin.
    static std::size_t beginOfOwner(std::string_view word) {
        while (word.ends_with("\u2069")) word.remove_suffix(std::string_view("\u2069").size());
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
    std::vector<std::string_view> m_islands = {};  // in which the text is, by the signs that they begin with
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
