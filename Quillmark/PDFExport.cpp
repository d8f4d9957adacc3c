#include "Quillmark/PDFExport.h"

#include <QAbstractTextDocumentLayout>
#include <QBuffer>
#include <QCoreApplication>
#include <QFontMetricsF>
#include <QLocale>
#include <QPageLayout>
#include <QPainter>
#include <QPdfWriter>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextObjectInterface>
#include <QTextTable>
#include <algorithm>
#include <array>
#include <utility>

#include "Quillmark/Tones.h"
#include "Quillmark/WayPicture.h"
#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/Details.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"
#include "Wording/TextReport.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr double marginMillimetres = 20, footerMillimetres = 10;
constexpr int dotsPerInch = 300;
/// What the PDF holds of one text, in bytes, and of one list.
constexpr ReportCaps paperCaps{1'000, 100};
constexpr std::size_t longestInTitle = 60;  // bytes of one domain
constexpr std::size_t mostCautions = 10;    // on the first page; all stand with the evidence
/// Dots between letters, too few to be seen: letters with a space between them are not joined into one sign,
/// which nobody finds who searches for a domain with an "fi" in it.
constexpr double unligated = 0.02;
constexpr double wayPoints = 8.5;
constexpr std::size_t mostLookups = 500;
constexpr std::size_t mostRecords = 20;  // of one lookup
const QColor ink(0x1a, 0x1a, 0x1a), fadedInk(0x55, 0x55, 0x55), rule(0xcc, 0xcc, 0xcc);

bool isRightToLeft(const Words& words) { return factsOf(words.reader.language).isRightToLeft; }

/// The drawing of the way, as a letter of the text is.
class WayObject : public QObject, public QTextObjectInterface {
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)
public:
    static constexpr int type = QTextFormat::UserObject + 1;

    WayObject(const Way& way, const QFont& font, QPaintDevice* device, double width, const Words& words)
        : m_picture(way, font, device, words), m_width(width), m_isRightToLeft(isRightToLeft(words)) {}

    QSizeF intrinsicSize(QTextDocument*, int, const QTextFormat&) override {
        return {m_width, m_picture.heightForWidth(m_width)};
    }
    void drawObject(QPainter* painter, const QRectF& rect, QTextDocument*, int, const QTextFormat&) override {
        painter->save();
        QPalette paper(Qt::white);
        paper.setColor(QPalette::Text, ink);
        m_picture.paint(*painter, rect.topLeft(), m_width, paper, m_isRightToLeft);
        painter->restore();
    }

private:
    WayPicture m_picture;
    double m_width;
    bool m_isRightToLeft;
};

/// Blocks that pieces, and those that pages begin with, by their numbers, rising.
struct Beginnings {
    std::vector<int> pieces, pages;
};

/// Sets text, one paragraph after the other, in the formats of our own document.
class Typesetter {
public:
    /// All is one edit, so that the document is laid out once.
    Typesetter(QTextDocument& document, const Words& words) : m_cursor(&document), m_words(words) {
        m_cursor.beginEditBlock();
    }
    ~Typesetter() { m_cursor.endEditBlock(); }
    Typesetter(const Typesetter&) = delete;
    Typesetter& operator=(const Typesetter&) = delete;

    void paragraph(const QString& text, double points, QFont::Weight weight = QFont::Normal,
                   QColor color = ink, double above = 2) {
        QTextBlockFormat block;
        block.setTopMargin(above);
        block.setNonBreakableLines(false);
        if (m_isEmpty) {
            m_cursor.setBlockFormat(block);
        } else {
            m_cursor.insertBlock(block);
        }
        m_isEmpty = false;
        m_cursor.insertText(text, format(points, weight, color));
    }

    /// What is set until the next one begins is kept on one page.
    void beginPiece() { m_pieces.push_back(m_cursor.document()->blockCount()); }
    /// A piece at the top of a page.
    void beginPage() {
        beginPiece();
        m_pages.push_back(m_pieces.back());
    }
    /// The numbers of the blocks that they begin with.
    Beginnings beginnings() && { return {std::move(m_pieces), std::move(m_pages)}; }

