#include "QuillmarkKit/Checks/ChangedTexts.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <span>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Checks/TextDifference.h"
#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Mail/PartContent.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

constexpr std::size_t mostTexts = 8;           // that are told
constexpr std::size_t longestExcerpt = 2'000;  // bytes of a text that is told, before it is cut for a person
constexpr std::size_t mostParts = 200, mostPartDepth = 3;

/// A line of ours among those of a text: which part it is whose lines follow. No line of a text begins so.
constexpr char mark = '\x01';
/// In place of a type: what lies before, between and behind the parts of a multipart.
constexpr std::string_view besideParts = "-";

/// A message as it reads: its parts one after the other, each behind a line with a mark.
struct ReadableText {
    struct Block {
        std::size_t begin = 0;  // of that line
        std::string type = {};
        std::size_t part = 0;    // its number
        std::int64_t bytes = 0;  // of a content that is no text
        bool isLeaf() const { return type != besideParts && !type.starts_with("multipart/"); }
    };
    std::string text = {};
    std::vector<Block> blocks = {};
    std::vector<MIMEPart> parts = {};

    explicit ReadableText(std::string_view lines);
    ReadableText(const MailMessage& message, bool isRelaxed);

    /// The block that the byte lies in; null in front of the first.
    const Block* at(std::size_t byte) const {
        const auto next = std::ranges::upper_bound(blocks, byte, {}, &Block::begin);
        return next == blocks.begin() ? nullptr : &*std::prev(next);
    }

private:
    void addLines(std::string_view lines, bool isRelaxed);
};

void ReadableText::addLines(std::string_view lines, bool isRelaxed) {
    while (!lines.empty()) {
        std::string_view line = takePiece(lines, '\n');
        while (!line.empty() && (line.back() == '\r' || isBlank(line.back()))) line.remove_suffix(1);
        if (line.starts_with(mark)) text += ' ';
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (!isRelaxed || !isBlank(line[i])) {
                text += line[i];
            } else if (i == 0 || !isBlank(line[i - 1])) {
                text += ' ';
            }
        }
        text += '\n';
    }
}

ReadableText::ReadableText(std::string_view lines) {
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, std::min(lines.find('\n'), lines.size() - 1) + 1);
        if (line.starts_with(mark)) text += ' ';
        text += line;
        lines.remove_prefix(line.size());
    }
}

ReadableText::ReadableText(const MailMessage& message, bool isRelaxed)
    : parts(mimeParts(message, mostPartDepth, mostParts)) {
    CharsetDecoder decoder;
    const std::string_view body = message.body().value_or("");
    std::vector<MIMEPart::Line> closing;  // boundaries, which nobody is shown
    for (const MIMEPart& part : parts)
        if (part.closing) closing.push_back(*part.closing);
    std::ranges::sort(closing, {}, &MIMEPart::Line::begin);
    auto nextClosing = closing.begin();
    const auto addBeside = [&](std::size_t from, std::size_t to, std::size_t number) {
        std::string lines;
        for (; nextClosing != closing.end() && nextClosing->begin < to; ++nextClosing) {
            if (nextClosing->begin > from) lines += body.substr(from, nextClosing->begin - from);
            from = std::max(from, nextClosing->end);
        }
        if (from < to) lines += body.substr(from, to - from);
        if (trimmed(lines, " \t\r\n").empty()) return;
        blocks.push_back({.begin = text.size(), .type = std::string(besideParts), .part = number});
        text.append(1, mark).append(besideParts) += '\n';
        addLines(lines, isRelaxed);
    };
    std::size_t at = 0;  // up to which all is told
    for (const MIMEPart& part : parts) {
        if (part.number > 0 && part.begin > at) addBeside(at, part.begin, part.parent.value_or(0));
        const std::string name = part.number > 0 ? fileNameOf(message, part) : std::string();
        Block block{.begin = text.size(), .type = mediaType(part), .part = part.number};
        text.append(1, mark).append(block.type);
        if (!name.empty()) {
            text += ' ';
            std::ranges::replace_copy(name, std::back_inserter(text), '\n', ' ');
        }
        text += '\n';
        if (part.kind == MIMEPart::Kind::multipart) {
            blocks.push_back(std::move(block));
            at = std::max(at, part.bodyBegin);
            continue;
        }
        if (block.type.starts_with("text/")) {
            addLines(textOf(message, part, decoder), isRelaxed);
        } else {
            const std::string content = decodedContent(message, part);
            block.bytes = static_cast<std::int64_t>(content.size());
            text.append(1, mark).append(encodedBase64(hash(HashAlgorithm::sha256, content))) += '\n';
        }
        blocks.push_back(std::move(block));
        at = std::max(at, part.end);
    }
    if (at < body.size()) addBeside(at, body.size(), 0);
}

