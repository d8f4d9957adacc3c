#include "Quillmark/TextBlocks.h"

#include <optional>
#include <utility>

#include "Wording/Signatures.h"

namespace quillmark {

namespace {

using Look = TextBlock::Look;

QString fromUTF8(const std::string& text) { return QString::fromStdString(text); }

QString partLine(const SignedText::Part& part, const Words& words) {
    const QString name =
        part.name.empty() ? fromUTF8(part.type) : words("%1, “%2”", fromUTF8(part.type), fromUTF8(part.name));
    if (!part.content)
        return part.type == "text/html" ? words("Part: %1, as its source", name) : words("Part: %1", name);
    return words("Part: %1, %2 bytes, SHA-256 %3", name, fromUTF8(words.reader.number(part.content->bytes)),
                 fromUTF8(part.content->sha256));
}

QString countOfMore(std::int64_t count, const Words& words) {
    return words.translateCount("and %n more line", "and %n more lines", count);
}

class BlockMaker {
public:
    BlockMaker(const Words& words, std::size_t mostLinesOfChange)
        : m_words(words), m_mostLines(static_cast<std::int64_t>(mostLinesOfChange)) {}

    void addField(const SignedText::Field& field);
    void addBlock(const SignedText::Block& block);
    void addRest(const SignedText& text);
    std::vector<TextBlock> blocks() && { return std::move(m_blocks); }

private:
    void add(Look look, const QString& margin, const QString& name, QStringList lines,
             bool isChange = false) {
        m_blocks.push_back({look, margin, name, std::move(lines), isChange});
    }
    TextBlock empty(const SignedText::Block& block) const;
    /// "Subject: Minutes" for each of its values.
    QStringList fieldLines(const std::string& field, const std::vector<std::string>& values) const;