    void way() {
        paragraph({}, 9, QFont::Normal, ink, 6);
        QTextCharFormat object;
        object.setObjectType(WayObject::type);
        m_cursor.insertText(QString(QChar::ObjectReplacementCharacter), object);
    }

    void heading(const QString& text) { paragraph(text, 12, QFont::Bold, ink, 14); }

    void facts(const std::vector<ReportFact>& facts, double points = 9.5) {
        if (facts.empty()) return;
        QTextTableFormat table;
        table.setBorder(0);
        table.setCellPadding(1.5);
        table.setCellSpacing(0);
        table.setTopMargin(3);
        table.setWidth(QTextLength(QTextLength::PercentageLength, 100));
        // Qt mirrors no tables.
        const int names = isRightToLeft(m_words) ? 1 : 0, values = 1 - names;
        QList<QTextLength> widths(2, QTextLength(QTextLength::PercentageLength, 74));
        widths[names] = QTextLength(QTextLength::PercentageLength, 26);
        table.setColumnWidthConstraints(widths);
        QTextTable* grid = m_cursor.insertTable(static_cast<int>(facts.size()), 2, table);
        for (int row = 0; const ReportFact& fact : facts) {
            grid->cellAt(row, names)
                .firstCursorPosition()
                .insertText(fact.name, format(points, QFont::Normal, fadedInk));
            grid->cellAt(row, values)
                .firstCursorPosition()
                .insertText(fact.value, format(points, QFont::Normal, ink));
            ++row;
        }
        m_cursor.movePosition(QTextCursor::End);
    }

    void note(const ReportLine& note) {
        paragraph((note.tone ? toneSymbol(*note.tone) : QStringLiteral("•")) + u' ' + note.text, 10);
        for (const TextBlock& each : note.changes) changed(each);
    }

    /// Lines of a message, those that are not signed behind a bar.
    void changed(const TextBlock& block) {
        constexpr double indent = 40;
        beginPiece();  // many lines need not stay with the sentence above them
        paragraph(block.name, 9, QFont::Normal, fadedInk, 4);
        indented(indent);
        if (block.look == TextBlock::Look::quiet) return;  // its name is what it says
        for (const QString& line : block.lines) {
            paragraph(block.look == TextBlock::Look::marked ? QStringLiteral("| ") + line : line, 8.5,
                      QFont::Normal, ink, 0);
            indented(2 * indent);
            QTextCharFormat fixed;
            fixed.setFontFamilies({QStringLiteral("monospace")});
            m_cursor.select(QTextCursor::BlockUnderCursor);
            m_cursor.mergeCharFormat(fixed);
            m_cursor.movePosition(QTextCursor::End);
        }
    }

    void row(const ReportRow& row) {
        QString head = row.label;
        QColor color = ink;
        if (row.tone) {
            head = toneSymbol(*row.tone) + u' ' + head + QStringLiteral(" (") + toneWord(*row.tone, m_words) +
                   u')';
            color = toneColor(*row.tone, Qt::white, QPalette(Qt::white));
        }
        if (!head.isEmpty()) paragraph(head, 10, QFont::DemiBold, color, 8);
        if (!row.sentence.isEmpty()) paragraph(row.sentence, 10);
        for (const ReportLine& each : row.notes) note(each);
        facts(row.details, 9);
    }

private:
    void indented(double by) {
        QTextBlockFormat format = m_cursor.blockFormat();
        isRightToLeft(m_words) ? format.setRightMargin(by) : format.setLeftMargin(by);
        m_cursor.setBlockFormat(format);
    }
    static QTextCharFormat format(double points, QFont::Weight weight, const QColor& color) {
        QTextCharFormat format;
        format.setFontPointSize(points);
        format.setFontWeight(weight);
        format.setForeground(color);
        format.setFontLetterSpacingType(QFont::AbsoluteSpacing);
        format.setFontLetterSpacing(unligated);
        return format;
    }

    QTextCursor m_cursor;
    const Words& m_words;
    std::vector<int> m_pieces = {}, m_pages = {};
    bool m_isEmpty = true;
};

/// What is said of the message itself, which stands on the first page.
const ReportSection* messageOf(const ReportContent& content) {
    const auto found = std::ranges::find_if(
        content.sections, [](const ReportSection& each) { return each.part == NoteSection::message; });
    return found == content.sections.end() ? nullptr : &*found;
}