/// Some lines of a text, in one part; `block` when it begins with them.
struct Piece {
    std::string_view text = {};
    const ReadableText::Block* block = nullptr;

    std::int64_t lines = 0, bytes = 0;  // of text; empty lines in front and behind are not counted as lines
    std::string excerpt = {}, last = {};
    bool hasContent = false;  // that is no text

    Piece(std::string_view from, const ReadableText::Block* begins);
    bool isPart() const { return block && block->isLeaf(); }
    bool isNothing() const { return lines == 0 && !isPart() && !hasContent; }
};

Piece::Piece(std::string_view from, const ReadableText::Block* begins) : text(from), block(begins) {
    std::int64_t all = 0, empty = 0;  // empty lines behind the last one that isn't
    if (block && isPart()) bytes = block->bytes;
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view line = takePiece(rest, '\n');
        if (line.starts_with(mark)) {
            hasContent = hasContent || (!block && !line.substr(1).starts_with("multipart/"));
            continue;
        }
        if (line.ends_with('\r')) line.remove_suffix(1);
        ++all;
        bytes += static_cast<std::int64_t>(line.size()) + 2;
        if (trimmed(line, " \t").empty()) {
            ++empty;
            if (lines > 0 && excerpt.size() < longestExcerpt) excerpt += '\n';
            continue;
        }
        lines = lines == 0 ? 1 : lines + empty + 1;
        empty = 0;
        if (excerpt.size() < longestExcerpt) excerpt.append(line.substr(0, longestExcerpt)) += '\n';
        last = line.substr(0, longestExcerpt);
    }
    if (lines == 0) lines = all;
    while (excerpt.ends_with('\n')) excerpt.pop_back();
}

std::vector<Piece> pieces(const ReadableText& readable, std::size_t begin, std::size_t end) {
    std::vector<Piece> made;
    const std::string_view text = readable.text;
    const ReadableText::Block* block = nullptr;
    std::size_t from = begin;
    for (auto next = std::ranges::lower_bound(readable.blocks, begin, {}, &ReadableText::Block::begin);
         next != readable.blocks.end() && next->begin < end; ++next) {
        if (next->begin > begin || block) made.emplace_back(text.substr(from, next->begin - from), block);
        from = next->begin;
        block = &*next;
    }
    if (from < end || block) made.emplace_back(text.substr(from, end - from), block);
    return made;
}

/// What was put in stands as well a few lines higher when it ends as what is in front of it: where a part was
/// added, it begins with that part.
void slideToPart(DifferentLines& run, std::string_view before, std::string_view after, std::size_t floor) {
    if (run.beforeLines > 0 ||
        after.substr(run.afterBegin, run.afterEnd - run.afterBegin).find(mark) == std::string_view::npos)
        return;
    DifferentLines at = run;
    const auto lineBegin = [&](std::size_t end) { return end < 2 ? 0 : after.rfind('\n', end - 2) + 1; };
    while (after[at.afterBegin] != mark) {
        if (at.afterBegin <= floor) return;
        const std::size_t begin = lineBegin(at.afterBegin), lastBegin = lineBegin(at.afterEnd);
        const std::size_t size = at.afterBegin - begin;
        if (after.substr(begin, size) != after.substr(lastBegin, at.afterEnd - lastBegin) ||
            at.beforeBegin < size || before.substr(at.beforeBegin - size, size) != after.substr(begin, size))
            return;
        at.afterBegin -= size;
        at.afterEnd -= size;
        at.beforeBegin -= size;
        at.beforeEnd -= size;
    }
    run = at;
}

