#pragma once

#include <QString>
#include <QStringList>
#include <optional>
#include <vector>

#include "Quillmark/TextBlocks.h"
#include "Quillmark/Words.h"
#include "QuillmarkKit/Lookups/Recording.h"
#include "QuillmarkKit/Mail/Received.h"
#include "QuillmarkKit/Report.h"
#include "Wording/DomainIdentity.h"
#include "Wording/Expected.h"
#include "Wording/Glossary.h"
#include "Wording/NoteSentences.h"
#include "Wording/Way.h"

/// What a report says, in the words and the order in which the window and the PDF show it. All text is inert
/// and capped; nothing of it is markup.
namespace quillmark {

/// A name and its value: "Selector", "s2026".
struct ReportFact {
    QString name, value;
    const GlossaryEntry* entry = nullptr;  ///< that explains the name, where it needs that
};

/// A sentence that stands alone.
struct ReportLine {
    std::optional<Tone> tone;
    QString text;
    /// Of a signature that holds again: its place among those of the report.
    std::optional<std::size_t> undone = {};
    std::vector<TextBlock> changes = {};   ///< that it shows, where there is room for them
    std::optional<std::size_t> note = {};  ///< which of the report's notes it is
};

/// One finding.
struct ReportRow {
    std::optional<Tone> tone;
    QString label;     ///< a few words: "Valid"
    QString sentence;  ///< may be empty
    std::vector<ReportLine> notes;
    std::vector<ReportFact> details;  ///< one click deeper
    QString aside = {};               ///< beside the label: what tells it from others of its kind
};

struct ReportSection {
    QString heading;
    std::vector<ReportFact> facts;
    std::vector<ReportRow> rows;
    std::vector<ReportRow> chain;          ///< steps that follow from each other, the first one first
    std::vector<ReportLine> notes;         ///< what must be known besides
    QStringList remarks;                   ///< lines under them, such as "and 12 more"
    std::optional<NoteSection> part = {};  ///< to which lines of the banner may lead
    const GlossaryEntry* entry = nullptr;  ///< that explains the heading
    QStringList raw = {};                  ///< what the message and DNS hold of it, as it stands there
    std::optional<Way> way = {};           ///< drawn above the steps, which are then one click deeper
};

/// How much is shown: bytes of one text, and entries of one list.
struct ReportCaps {
    std::size_t text = longestLabel, rows = mostRows;
};

/// What stands with the headline, and where more of it stands.
struct ReportLead {
    std::optional<Tone> tone;
    QString text;
    std::optional<NoteSection> section = {};
    std::optional<std::size_t> note = {}, row = {};  ///< there, as in `BannerLine`
};

/// Whom the person believes it is from, as typed, and whether it is.
struct ReportExpectation {
    QString typed;
    ExpectedAnswer answer;
};

struct ReportContent {
    Tone tone = Tone::unknown;
    QString headline, explanation;
    std::optional<ReportLead> decider = {};  ///< the finding that speaks against the sender most
    QString lead = {};                       ///< how many cautions there are; empty when there is none
    std::vector<ReportLead> cautions = {};   ///< what weighs most first
    std::vector<ReportLine> remarks = {};    ///< what is good to know with the headline
    std::size_t more = 0;                    ///< cautions that aren't among them
    QString whatToDo = {};
    std::optional<DomainIdentity> identity = {};  ///< of whom something was proven
    QString known = {};                           ///< what the history has of this domain; perhaps empty
    std::optional<ReportExpectation> expectation = {};
    QStringList quiet = {};  ///< where the message is from, when it was checked and with whose answers
    std::vector<ReportSection> sections = {};
    bool hasFailedLookup = false;  ///< checking again may find out more
    bool hasMessage = false;       ///< it is at hand
};

/// Who answered the lookups of a check: "answers from dns.example", or from a recording, which names
/// nobody. Empty when nothing was answered.
QString answersFrom(const RecordedAnswers& answers, const Words& words);

/// `path` is that of the kept message; without one, as for a report of the history, the section says that
/// there is none.
ReportContent reportContent(const ProofReport& report, const std::optional<std::vector<PathStep>>& path,
                            const ReportCaps& caps, const Words& words);

}  // namespace quillmark