    const Words& m_words;
    const std::int64_t m_mostLines;
    std::vector<TextBlock> m_blocks = {};
};

QStringList BlockMaker::fieldLines(const std::string& field, const std::vector<std::string>& values) const {
    const QString name = fromUTF8(fieldNames({field}, m_words.reader));
    QStringList lines;
    for (const std::string& value : values) lines << m_words("%1: %2", name, fromUTF8(value));
    if (values.empty()) lines << m_words("(no %1 line)", name);
    return lines;
}

void BlockMaker::addField(const SignedText::Field& field) {
    const QStringList shown = fieldLines(field.name, field.shown);
    switch (field.kind) {
        case SignedText::Field::Kind::same:
            return add(Look::plain, m_words("signed"), m_words("signed"), shown);
        case SignedText::Field::Kind::notSigned:
            return add(Look::marked, m_words("not signed"), m_words("not signed"), shown);
        case SignedText::Field::Kind::changed:
            add(Look::marked, m_words("as shown"), m_words("as shown, not signed"), shown, true);
            return add(Look::plain, m_words("as signed"), m_words("as signed"),
                       fieldLines(field.name, field.signedValues), true);
    }
}

/// What is said of a block; of attachments alone without a number of lines.
TextBlock BlockMaker::empty(const SignedText::Block& block) const {
    using Kind = SignedText::Block::Kind;
    const std::int64_t count = block.count;
    switch (block.kind) {
        case Kind::added:
            return {Look::marked, m_words("added"),
                    count == 0 ? m_words("added, not signed")
                               : m_words.translateCount("added, not signed, %n line",
                                                        "added, not signed, %n lines", count)};
        case Kind::missing:
            return {Look::marked, m_words("missing"),
                    count == 0 ? m_words("missing, but signed")
                               : m_words.translateCount("missing, but signed, %n line",
                                                        "missing, but signed, %n lines", count)};
        case Kind::changed:
            return {Look::marked, m_words("changed"),
                    count == 0 ? m_words("changed, not signed")
                               : m_words.translateCount("changed, not signed, %n line",
                                                        "changed, not signed, %n lines", count)};
        case Kind::replaced:
            return {Look::plain, m_words("as signed"),
                    count == 0 ? m_words("as signed")
                               : m_words.translateCount("as signed, %n line", "as signed, %n lines", count)};
        case Kind::same:
        case Kind::folded:
            break;
    }
    return {Look::plain, m_words("signed"),
            m_words.translateCount("signed, %n line", "signed, %n lines", count)};
}

void BlockMaker::addBlock(const SignedText::Block& block) {
    using Kind = SignedText::Block::Kind;
    if (block.kind == Kind::folded) {
        const QString text = m_words.translateCount("… %n line as it was signed",
                                                    "… %n lines as they were signed", block.count);
        return add(Look::quiet, {}, text, {text});
    }
    TextBlock made = empty(block);
    made.isChange = block.kind != SignedText::Block::Kind::same;
    std::int64_t shown = 0;
    for (const SignedText::Line& line : block.lines) {
        if (made.isChange && shown == m_mostLines) break;
        if (!line.part) {
            ++shown;
            made.lines << fromUTF8(line.text);
            continue;
        }
        const QString head = partLine(*line.part, m_words);
        if (made.isChange) {
            made.lines << head;
            continue;
        }
        if (!made.lines.isEmpty()) m_blocks.push_back(made);
        made.lines.clear();
        add(Look::quiet, {}, head, {head});
    }
    if (!made.lines.isEmpty()) m_blocks.push_back(made);
    if (shown < block.count) {
        const QString more = countOfMore(block.count - shown, m_words);
        add(Look::quiet, {}, more, {more}, made.isChange);
    }
}

void BlockMaker::addRest(const SignedText& text) {
    if (text.moreLines == 0) return;
    const QString more = countOfMore(text.moreLines, m_words);
    const QString rest =
        text.hasMoreChanges
            ? m_words("%1. They are too many to be shown; some aren’t as they were signed.", more)
            : m_words("%1. They are too many to be shown; all are as they were signed.", more);
    add(text.hasMoreChanges ? Look::marked : Look::quiet, {}, rest, {rest});
}

}  // namespace

std::vector<TextBlock> blocksOf(const SignedText& text, const Words& words, std::size_t mostLinesOfChange) {
    BlockMaker maker(words, mostLinesOfChange);
    for (const SignedText::Field& field : text.fields) maker.addField(field);
    for (const SignedText::Block& block : text.blocks) maker.addBlock(block);
    maker.addRest(text);
    return std::move(maker).blocks();
}

namespace {

/// Lines of one kind.
TextBlock emptyBlock(PageText::Line::Kind kind, const Words& words) {
    using Kind = PageText::Line::Kind;
    switch (kind) {
        case Kind::hidden:
            return {Look::marked, words("hidden"), words("hidden text"), {}, false};
        case Kind::link:
            return {Look::plain, words("link"), words("link"), {}, false};
        case Kind::image:
            return {Look::plain, words("picture"), words("in place of a picture"), {}, false};
        case Kind::text:
            break;
    }
    return {Look::plain, {}, words("text"), {}, false};
}

void addLines(std::vector<TextBlock>& blocks, const std::vector<PageText::Line>& lines, const Words& words) {
    using Kind = PageText::Line::Kind;
    std::optional<Kind> last;
    for (const PageText::Line& line : lines) {
        if (line.kind != last) blocks.push_back(emptyBlock(line.kind, words));
        last = line.kind;
        const QString text = fromUTF8(line.text);
        blocks.back().lines << (line.label.empty() ? text
                                                   : words("“%1” leads to %2", fromUTF8(line.label), text));
    }
}

}  // namespace

std::vector<TextBlock> blocksOf(const MessageText& text, const Words& words) {
    std::vector<TextBlock> blocks;
    const auto say = [&](const QString& line) { blocks.push_back({Look::quiet, {}, line, {line}, false}); };
    for (const SignedText::Field& field : text.fields) {
        TextBlock block{Look::plain, {}, words("header line"), {}, false};
        const QString name = fromUTF8(fieldNames({field.name}, words.reader));
        for (const std::string& value : field.shown) block.lines << words("%1: %2", name, fromUTF8(value));
        blocks.push_back(std::move(block));
    }
    for (const MessageText::Text& each : text.texts) {
        say(each.type == "text/html" ? words("A page (HTML), as its text:") : words("Plain text:"));
        addLines(blocks, each.lines, words);
        if (each.lines.empty() && !each.isCut) say(words("(no text)"));
        if (each.isCut) say(words("There is more, which is too much to be shown."));
    }
    if (text.texts.empty()) say(words("The message has no text."));
    for (const SignedText::Part& part : text.attachments)
        blocks.push_back({Look::plain, words("attached"), words("attached"), {partLine(part, words)}, false});
    if (text.moreParts > 0)
        say(words.translateCount("and %n more part", "and %n more parts", text.moreParts));
    return blocks;
}

}  // namespace quillmark