/// Lines as they read, whatever of these forms they are written in.
std::string withoutForms(std::string_view text, const std::set<RewrittenForm>& forms) {
    using enum RewrittenForm;
    const auto isOneOf = [&](std::initializer_list<RewrittenForm> wanted) {
        return std::ranges::any_of(wanted, [&](RewrittenForm form) { return forms.contains(form); });
    };
    const bool isSpaced = isOneOf({blanks, blankLines, lineBreaks, indentation});
    std::string made;
    while (!text.empty()) {
        std::string_view line = takePiece(text, '\n');
        if (forms.contains(indentation))
            line.remove_prefix(std::min(line.find_first_not_of(" \t>|"), line.size()));
        if (forms.contains(fromQuoting)) {
            const auto marks = std::min(line.find_first_not_of('>'), line.size());
            if (line.substr(marks).starts_with("From ")) line.remove_prefix(marks);
        }
        while (forms.contains(dots) && line.starts_with("..")) line.remove_prefix(1);
        // Where a long line was broken may stand a mark, and no blank was there before.
        if (forms.contains(lineBreaks) && line.ends_with('!')) line.remove_suffix(1);
        made.append(line) += '\n';
    }
    if (forms.contains(typography)) made = withPlainTypography(made);
    if (!isSpaced) return made;
    std::string words;
    for (std::string_view rest = made; !rest.empty();)
        words.append(takeWord(rest, " \t\r\n")).append(forms.contains(lineBreaks) ? "" : " ");
    return std::string(trimmed(words, " "));
}

/// Whether a page's source shows nothing to a person: tags alone.
bool isBare(std::string_view page) {
    while (!page.empty()) {
        const auto tag = std::min(page.find('<'), page.size());
        if (!trimmed(page.substr(0, tag), " \t\r\n").empty()) return false;
        page.remove_prefix(std::min(page.find('>', tag), page.size() - 1) + 1);
    }
    return true;
}

/// Whether a page's source has only tags that can't hide what stands around them.
bool isHarmless(std::string_view page) {
    static constexpr std::string_view harmless[] = {"p", "br", "br/", "hr",     "hr/",
                                                    "b", "i",  "em",  "strong", "a"};
    while (true) {
        const auto tag = page.find('<');
        if (tag == std::string_view::npos) return true;
        page.remove_prefix(tag + 1);
        const auto end = page.find('>');
        if (end == std::string_view::npos) return false;
        std::string_view inside = page.substr(0, end);
        page.remove_prefix(end + 1);
        if (inside.starts_with('/')) inside.remove_prefix(1);
        const std::string name = asciiLowered(takeWord(inside, " \t\n"));
        if (std::ranges::find(harmless, name) == std::end(harmless)) return false;
        const std::string_view attribute = trimmed(inside, " \t\n/");
        const bool isLink = name == "a" && startsWithIgnoringCase(attribute, "href=");
        if (!attribute.empty() && (!isLink || attribute.find_first_of(" \t\n") != std::string_view::npos))
            return false;
    }
}

class Comparison {
public:
    Comparison(const ReadableText& shown, const ReadableText& asSigned, const std::set<RewrittenForm>& forms);

    TextChanges changes();

private:
    void tell(const DifferentLines& run);
    void tell(const DifferentLines& run, const Piece* added, const Piece* missing);
    ChangedText::Place placeOf(const DifferentLines& run, const Piece& piece) const;
    std::optional<ChangedText::Place> placeInPage(const DifferentLines& run) const;
    bool isShownAlone(const ReadableText::Block& added) const;
    bool mayHide(const Piece& added, const Piece* missing) const;
    void findSigned(const std::vector<DifferentLines>& runs);

    const ReadableText& m_shown;
    const ReadableText& m_signed;
    const std::set<RewrittenForm>& m_forms;
    std::size_t m_first = 0, m_last = 0;  // where the first line that is told begins, and the last one ends
    std::vector<const ReadableText::Block*> m_signedBlocks = {};  // of what is shown
    TextChanges m_changes = {};
};

Comparison::Comparison(const ReadableText& shown, const ReadableText& asSigned,
                       const std::set<RewrittenForm>& forms)
    : m_shown(shown), m_signed(asSigned), m_forms(forms), m_last(asSigned.text.size()) {
    const std::string_view text = m_signed.text;
    const auto lineBegin = [&](std::size_t end) { return end < 2 ? 0 : text.rfind('\n', end - 2) + 1; };
    while (m_first < m_last && text[m_first] == mark)
        m_first = std::min(text.find('\n', m_first), text.size() - 1) + 1;
    while (m_last > m_first && text[lineBegin(m_last)] == mark) m_last = lineBegin(m_last);
}

