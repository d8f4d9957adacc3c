#include "QuillmarkKit/Mail/PageText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestPage = 5'000'000, longestText = 200'000;  // bytes
constexpr std::size_t mostOpen = 100;                                  // elements inside each other
constexpr std::size_t longestValue = 2'000;                            // of an attribute, in bytes
constexpr std::size_t longestName = 20;                                // of an element or an attribute
constexpr std::size_t longestLabel = 200;                              // of a link, in bytes

constexpr bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }

template <std::size_t size>
bool isOneOf(std::string_view name, const std::array<std::string_view, size>& names) {
    return std::ranges::find(names, name) != names.end();
}

constexpr std::array<std::string_view, 14> voidElements = {"area",  "base",   "br",    "col",  "embed",
                                                           "hr",    "img",    "input", "link", "meta",
                                                           "param", "source", "track", "wbr"};
constexpr std::array<std::string_view, 30> blockElements = {
    "address", "article",  "aside",  "blockquote", "body", "caption", "center", "dd", "div",     "dl",
    "dt",      "fieldset", "figure", "footer",     "form", "h1",      "h2",     "h3", "h4",      "h5",
    "h6",      "header",   "hr",     "li",         "main", "nav",     "ol",     "p",  "section", "ul"};
constexpr std::array<std::string_view, 6> tableElements = {"table", "tr", "tbody", "thead", "tfoot", "pre"};
constexpr std::array<std::string_view, 11> paragraphs = {"p",  "h1", "h2",         "h3", "h4",   "h5",
                                                         "h6", "ul", "blockquote", "ol", "table"};
/// Stands for a comment that some programs read on in.
constexpr std::string_view conditional = "!--[if";

struct Entity {
    std::string_view name;
    char32_t scalar;
};
/// The references that mail uses (HTML, section 13.5, lists two thousand more; those stay as they are
/// written), sorted.
constexpr Entity entities[] = {
    {"Auml", 0xC4},    {"Eacute", 0xC9},   {"Ouml", 0xD6},     {"Uuml", 0xDC},     {"aacute", 0xE1},
    {"acirc", 0xE2},   {"aelig", 0xE6},    {"agrave", 0xE0},   {"amp", '&'},       {"apos", '\''},
    {"aring", 0xE5},   {"auml", 0xE4},     {"bdquo", 0x201E},  {"bull", 0x2022},   {"ccedil", 0xE7},
    {"cent", 0xA2},    {"copy", 0xA9},     {"deg", 0xB0},      {"eacute", 0xE9},   {"ecirc", 0xEA},
    {"egrave", 0xE8},  {"emsp", 0x2003},   {"ensp", 0x2002},   {"euml", 0xEB},     {"euro", 0x20AC},
    {"frac12", 0xBD},  {"gt", '>'},        {"hellip", 0x2026}, {"iacute", 0xED},   {"icirc", 0xEE},
    {"iexcl", 0xA1},   {"iquest", 0xBF},   {"iuml", 0xEF},     {"laquo", 0xAB},    {"ldquo", 0x201C},
    {"lrm", 0x200E},   {"lsaquo", 0x2039}, {"lsquo", 0x2018},  {"lt", '<'},        {"mdash", 0x2014},
    {"middot", 0xB7},  {"nbsp", 0xA0},     {"ndash", 0x2013},  {"ntilde", 0xF1},   {"oacute", 0xF3},
    {"ocirc", 0xF4},   {"oelig", 0x153},   {"oslash", 0xF8},   {"ouml", 0xF6},     {"para", 0xB6},
    {"pound", 0xA3},   {"quot", '"'},      {"raquo", 0xBB},    {"rarr", 0x2192},   {"rdquo", 0x201D},
    {"reg", 0xAE},     {"rlm", 0x200F},    {"rsaquo", 0x203A}, {"rsquo", 0x2019},  {"sbquo", 0x201A},
    {"sect", 0xA7},    {"shy", 0xAD},      {"szlig", 0xDF},    {"thinsp", 0x2009}, {"times", 0xD7},
    {"trade", 0x2122}, {"uacute", 0xFA},   {"ucirc", 0xFB},    {"ugrave", 0xF9},   {"uuml", 0xFC},
    {"yen", 0xA5},     {"zwj", 0x200D},    {"zwnj", 0x200C},
};

