#include "Quillmark/PDFExport.h"

#include <QAbstractTextDocumentLayout>
#include <QBuffer>
#include <QFontMetricsF>
#include <QPageLayout>
#include <QPainter>
#include <QPdfWriter>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextTable>
#include <array>

#include "Quillmark/Tones.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr double marginMillimetres = 20, footerMillimetres = 10;
constexpr int dotsPerInch = 300;
const QColor ink(0x1a, 0x1a, 0x1a), fadedInk(0x55, 0x55, 0x55), rule(0xcc, 0xcc, 0xcc);

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

    void heading(const QString& text) { paragraph(text, 12, QFont::Bold, ink, 14); }

    void facts(const std::vector<ReportFact>& facts, double points = 9.5) {
        if (facts.empty()) return;
        QTextTableFormat table;
        table.setBorder(0);
        table.setCellPadding(1.5);
        table.setCellSpacing(0);
        table.setTopMargin(3);
        table.setWidth(QTextLength(QTextLength::PercentageLength, 100));
        table.setColumnWidthConstraints(
            {QTextLength(QTextLength::PercentageLength, 26), QTextLength(QTextLength::PercentageLength, 74)});
        QTextTable* grid = m_cursor.insertTable(static_cast<int>(facts.size()), 2, table);
        for (int row = 0; const ReportFact& fact : facts) {
            grid->cellAt(row, 0).firstCursorPosition().insertText(fact.name,
                                                                  format(points, QFont::Normal, fadedInk));
            grid->cellAt(row, 1).firstCursorPosition().insertText(fact.value,
                                                                  format(points, QFont::Normal, ink));
            ++row;
        }
        m_cursor.movePosition(QTextCursor::End);
    }

    void note(const ReportLine& note) {
        paragraph((note.tone ? toneSymbol(*note.tone) : QStringLiteral("•")) + u' ' + note.text, 10);
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
    static QTextCharFormat format(double points, QFont::Weight weight, const QColor& color) {
        QTextCharFormat format;
        format.setFontPointSize(points);
        format.setFontWeight(weight);
        format.setForeground(color);
        return format;
    }

    QTextCursor m_cursor;
    const Words& m_words;
    bool m_isEmpty = true;
};

void compose(QTextDocument& document, const ReportContent& content, const PDFFrame& frame,
             const Words& words) {
    Typesetter set(document, words);
    set.paragraph(words("Quillmark report"), 10, QFont::Normal, fadedInk);
    const QColor color = toneColor(content.tone, Qt::white, QPalette(Qt::white));
    set.paragraph(toneSymbol(content.tone) + u' ' + content.headline, 17, QFont::Bold, color, 8);
    set.paragraph(content.explanation, 10.5, QFont::Normal, ink, 4);
    for (const ReportLine& each : content.beside) set.note(each);
    set.facts(frame.record);
    for (const ReportSection& section : content.sections) {
        set.heading(section.heading);
        set.facts(section.facts);
        for (const ReportRow& row : section.rows) set.row(row);
        for (const ReportRow& row : section.chain) set.row(row);
        for (const ReportLine& each : section.notes) set.note(each);
        for (const QString& remark : section.remarks) set.paragraph(remark, 10);
    }
    if (frame.lookups.empty()) return;
    set.heading(words("What was looked up"));
    set.facts(frame.lookups, 8.5);
}

void drawFooter(QPainter& painter, const QRectF& area, const QString& left, const QString& right) {
    painter.setPen(rule);
    painter.drawLine(area.topLeft(), area.topRight());
    painter.setPen(fadedInk);
    QFont font = painter.font();
    font.setPointSizeF(8);
    painter.setFont(font);
    const QFontMetricsF metrics(font, painter.device());
    const double room = area.width() - metrics.horizontalAdvance(right + QStringLiteral("    "));
    painter.drawText(area, Qt::AlignLeft | Qt::AlignBottom | Qt::TextSingleLine,
                     metrics.elidedText(left, Qt::ElideRight, room));
    painter.drawText(area, Qt::AlignRight | Qt::AlignBottom | Qt::TextSingleLine, right);
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
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    document.setDefaultTextOption(option);
    document.documentLayout()->setPaintDevice(&writer);
    const double footer = footerMillimetres / 25.4 * dotsPerInch;
    const QSizeF page(writer.width(), writer.height() - footer);
    compose(document, content, frame, words);
    document.setPageSize(page);

    QPainter painter(&writer);
    const int pages = document.pageCount();
    for (int i = 0; i < pages; ++i) {
        if (i > 0) writer.newPage();
        painter.save();
        painter.translate(0, -i * page.height());
        document.drawContents(&painter, QRectF(0, i * page.height(), page.width(), page.height()));
        painter.restore();
        drawFooter(painter, QRectF(0, page.height() + footer / 3, page.width(), footer * 2 / 3), frame.title,
                   words("Page %1 of %2", QString::number(i + 1), QString::number(pages)));
    }
    painter.end();
    return bytes;
}

QString proposedName(const ProofReport& report, const QString& suffix, const Reader& reader) {
    constexpr qsizetype longestStem = 80;
    QString stem;
    for (const char c : report.verdict.domain.substr(0, longestStem)) {
        const bool plain = isASCIILetter(c) || isDigit(c) || c == '.' || c == '_' || c == '-';
        stem += plain ? QLatin1Char(c) : QLatin1Char('_');
    }
    while (stem.startsWith(u'.')) stem.remove(0, 1);
    if (stem.isEmpty()) stem = QStringLiteral("Report");
    if (isReservedName(stem)) stem.prepend(QStringLiteral("Report "));
    const std::string day = iso8601(report.checkedAt + reader.zone(report.checkedAt).ahead).substr(0, 10);
    return stem + u' ' + QString::fromStdString(day) + suffix;
}

}  // namespace quillmark