/// Where a run of lines stands in the page that it is a part of, when it is at one of its ends.
std::optional<ChangedText::Place> Comparison::placeInPage(const DifferentLines& run) const {
    const auto* block = m_signed.at(run.beforeBegin == 0 ? 0 : run.beforeBegin - 1);
    if (!block || block->type != "text/html") return std::nullopt;
    const std::string_view text = m_signed.text;
    const auto begin = text.find('\n', block->begin) + 1;
    std::string_view before = text.substr(begin, run.beforeBegin - begin), after = text.substr(run.beforeEnd);
    constexpr char lineOfMark[] = {'\n', mark, '\0'};
    after = after.starts_with(mark) ? std::string_view() : after.substr(0, after.find(lineOfMark));
    // What stands in front of it isn't shown as text.
    for (auto at = before.find('<'); at != std::string_view::npos; at = before.find('<', at + 1)) {
        if (!startsWithIgnoringCase(before.substr(at), "<body")) continue;
        before.remove_prefix(at);
        break;
    }
    if (isBare(before)) return ChangedText::Place::htmlStart;
    return isBare(after) ? std::optional(ChangedText::Place::htmlEnd) : std::nullopt;
}

ChangedText::Place Comparison::placeOf(const DifferentLines& run, const Piece& piece) const {
    using Place = ChangedText::Place;
    if (!piece.block) {
        if (const auto place = placeInPage(run)) return *place;
    }
    if (run.beforeBegin <= m_first) return Place::start;
    if (piece.isPart()) return Place::part;
    const bool endsPart = run.beforeEnd >= m_last || m_signed.text[run.beforeEnd] == mark;
    return endsPart || piece.block ? Place::end : Place::inside;
}

/// Whether some program shows this part and, for it, not one that holds what was signed (RFC 2046, sections
/// 5.1.1 and 5.1.4; RFC 2387).
bool Comparison::isShownAlone(const ReadableText::Block& added) const {
    const auto chain = [&](std::size_t part) {  // the part, and what it lies in
        std::vector<std::size_t> numbers = {part};
        while (const auto parent = m_shown.parts[numbers.back()].parent) numbers.push_back(*parent);
        return numbers;
    };
    const auto mine = chain(added.part);
    // Of what lies beside the parts nobody is shown anything.
    if (std::ranges::none_of(m_signedBlocks, &ReadableText::Block::isLeaf)) return !m_signedBlocks.empty();
    return std::ranges::any_of(m_signedBlocks, [&](const ReadableText::Block* block) {
        if (!block->isLeaf()) return false;
        const auto theirs = chain(block->part);
        for (std::size_t i = 1; i < theirs.size(); ++i) {
            const auto found = std::ranges::find(mine, theirs[i]);
            if (found == mine.end() || found == mine.begin()) continue;
            const MIMEPart& around = m_shown.parts[*found];
            const std::string type = mediaType(around);
            if (type == "multipart/alternative") return true;
            // The first part, or one that is named, is shown; the others are for it to use.
            const bool isFirst =
                *std::prev(found) == *found + 1 || !fieldParameter(around.contentType, "start").empty();
            return type == "multipart/related" && isFirst;
        }
        return false;
    });
}

/// Whether what was put into a page may hide what stands around it.
bool Comparison::mayHide(const Piece& added, const Piece* missing) const {
    const auto* block = m_shown.at(static_cast<std::size_t>(added.text.data() - m_shown.text.data()));
    if (!block || block->type != "text/html") return false;
    std::string_view text = added.text, before = missing ? missing->text : std::string_view();
    const auto begin = static_cast<std::size_t>(std::ranges::mismatch(text, before).in1 - text.begin());
    text.remove_prefix(begin);
    before.remove_prefix(begin);
    while (!text.empty() && !before.empty() && text.back() == before.back()) {
        text.remove_suffix(1);
        before.remove_suffix(1);
    }
    return before.empty() && !isHarmless(text);
}

/// The blocks that hold lines which are no different.
void Comparison::findSigned(const std::vector<DifferentLines>& runs) {
    auto run = runs.begin();
    const std::string_view text = m_shown.text;
    for (std::size_t i = 0; i < m_shown.blocks.size(); ++i) {
        const ReadableText::Block& block = m_shown.blocks[i];
        const std::size_t end = i + 1 < m_shown.blocks.size() ? m_shown.blocks[i + 1].begin : text.size();
        std::size_t at = std::min(text.find('\n', block.begin), end - 1) + 1;
        bool isSigned = false;
        while (at < end && !isSigned) {
            while (run != runs.end() && run->afterEnd <= at) ++run;
            const std::size_t next = run == runs.end() ? end : std::clamp(run->afterBegin, at, end);
            isSigned = !trimmed(text.substr(at, next - at), " \t\r\n").empty();
            at = run == runs.end() ? end : std::max(next, std::min(run->afterEnd, end));
        }
        if (isSigned) m_signedBlocks.push_back(&block);
    }
}