/// Takes a character reference off the front of `text`, which begins with "&"; what is none stays one "&".
void takeReference(std::string& out, std::string_view& text) {
    constexpr std::size_t longest = 10;
    const auto end = text.substr(0, longest + 2).find(';');
    std::string_view name = text.substr(1, end == std::string_view::npos ? 0 : end - 1);
    const auto accept = [&](char32_t scalar) {
        appendUTF8(out, scalar);
        text.remove_prefix(end + 1);
    };
    if (name.starts_with('#')) {
        name.remove_prefix(1);
        const bool isHex = name.starts_with('x') || name.starts_with('X');
        if (isHex) name.remove_prefix(1);
        std::uint32_t scalar = 0;
        bool isNumber = !name.empty();
        for (const char c : name) {
            const int digit = isHex ? hexValue(c) : isDigit(c) ? c - '0' : -1;
            isNumber = isNumber && digit >= 0;
            scalar = std::min<std::uint32_t>(
                scalar * (isHex ? 16 : 10) + static_cast<std::uint32_t>(std::max(digit, 0)), 0x110000);
        }
        const bool isScalar = scalar > 0 && scalar < 0x110000 && (scalar < 0xD800 || scalar > 0xDFFF);
        if (isNumber) return accept(isScalar ? static_cast<char32_t>(scalar) : U'\uFFFD');
    } else {
        const auto found = std::ranges::lower_bound(entities, name, {}, &Entity::name);
        if (found != std::end(entities) && found->name == name) return accept(found->scalar);
    }
    out += '&';
    text.remove_prefix(1);
}

std::string dereferenced(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        if (text.front() == '&') {
            takeReference(out, text);
        } else {
            out += text.front();
            text.remove_prefix(1);
        }
    }
    return out;
}

/// The attributes of a tag that are looked at, references undone.
struct Attributes {
    std::string href = {}, style = {}, alt = {}, color = {}, ground = {};
    bool isHidden = false;
};

/// Reads the attributes behind the name of a tag, and passes its end.
Attributes takeAttributes(std::string_view& rest) {
    Attributes found;
    while (!rest.empty() && rest.front() != '>') {
        if (isSpace(rest.front()) || rest.front() == '/') {
            rest.remove_prefix(1);
            continue;
        }
        std::size_t end = 1;
        while (end < rest.size() && !isSpace(rest[end]) && rest[end] != '=' && rest[end] != '>' &&
               rest[end] != '/')
            ++end;
        const std::string name = asciiLowered(rest.substr(0, std::min(end, longestName)));
        rest.remove_prefix(end);
        std::size_t blanks = 0;
        while (blanks < rest.size() && isSpace(rest[blanks])) ++blanks;
        std::string_view value;
        if (blanks < rest.size() && rest[blanks] == '=') {
            rest.remove_prefix(blanks + 1);
            while (!rest.empty() && isSpace(rest.front())) rest.remove_prefix(1);
            if (!rest.empty() && (rest.front() == '"' || rest.front() == '\'')) {
                const char quote = rest.front();
                rest.remove_prefix(1);
                value = takePiece(rest, quote);
            } else {
                std::size_t length = 0;
                while (length < rest.size() && !isSpace(rest[length]) && rest[length] != '>') ++length;
                value = rest.substr(0, length);
                rest.remove_prefix(length);
            }
        }
        std::string* const place = name == "href" || name == "action" ? &found.href
                                   : name == "style"                  ? &found.style
                                   : name == "alt"                    ? &found.alt
                                   : name == "color"                  ? &found.color
                                   : name == "bgcolor"                ? &found.ground
                                                                      : nullptr;
        // Of several of a name the first counts.
        if (place && place->empty()) *place = dereferenced(value.substr(0, longestValue));
        found.isHidden |= name == "hidden";
    }
    if (!rest.empty()) rest.remove_prefix(1);
    return found;
}