/// One page that can be read alone, and the evidence behind it.
Beginnings compose(QTextDocument& document, const ReportContent& content, const PDFFrame& frame,
                   const Words& words) {
    Typesetter set(document, words);
    set.paragraph(words("Quillmark report"), 10, QFont::Normal, fadedInk);
    const QColor color = toneColor(content.tone, Qt::white, QPalette(Qt::white));
    set.paragraph(toneSymbol(content.tone) + u' ' + content.headline, 17, QFont::Bold, color, 8);
    set.paragraph(content.explanation, 10.5, QFont::Normal, ink, 4);
    if (content.decider) set.note({content.decider->tone, content.decider->text});
    if (!content.lead.isEmpty()) {
        const QColor amber = toneColor(Tone::caution, Qt::white, QPalette(Qt::white));
        set.paragraph(toneSymbol(Tone::caution) + u' ' + content.lead, 12, QFont::Bold, amber, 8);
    }
    const std::size_t told = std::min(content.cautions.size(), mostCautions);
    for (std::size_t i = 0; i < told; ++i) set.note({{}, content.cautions[i].text});
    if (const std::size_t left = content.cautions.size() - told + content.more) {
        set.note({{}, words.translateCount("and %n more", "and %n more", static_cast<std::int64_t>(left))});
    }
    for (const ReportLine& each : content.remarks) set.note(each);
    QString whatToDo = content.whatToDo;
    if (content.expectation) {
        const ExpectedAnswer& answer = content.expectation->answer;
        set.note({answer.tone, words.sentence(answer.text)});
        if (!answer.whatToDo.empty()) whatToDo = words.sentence(answer.whatToDo);
    }
    set.paragraph(words("What to do: %1", whatToDo), 10.5, QFont::DemiBold, ink, 8);
    const ReportSection* message = messageOf(content);
    if (message) {
        set.beginPiece();
        set.heading(message->heading);
        set.facts(message->facts);
        set.beginPiece();
        set.heading(words("The check"));
    }
    set.facts(frame.record);
    set.beginPiece();
    set.heading(words("For whoever is given this page"));
    for (const std::string& each : forWhoeverIsGivenIt(words.reader)) set.paragraph(words.sentence(each), 10);
    bool isFirstSection = true;
    for (const ReportSection& section : content.sections) {
        if (&section == message && section.notes.empty()) continue;
        std::exchange(isFirstSection, false) ? set.beginPage() : set.beginPiece();
        set.heading(section.heading);
        if (&section != message) set.facts(section.facts);
        if (section.way) set.way();
        bool isFirst = section.facts.empty() || &section == message;  // which stays with the heading
        for (const auto* rows : {&section.rows, &section.chain}) {
            for (const ReportRow& row : *rows) {
                if (!std::exchange(isFirst, false)) set.beginPiece();
                set.row(row);
            }
        }
        for (const ReportLine& each : section.notes) set.note(each);
        for (const QString& remark : section.remarks) set.paragraph(remark, 10);
    }
    if (!frame.lookups.empty()) {
        set.beginPiece();
        set.heading(words("What was looked up"));
        set.facts(frame.lookups, 8.5);
    }
    return std::move(set).beginnings();
}

/// A line of a document, or several that stand beside each other; where it reaches from and to.
struct Line {
    double top = 0, bottom = 0;
    bool beginsPiece = false, beginsPage = false;
};

/// All lines from top to bottom.
std::vector<Line> linesOf(const QTextDocument& document, const Beginnings& beginnings) {
    std::vector<Line> lines;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        const double top = document.documentLayout()->blockBoundingRect(block).top();
        const bool beginsPiece = std::ranges::binary_search(beginnings.pieces, block.blockNumber());
        const bool beginsPage = std::ranges::binary_search(beginnings.pages, block.blockNumber());
        for (int i = 0; i < block.layout()->lineCount(); ++i) {
            const QRectF line = block.layout()->lineAt(i).rect();
            lines.push_back(
                {top + line.top(), top + line.bottom(), beginsPiece && i == 0, beginsPage && i == 0});
        }
    }
    std::ranges::stable_sort(lines, {}, &Line::top);
    std::vector<Line> merged;
    for (const Line& each : lines) {
        if (!merged.empty() && each.top < merged.back().bottom) {
            merged.back().bottom = std::max(merged.back().bottom, each.bottom);
            merged.back().beginsPiece |= each.beginsPiece;
            merged.back().beginsPage |= each.beginsPage;
        } else {
            merged.push_back(each);
        }
    }
    return merged;
}

