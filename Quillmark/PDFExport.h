#pragma once

#include <QByteArray>
#include <QString>
#include <optional>
#include <stop_token>
#include <vector>

#include "Apart/MessageCheck.h"
#include "Quillmark/ReportContent.h"

namespace quillmark {

/// What stands in a PDF besides the report's own content.
struct PDFFrame {
    QString title;                    ///< of the document
    std::vector<ReportFact> record;   ///< when, with what, and of which bytes the check was made
    std::vector<ReportFact> lookups;  ///< what DNS and registries answered; empty when it was not recorded
    bool isLetter = false;            ///< the paper: US Letter, else A4
};

/// A PDF/A-1b to be filed, made on any thread: every detail unfolded, fonts embedded, text that can be
/// selected, the page's number on each page. Text is set as text: nothing in it is markup or a link.
QByteArray pdfOf(const ReportContent& content, const PDFFrame& frame, const Words& words);

/// The same of a check, whose frame says what it was made from, where that is at hand. `mailbox`: how far the
/// one came that the message was found in; empty unless it was stopped. `stop`: of what was signed there is
/// what the report says, unless it was found by then.
QByteArray pdfOf(const ProofReport& report, const std::optional<CheckedMessage>& checked,
                 const QString& mailbox, const std::optional<ReportExpectation>& expectation,
                 const Words& words, const std::stop_token& stop = {});

/// The name that is proposed for an export: the verdict's domain, or "Report", and the day of the check,
/// "example.org 2026-01-15.pdf". Only letters, digits, ".", "_", "-" and blanks of ASCII, at most 100
/// characters, no name that means something to an operating system. `suffix` with its dot.
QString proposedName(const ProofReport& report, const QString& suffix, const Reader& reader);
/// The same for what is called so.
QString proposedName(const QString& whose, Date date, const QString& suffix, const Reader& reader);

}  // namespace quillmark