/// A colour in one form, as far as that is simple: "#fff", "white" and "#FFFFFF" are one.
std::string comparableColor(std::string_view written) {
    std::string color = asciiLowered(withoutWhitespace(written));
    if (color == "white" || color == "rgb(255,255,255)") return "#ffffff";
    if (color == "black" || color == "rgb(0,0,0)") return "#000000";
    if (color.size() == 4 && color.front() == '#')
        return {'#', color[1], color[1], color[2], color[2], color[3], color[3]};
    return color;
}

bool isZero(std::string_view size) {
    const auto end = size.find_first_not_of("0.");
    if (end == 0 || size.empty()) return false;
    return end == std::string_view::npos || isASCIILetter(size[end]) || size[end] == '%';
}

struct Element {
    std::string name = {};
    bool isHidden = false, isPreformatted = false;
    bool isInvisible = false, isTiny = false;  // what stands in it can change these
    std::string color = {}, ground = {};       // of what stands in it; empty: unknown
    std::string target = {};                   // of a link
    std::string label = {};
};

void readStyle(Element& element, std::string_view style) {
    bool isFlat = false, isClipped = false;
    while (!style.empty()) {
        std::string_view declaration = takePiece(style, ';');
        const std::string name = asciiLowered(withoutWhitespace(takePiece(declaration, ':')));
        std::string value = asciiLowered(withoutWhitespace(declaration));
        if (const auto important = value.find("!important"); important != std::string::npos)
            value.resize(important);
        element.isHidden |= (name == "display" && value == "none") || (name == "opacity" && isZero(value)) ||
                            (name == "mso-hide" && value == "all");
        if (name == "visibility") element.isInvisible = value == "hidden" || value == "collapse";
        // A size in relation to nothing stays nothing.
        if (name == "font-size" && (isZero(value) || !(value.ends_with("em") || value.ends_with('%'))))
            element.isTiny = isZero(value);
        isFlat |= name == "max-height" && isZero(value);
        isClipped |= name == "overflow" && value == "hidden";
        if (name == "color") element.color = comparableColor(value);
        if (name == "background-color" || name == "background") element.ground = comparableColor(value);
    }
    element.isHidden |= isFlat && isClipped;
}

class PageReader {
public:
    PageText text(std::string_view page) {
        if (page.size() > longestPage) {
            page = page.substr(0, longestPage);
            m_text.isCut = true;
        }
        while (!page.empty() && m_length < longestText) takeNext(page);
        m_text.isCut |= !page.empty();
        while (!m_open.empty()) close();
        endLine();
        while (!m_text.lines.empty() && m_text.lines.back().text.empty()) m_text.lines.pop_back();
        return std::move(m_text);
    }

private:
    using Line = PageText::Line;

    void takeNext(std::string_view& rest);
    void takeTag(std::string_view& rest);
    void begin(const std::string& name, const Attributes& attributes);
    void endElement(std::string_view name);
    /// Closes the innermost element of this name that what begins now ends: none around a table or a list.
    void closeBefore(std::string_view name);
    void close();
    void add(std::string_view text, bool isReference = false);
    void addCharacter(std::string_view character);
    void endLine();
    void breakLine(bool isParagraph);

    bool isHidden() const {
        return !m_open.empty() &&
               (m_open.back().isHidden || m_open.back().isInvisible || m_open.back().isTiny);
    }

    PageText m_text = {};
    std::vector<Element> m_open = {};
    std::string m_line = {};
    bool m_isLineHidden = false, m_wantsBlank = false, m_wantsEmpty = false;
    std::vector<Line> m_links = {};  // of the line
    std::size_t m_length = 0;
};