/// What stands on each page: whole lines. A piece for which there is no room goes to the next page as a
/// whole, unless it is taller than that.
std::vector<Line> pagesOf(const std::vector<Line>& lines, double height) {
    std::vector<Line> pages;
    std::size_t piece = 0;  // where the last one begins that was seen
    for (std::size_t first = 0, next = 0; first < lines.size(); first = next) {
        for (next = first; next < lines.size(); ++next) {
            if (next > first && lines[next].bottom > lines[first].top + height) break;
            if (next > first && lines[next].beginsPage) break;
            if (lines[next].beginsPiece) piece = next;
        }
        if (next < lines.size() && !lines[next].beginsPiece && piece > first) {
            std::size_t last = next;
            while (last + 1 < lines.size() && !lines[last + 1].beginsPiece &&
                   lines[last].bottom <= lines[piece].top + height)
                ++last;
            if (lines[last].bottom <= lines[piece].top + height) next = piece;
        }
        pages.push_back({lines[first].top, lines[next - 1].bottom});
    }
    return pages;
}

/// Divides the paragraphs that go on on another page, which moves no line: of one paragraph, the line above
/// those that are asked for would be drawn, too, unseen, but in the text that is selected and searched.
void divideParagraphs(QTextDocument& document, const std::vector<Line>& pages) {
    const auto pageOf = [&](double y) {
        constexpr double rounding = 0.25;
        return std::ranges::upper_bound(pages, y + rounding, {}, &Line::top) - pages.begin();
    };
    std::vector<int> places;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        const double top = document.documentLayout()->blockBoundingRect(block).top();
        for (int i = 1; i < block.layout()->lineCount(); ++i) {
            const QTextLine line = block.layout()->lineAt(i), above = block.layout()->lineAt(i - 1);
            if (pageOf(top + line.y()) != pageOf(top + above.y()))
                places.push_back(block.position() + line.textStart());
        }
    }
    QTextCursor cursor(&document);
    while (!places.empty()) {
        cursor.setPosition(places.back());
        places.pop_back();
        QTextBlockFormat format = cursor.blockFormat();
        format.setTopMargin(0);
        cursor.insertBlock(format);
    }
}

QFont withSingleLetters(QFont font) {
    font.setLetterSpacing(QFont::AbsoluteSpacing, unligated);
    return font;
}

/// One text at the begin of the line and one at its end.
void drawFooter(QPainter& painter, const QRectF& area, const QString& begin, const QString& end,
                bool isMirrored) {
    painter.setPen(rule);
    painter.drawLine(area.topLeft(), area.topRight());
    painter.setPen(fadedInk);
    QFont font = painter.font();
    font.setPointSizeF(8);
    font = withSingleLetters(font);
    painter.setFont(font);
    const QFontMetricsF metrics(font, painter.device());
    const double other = metrics.horizontalAdvance(end + QStringLiteral("    "));
    const int direction = isMirrored ? Qt::TextForceRightToLeft : Qt::TextForceLeftToRight;
    const Qt::Alignment atBegin =
        Qt::AlignBottom | Qt::AlignAbsolute | (isMirrored ? Qt::AlignRight : Qt::AlignLeft);
    const Qt::Alignment atEnd =
        Qt::AlignBottom | Qt::AlignAbsolute | (isMirrored ? Qt::AlignLeft : Qt::AlignRight);
    // In two lines where it needs them: what it ends with is a domain.
    painter.drawText(area.adjusted(isMirrored ? other : 0, 0, isMirrored ? 0 : -other, 0),
                     static_cast<int>(atBegin) | Qt::TextWrapAnywhere | direction, begin);
    painter.drawText(area, static_cast<int>(atEnd) | Qt::TextSingleLine | direction, end);
}