void Comparison::tell(const DifferentLines& run, const Piece* added, const Piece* missing) {
    using Kind = ChangedText::Kind;
    if (added && added->isNothing()) added = nullptr;
    if (missing && missing->isNothing()) missing = nullptr;
    if (!added && !missing) return;
    const Piece& told = added ? *added : *missing;
    ChangedText change;
    change.kind = !added ? Kind::missing : missing ? Kind::changed : Kind::added;
    change.lines = told.lines;
    change.bytes = told.bytes;
    change.excerpt = told.excerpt;
    change.last = told.last;
    if (change.kind == Kind::changed) {
        change.signedLines = missing->lines;
        change.signedExcerpt = missing->excerpt;
    } else if (told.isPart()) {
        change.type = told.block->type;
    }
    if (added && (added->isPart() ? isShownAlone(*added->block) : mayHide(*added, missing)))
        change.alone = true;
    m_changes.addedBytes +=
        std::max<std::int64_t>(0, (added ? added->bytes : 0) - (missing ? missing->bytes : 0));
    if (m_changes.texts.size() < mostTexts) {
        change.place = placeOf(run, told);  // which may go through all of the text: not for each of many
        m_changes.texts.push_back(std::move(change));
        return;
    }
    // The last one stands for all that follow.
    ChangedText& rest = m_changes.texts.back();
    if (rest.kind != change.kind) rest.kind = Kind::changed;
    if (rest.type != change.type) rest.type.reset();
    rest.place = ChangedText::Place::inside;
    rest.lines += change.lines;
    rest.bytes += change.bytes;
    if (change.signedLines) rest.signedLines = rest.signedLines.value_or(0) + *change.signedLines;
    if (change.alone) rest.alone = true;
    rest.last = std::move(change.last);
}

void Comparison::tell(const DifferentLines& run) {
    const auto added = pieces(m_shown, run.afterBegin, run.afterEnd);
    const auto missing = pieces(m_signed, run.beforeBegin, run.beforeEnd);
    for (const auto& all : {std::span(added), std::span(missing)}) {
        m_changes.isWrapped |= std::ranges::any_of(all, [](const Piece& piece) {
            return piece.block && piece.block->type.starts_with("multipart/");
        });
    }
    if (std::ranges::any_of(m_forms, changesLines) && added.size() <= 1 && missing.size() <= 1) {
        const auto text = [&](const std::vector<Piece>& all) {
            return withoutForms(all.empty() ? std::string_view() : all.front().text, m_forms);
        };
        if (text(added) == text(missing)) {
            m_changes.isWritten = true;
            return;
        }
    }
    // Text stands for text, and a part for a part.
    for (std::size_t i = 0, j = 0; i < added.size() || j < missing.size();) {
        const Piece* mine = i < added.size() ? &added[i] : nullptr;
        const Piece* theirs = j < missing.size() ? &missing[j] : nullptr;
        if (mine && theirs && !mine->block != !theirs->block) (mine->block ? mine : theirs) = nullptr;
        tell(run, mine, theirs);
        if (mine) ++i;
        if (theirs) ++j;
    }
}

TextChanges Comparison::changes() {
    auto runs = differentLines(m_signed.text, m_shown.text);
    std::size_t floor = 0;
    for (DifferentLines& run : runs) {
        slideToPart(run, m_signed.text, m_shown.text, floor);
        floor = run.afterEnd;
    }
    findSigned(runs);
    for (const DifferentLines& run : runs) tell(run);
    return std::move(m_changes);
}

}  // namespace

TextChanges changedTexts(const MailMessage& shown, const MailMessage& asSigned,
                         const std::set<RewrittenForm>& forms, bool isRelaxed) {
    return Comparison(ReadableText(shown, isRelaxed), ReadableText(asSigned, isRelaxed), forms).changes();
}

TextChanges changedLines(std::string_view shown, std::string_view asSigned) {
    return Comparison(ReadableText(shown), ReadableText(asSigned), {}).changes();
}

}  // namespace quillmark