void PageReader::addCharacter(std::string_view character) {
    if (isHidden() != m_isLineHidden && !m_line.empty()) endLine();
    m_isLineHidden = isHidden();
    if (m_wantsEmpty && m_line.empty() && !m_text.lines.empty() && !m_text.lines.back().text.empty())
        m_text.lines.push_back({});
    m_wantsEmpty = false;
    if (m_wantsBlank && !m_line.empty()) m_line += ' ';
    for (Element& each : m_open) {
        if (each.target.empty() || each.label.size() >= longestLabel) continue;
        if (m_wantsBlank && !each.label.empty()) each.label += ' ';
        each.label += character;
    }
    m_wantsBlank = false;
    m_line += character;
    m_length += character.size();
}

void PageReader::add(std::string_view text, bool isReference) {
    const bool isPreformatted = !m_open.empty() && m_open.back().isPreformatted;
    while (!text.empty()) {
        if (m_length >= longestText) {
            m_text.isCut = true;
            return;
        }
        const char c = text.front();
        if (c == '&' && !isReference) {
            std::string character;
            takeReference(character, text);
            addCharacter(character);
            continue;
        }
        if (isPreformatted && c == '\n') {
            endLine();
        } else if (isSpace(c) && (!isPreformatted || c == '\r')) {
            m_wantsBlank = true;
        } else {
            // A run without anything special in one go.
            std::size_t end = 1;
            while (end < text.size() && text[end] != '&' && !isSpace(text[end])) ++end;
            addCharacter(text.substr(0, end));
            text.remove_prefix(end);
            continue;
        }
        text.remove_prefix(1);
    }
}

void PageReader::endLine() {
    if (!m_line.empty())
        m_text.lines.push_back(
            {m_isLineHidden ? Line::Kind::hidden : Line::Kind::text, std::exchange(m_line, {}), {}});
    for (Line& link : std::exchange(m_links, {})) m_text.lines.push_back(std::move(link));
    m_wantsBlank = false;
    for (Element& each : m_open) {
        if (!each.label.empty() && !each.label.ends_with(' ')) each.label += ' ';
    }
}

void PageReader::breakLine(bool isParagraph) {
    endLine();
    m_wantsEmpty |= isParagraph;
}

void PageReader::close() {
    Element element = std::move(m_open.back());
    m_open.pop_back();
    const bool isBlock = isOneOf(element.name, blockElements) || isOneOf(element.name, tableElements);
    const std::string label(trimmed(element.label));
    if (!element.target.empty() && label != element.target) {
        m_length += element.target.size();
        m_links.push_back({Line::Kind::link, std::move(element.target), label});
    }
    if (isBlock) breakLine(isOneOf(element.name, paragraphs));
}

void PageReader::endElement(std::string_view name) {
    const auto found = std::ranges::find(m_open.rbegin(), m_open.rend(), name, &Element::name);
    if (found == m_open.rend()) return;
    const std::size_t left = static_cast<std::size_t>(m_open.rend() - found) - 1;
    while (m_open.size() > left) close();
}

void PageReader::closeBefore(std::string_view name) {
    for (auto each = m_open.rbegin(); each != m_open.rend(); ++each) {
        if (each->name == name) return endElement(name);
        const bool isList = each->name == "ul" || each->name == "ol";
        if (each->name == "table" || each->name == "td" || (name == "li" && isList)) return;
    }
}

void PageReader::begin(const std::string& name, const Attributes& attributes) {
    const bool isBlock = isOneOf(name, blockElements) || isOneOf(name, tableElements);
    if (isBlock) {
        if (!isOneOf(name, tableElements) || name == "table") closeBefore("p");
        if (name == "li") closeBefore("li");
        breakLine(isOneOf(name, paragraphs));
    }
    if (name == "tr") closeBefore("tr");
    if (name == "td" || name == "th") {
        closeBefore("td");
        closeBefore("th");
        m_wantsBlank = true;
    }
    if (name == "br") endLine();
    if (name == "a") endElement("a");
    if (name == "img" && !trimmed(attributes.alt).empty()) {
        endLine();
        m_length += attributes.alt.size();
        m_text.lines.push_back({Line::Kind::image, std::string(trimmed(attributes.alt)), {}});
    }
    Element element = m_open.empty() ? Element() : m_open.back();
    element.name = name;
    element.target.clear();
    element.label.clear();
    element.isPreformatted |= name == "pre" || name == "textarea";
    element.isHidden |= attributes.isHidden || name == "template";
    if (!attributes.color.empty()) element.color = comparableColor(attributes.color);
    if (!attributes.ground.empty()) element.ground = comparableColor(attributes.ground);
    readStyle(element, attributes.style);
    element.isHidden |= !element.color.empty() && element.color == element.ground;
    if ((name == "a" || name == "area" || name == "form") && !attributes.href.starts_with('#'))
        element.target = trimmed(attributes.href);
    if (name == "area" && !element.target.empty()) {
        m_links.push_back({Line::Kind::link, element.target, {}});
        m_length += element.target.size();
    }
    // Text ends a head by itself.
    if (isOneOf(name, voidElements) || name == "head" || m_open.size() >= mostOpen) return;
    m_open.push_back(std::move(element));
    if (name == "li") add("- ", true);
}