/// Names that Windows keeps for devices, whatever follows the first dot.
bool isReservedName(const QString& stem) {
    const QString base = stem.section(u'.', 0, 0).trimmed().toLower();
    static constexpr std::array names = {"con", "prn", "aux", "nul"};
    for (const char* name : names) {
        if (base == QLatin1String(name)) return true;
    }
    const bool numbered = base.startsWith(QLatin1String("com")) || base.startsWith(QLatin1String("lpt"));
    return base.size() == 4 && numbered && base[3].isDigit();
}

/// What was asked and answered, a line each.
std::vector<ReportFact> lookupsOf(const CheckedMessage& checked, const Words& words) {
    std::vector<ReportFact> facts;
    const auto add = [&](std::string_view question, const QString& answer, const std::string& source) {
        if (facts.size() >= mostLookups) return;
        facts.push_back({shown(question, paperCaps.text),
                         source.empty() ? answer : words("%1 (from %2)", answer, shown(source))});
    };
    if (checked.answers) {
        for (const auto& [question, entry] : checked.answers->dns.entries()) {
            QStringList data;
            const auto records = entry.value.data();
            for (const std::string& each : records.first(std::min(records.size(), mostRecords))) {
                data << shown(each, paperCaps.text);
            }
            if (records.size() > mostRecords) {
                const auto left = static_cast<std::int64_t>(records.size() - mostRecords);
                data << words.translateCount("and %n more", "and %n more", left);
            }
            const bool isMissing = std::holds_alternative<DNSAnswer::NXDomain>(entry.value.value);
            if (data.isEmpty()) data << (isMissing ? words("no such name") : words("no such record"));
            add(question, data.join(QStringLiteral(" · ")), entry.source);
        }
        for (const auto& [domain, entry] : checked.answers->registrations.entries()) {
            add(domain,
                entry.value
                    ? words("registered on %1", QString::fromStdString(words.reader.date(*entry.value)))
                    : words("no registration date published"),
                entry.source);
        }
    }
    if (checked.failures) {
        for (const auto* record : {&checked.failures->dns, &checked.failures->registrations}) {
            for (const auto& [question, entry] : record->entries()) {
                add(question,
                    words("couldn’t be asked for: %1", words.sentence(detailText(entry.value, words.reader))),
                    {});
            }
        }
    }
    return facts;
}

/// What differs in a message as it was signed: of one that is at hand from its text, else from what the
/// report kept of it.
std::vector<TextBlock> changesOf(const ReportNote& note, const SignedText* text, const Words& words) {
    constexpr std::size_t mostLinesOfChange = 60;
    std::vector<TextBlock> changes;
    if (text) {
        for (TextBlock& each : blocksOf(*text, words, mostLinesOfChange)) {
            if (each.isChange) changes.push_back(std::move(each));
        }
        return changes;
    }
    for (const std::string& each : details(note, words.reader)) {
        constexpr std::string_view bar = "  | ";
        if (!each.starts_with(bar)) {
            changes.push_back({TextBlock::Look::quiet, {}, words.sentence(trimmedBlanks(each)), {}});
            continue;
        }
        changes.back().look = TextBlock::Look::marked;
        changes.back().lines << QString::fromStdString(each.substr(bar.size()));
    }
    return changes;
}

/// Sets what was changed under each note that a signature holds again.
void addChanges(ReportContent& content, const ProofReport& report,
                const std::optional<CheckedMessage>& checked, const Words& words,
                const std::stop_token& stop) {
    std::vector<const ReportNote*> notes;
    for (const ReportNote& note : report.notes) {
        if (std::holds_alternative<ReportNote::Undone>(note.value)) notes.push_back(&note);
    }
    if (notes.empty()) return;
    const auto texts = checked ? signedTexts(*checked, report, stop) : std::vector<SignedText>();
    for (ReportSection& section : content.sections) {
        for (ReportLine& line : section.notes) {
            if (!line.undone) continue;
            const std::size_t place = *line.undone;
            line.changes = changesOf(*notes[place], place < texts.size() ? &texts[place] : nullptr, words);
        }
    }
}