void PageReader::takeTag(std::string_view& rest) {
    std::string_view inside = rest.substr(1);
    if (startsWithIgnoringCase(inside, conditional)) {
        // Some programs read on in it, as if it stood there.
        const auto end = inside.substr(0, longestValue).find("]>");
        if (end != std::string_view::npos) {
            rest = inside.substr(end + 2);
            if (rest.starts_with("<!--")) return;  // and every other program, too
            Element element = m_open.empty() ? Element() : m_open.back();
            element.name = conditional;
            element.isHidden = true;
            element.target.clear();
            if (m_open.size() < mostOpen) m_open.push_back(std::move(element));
            return;
        }
    }
    if (startsWithIgnoringCase(inside, "![endif")) endElement(conditional);
    if (inside.starts_with("!--")) {
        // "-->", or "--!>"; "<!-->" is a whole one (HTML, section 13.2.5.43).
        rest = inside.substr(1);
        while (!rest.empty()) {
            rest.remove_prefix(std::min(rest.find("--"), rest.size()));
            const bool isEnd = rest.starts_with("-->"), isOther = rest.starts_with("--!>");
            rest.remove_prefix(std::min<std::size_t>(isEnd ? 3 : isOther ? 4 : 1, rest.size()));
            if (isEnd || isOther) break;
        }
        return;
    }
    const bool isEnd = inside.starts_with('/');
    if (isEnd) inside.remove_prefix(1);
    if (inside.empty() || !isASCIILetter(inside.front())) {
        if (isEnd || inside.starts_with('!') || inside.starts_with('?')) {
            takePiece(rest, '>');
        } else {
            add("<", true);
            rest.remove_prefix(1);
        }
        return;
    }
    std::size_t length = 1;
    while (length < inside.size() && !isSpace(inside[length]) && inside[length] != '>' &&
           inside[length] != '/')
        ++length;
    const std::string name = asciiLowered(inside.substr(0, std::min(length, longestName)));
    rest = inside.substr(length);
    const Attributes attributes = takeAttributes(rest);
    if (isEnd) return endElement(name);
    begin(name, attributes);
    if (name != "script" && name != "style" && name != "textarea" && name != "title") return;
    // Nothing in these is a tag but their own end.
    std::size_t at = rest.find('<');
    while (at != std::string_view::npos && !startsWithIgnoringCase(rest.substr(at + 1), "/" + name))
        at = rest.find('<', at + 1);
    const std::string_view content = rest.substr(0, at);
    rest.remove_prefix(content.size());
    if (name == "textarea") add(content);
}

void PageReader::takeNext(std::string_view& rest) {
    if (rest.front() == '<') return takeTag(rest);
    std::string_view text = rest.substr(0, rest.find('<'));
    rest.remove_prefix(text.size());
    if (!m_open.empty() && m_open.back().name == conditional) {
        if (const auto end = text.find("-->"); end != std::string_view::npos) {
            add(text.substr(0, end));
            endElement(conditional);
            text.remove_prefix(end + 3);
        }
    }
    add(text);
}

}  // namespace

PageText pageText(std::string_view page) { return PageReader().text(page); }

}  // namespace quillmark