PDFFrame frameOf(const ProofReport& report, const std::optional<CheckedMessage>& checked,
                 const QString& mailbox, const Words& words) {
    PDFFrame frame;
    Verdict named = report.verdict;  // with domains that a line has room for
    for (std::string* each : {&named.domain, &named.fromDomain}) *each = cutInside(*each, longestInTitle);
    frame.title =
        withoutIsolation(words("Quillmark report: %1", words.sentence(headline(named, words.reader))));
    frame.isLetter = QLocale().measurementSystem() == QLocale::ImperialUSSystem;
    frame.record = {{words("Checked"), words.time(report.checkedAt)},
                    {words("Checked with"), words("Quillmark %1", QCoreApplication::applicationVersion())}};
    if (report.fileName)
        frame.record.push_back(
            {words("File"), shown(placeName(*report.fileName, words.reader), paperCaps.text)});
    if (!mailbox.isEmpty()) frame.record.push_back({words("Mailbox"), mailbox});
    if (!checked) return frame;
    const ByteBuffer& bytes = *checked->source.bytes;
    const auto size = static_cast<std::int64_t>(bytes.size());
    frame.record.push_back({words("SHA-256 of the message"), QString::fromStdString(sha256(bytes.view()))});
    frame.record.push_back(
        {words("Size"), words("%1 bytes", QString::fromStdString(words.reader.number(size)))});
    frame.lookups = lookupsOf(*checked, words);
    return frame;
}

/// Whom DNS was asked at weighs on all that was found: it stands with the check, on the page that is read
/// alone.
void moveAnswerer(ReportContent& content, PDFFrame& frame, const ProofReport& report, const Words& words) {
    for (ReportSection& section : content.sections) {
        std::erase_if(section.notes, [&](const ReportLine& line) {
            if (!line.note || !std::holds_alternative<ReportNote::AnsweredBy>(report.notes[*line.note].value))
                return false;
            frame.record.push_back({words("DNS"), line.text});
            return true;
        });
    }
}

/// The writer can't say which language a document is in, nor that its title is to be shown in place of the
/// file's name: its catalog is written once more, as an update at the end (PDF 1.4, 3.4.5). What isn't as the
/// writer makes it stays as it is.
QByteArray withLanguage(const QByteArray& pdf, const QByteArray& language) {
    const auto number = [&](const QByteArray& name, qsizetype from) {
        const qsizetype at = from < 0 ? -1 : pdf.indexOf(name, from);
        return at < 0 ? -1 : pdf.mid(at + name.size(), 20).trimmed().split('\n')[0].split(' ')[0].toInt();
    };
    const qsizetype trailer = pdf.lastIndexOf("trailer\n");
    const int root = number("/Root ", trailer), size = number("/Size ", trailer),
              table = number("startxref\n", trailer);
    constexpr qsizetype entrySize = 20;
    const QByteArray first = "xref\n0 " + QByteArray::number(size) + "\n";
    if (root <= 0 || table <= 0 || !pdf.mid(table).startsWith(first)) return pdf;
    const int begin = pdf.mid(table + first.size() + root * entrySize, 10).toInt();
    const QByteArray opening = QByteArray::number(root) + " 0 obj\n<<\n";
    const qsizetype end = pdf.indexOf(">>\nendobj", begin);
    const qsizetype trailerEnd = pdf.indexOf("\n>>", trailer);
    if (!pdf.mid(begin).startsWith(opening) || end < 0 || trailerEnd < 0) return pdf;
    QByteArray updated = pdf;
    const QByteArray place = QByteArray::number(pdf.size()).rightJustified(10, '0');
    updated += pdf.mid(begin, end - begin) + "/Lang (" + language +
               ")\n/ViewerPreferences << /DisplayDocTitle true >>\n>>\nendobj\n";
    const QByteArray tablePlace = QByteArray::number(updated.size());
    updated += "xref\n" + QByteArray::number(root) + " 1\n" + place + " 00000 n \n" +
               pdf.mid(trailer, trailerEnd - trailer) + "\n/Prev " + QByteArray::number(table) +
               "\n>>\nstartxref\n" + tablePlace + "\n%%EOF\n";
    return updated;
}

}  // namespace

QByteArray pdfOf(const ReportContent& content, const PDFFrame& frame, const Words& words) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QPdfWriter writer(&buffer);
    writer.setPdfVersion(QPagedPaintDevice::PdfVersion_A1b);
    writer.setTitle(frame.title);
    writer.setCreator(QStringLiteral("Quillmark"));
    writer.setResolution(dotsPerInch);
    writer.setPageLayout(
        QPageLayout(QPageSize(frame.isLetter ? QPageSize::Letter : QPageSize::A4), QPageLayout::Portrait,
                    QMarginsF(marginMillimetres, marginMillimetres, marginMillimetres, marginMillimetres),
                    QPageLayout::Millimeter));

    QTextDocument document;
    document.setUndoRedoEnabled(false);
    document.setDocumentMargin(0);
    document.setDefaultFont(withSingleLetters(document.defaultFont()));
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    if (isRightToLeft(words)) option.setTextDirection(Qt::RightToLeft);
    document.setDefaultTextOption(option);
    document.documentLayout()->setPaintDevice(&writer);
    const double footer = footerMillimetres / 25.4 * dotsPerInch;
    const QSizeF page(writer.width(), writer.height() - footer);
    const auto ways = std::ranges::find_if(content.sections,
                                           [](const ReportSection& each) { return each.way.has_value(); });
    QFont letters = document.defaultFont();
    letters.setPointSizeF(wayPoints);
    WayObject way(ways != content.sections.end() ? *ways->way : Way(), letters, &writer, page.width(), words);
    document.documentLayout()->registerHandler(WayObject::type, &way);
    const Beginnings beginnings = compose(document, content, frame, words);
    document.setTextWidth(page.width());
    const std::vector<Line> pages = pagesOf(linesOf(document, beginnings), page.height());
    divideParagraphs(document, pages);

    QPainter painter(&writer);
    for (std::size_t i = 0; i < pages.size(); ++i) {
        if (i > 0) writer.newPage();
        painter.save();
        painter.translate(0, -pages[i].top);
        // A line that only touches what is asked for would be drawn, too.
        constexpr double least = 0.5;
        document.drawContents(&painter, QRectF(0, pages[i].top + least, page.width(),
                                               pages[i].bottom - pages[i].top - 2 * least));
        painter.restore();
        drawFooter(painter, QRectF(0, page.height() + footer / 3, page.width(), footer * 2 / 3), frame.title,
                   words("Page %1 of %2", QString::number(i + 1), QString::number(pages.size())),
                   isRightToLeft(words));
    }
    painter.end();
    return withLanguage(bytes, factsOf(words.reader.language).tag);
}

QByteArray pdfOf(const ProofReport& report, const std::optional<CheckedMessage>& checked,
                 const QString& mailbox, const std::optional<ReportExpectation>& expectation,
                 const Words& words, const std::stop_token& stop) {
    std::optional<std::vector<PathStep>> path;
    if (checked) path = receivedPath(*checked);
    ReportContent content = reportContent(report, path, paperCaps, words);
    content.expectation = expectation;
    addChanges(content, report, checked, words, stop);
    PDFFrame frame = frameOf(report, checked, mailbox, words);
    moveAnswerer(content, frame, report, words);
    return pdfOf(content, frame, words);
}

QString proposedName(const ProofReport& report, const QString& suffix, const Reader& reader) {
    return proposedName(QString::fromStdString(report.verdict.domain), report.checkedAt, suffix, reader);
}

QString proposedName(const QString& whose, Date date, const QString& suffix, const Reader& reader) {
    constexpr std::size_t longestStem = 80;
    QString stem;
    const std::string all = withoutIsolation(whose).toStdString();
    std::string_view name = all;  // of a long domain the end, which says whose it is
    name.remove_prefix(name.size() - std::min(name.size(), longestStem));
    for (const char c : name) {
        const bool plain = isASCIILetter(c) || isDigit(c) || c == '.' || c == '_' || c == '-';
        stem += plain ? QLatin1Char(c) : QLatin1Char('_');
    }
    while (stem.startsWith(u'.')) stem.remove(0, 1);
    if (stem.isEmpty()) stem = QStringLiteral("Report");
    if (isReservedName(stem)) stem.prepend(QStringLiteral("Report "));
    const std::string day = iso8601(date + reader.zone(date).ahead).substr(0, 10);
    return stem + u' ' + QString::fromStdString(day) + suffix;
}

}  // namespace quillmark

#include "PDFExport.moc"
