#include "Quillmark/ReportContent.h"

#include <algorithm>
#include <ranges>
#include <set>

#include "Wording/Banner.h"
#include "Wording/Details.h"
#include "Wording/Direction.h"
#include "Wording/Findings.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"
#include "Wording/ReceiverResults.h"
#include "Wording/Signs.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t longestAside = 60;  // bytes

ReportLine remark(const Remark& remark, const Words& words) {
    return {remark.tone, words.sentence(remark.text)};
}

/// Whether a check could do better when it is made again with the network at hand.
bool hasFailedLookup(const ProofReport& report) {
    const auto failed = [](const DKIMResult& each) {
        return each.status == DKIMResult::Status::lookupFailed;
    };
    const auto* spf = std::get_if<SPFFinding::Status::Judged>(&report.spf.status.value);
    return std::ranges::any_of(report.dkim, failed) || (spf && spf->result == SPFResult::temperror) ||
           report.dmarc.status == DMARCFinding::Status::lookupFailed ||
           std::holds_alternative<ARCFinding::Status::Unknown>(report.arc.status.value);
}

/// The sections of one report, made one after the other.
class Composer {
public:
    Composer(const ProofReport& report, const ReportCaps& caps, const Words& words)
        : m_report(report), m_caps(caps), m_words(words) {}

    ReportSection message() const;
    ReportSection warningSigns() const;
    ReportSection signatures() const;
    ReportSection server() const;
    ReportSection policy() const;
    ReportSection chain() const;
    ReportSection path(const std::optional<std::vector<PathStep>>& steps) const;
    ReportSection serverSaid() const;
    ReportSection limits() const;

private:
    using Facts = std::vector<ReportFact>;

    QString text(std::string_view text) const { return shown(text, m_caps.text); }
    QString domain(std::string_view domain) const {
        return m_words.sentence(isolated(quotedDomain(domain), m_words.reader.language));
    }
    QString addresses(const PackedList<MailAddress>& list) const;
    template <typename List>
    QString names(const List& list) const;
    void add(Facts& facts, std::string_view name, const QString& value) const {
        if (!value.isEmpty()) facts.push_back({m_words(name), value, glossaryEntry(name)});
    }
    void addText(Facts& facts, std::string_view name, const std::optional<std::string>& value) const {
        if (value && !value->empty()) facts.push_back({m_words(name), text(*value)});
    }
    void addReason(Facts& facts, const std::optional<std::string>& detail) const {
        if (!detail || detail->empty()) return;
        add(facts, toTranslate("Reason"), m_words.sentence(detailText(*detail, m_words.reader)));
    }
    void addMore(QStringList& remarks, std::size_t count) const {
        if (count > m_caps.rows) remarks << more(count);
    }
    QString more(std::size_t count) const {
        return m_words.translateCount("and %n more", "and %n more",
                                      static_cast<std::int64_t>(count - m_caps.rows));
    }
    void addNotes(ReportSection& section, NoteSection which) const;
    template <typename List>
    auto capped(const List& list) const {
        return std::views::take(list, static_cast<std::ptrdiff_t>(std::min(list.size(), m_caps.rows)));
    }
    template <typename Finding>
    ReportRow row(const Finding& finding) const;
    ReportRow signature(const DKIMResult& result) const;
    ReportRow hop(const ARCFinding::Hop& hop) const;
    ReportRow step(const PathStep& step, bool isJudged) const;

    const ProofReport& m_report;
    const ReportCaps& m_caps;
    const Words& m_words;
};

QString Composer::addresses(const PackedList<MailAddress>& list) const {
    QStringList all;
    for (const MailAddress& each : capped(list)) all << text(displayForm(each));
    addMore(all, list.size());
    return all.join(QStringLiteral(", "));
}

template <typename List>
QString Composer::names(const List& list) const {
    QStringList all;
    for (const std::string_view each : capped(list)) all << text(each);
    addMore(all, list.size());
    return all.join(m_words(", "));
}

void Composer::addNotes(ReportSection& section, NoteSection which) const {
    section.part = which;
    std::size_t undone = 0;
    for (const ReportNote& note : capped(m_report.notes)) {
        const bool isUndone = std::holds_alternative<ReportNote::Undone>(note.value);
        const std::size_t place = isUndone ? undone++ : 0;
        if (sectionOf(note) != which) continue;
        section.notes.push_back({tone(note),
                                 m_words.sentence(sentence(note, m_words.reader)),
                                 isUndone ? std::optional(place) : std::nullopt,
                                 {},
                                 static_cast<std::size_t>(&note - m_report.notes.data())});
    }
}

ReportSection Composer::message() const {
    const MessageSummary& summary = m_report.summary;
    ReportSection section{m_words("The message says"), {}, {}, {}, {}, {}};
    Facts& facts = section.facts;
    const auto other = insteadOfSender(m_report, m_words.reader);
    add(facts, toTranslate("From"), other ? m_words.sentence(*other) : addresses(summary.from));
    add(facts, toTranslate("Reply-To"), addresses(summary.replyTo));
    add(facts, toTranslate("To"), addresses(summary.to));
    add(facts, toTranslate("Subject"),
        summary.subject.empty() ? m_words("(no subject)") : text(summary.subject));
    if (summary.date) add(facts, toTranslate("Date"), m_words.time(*summary.date));
    addText(facts, toTranslate("Message-ID"), summary.messageID);
    addText(facts, toTranslate("Return-Path"), summary.returnPath);
    if (!m_report.domainAge.domain.empty()) {
        add(facts, toTranslate("Sender’s domain"),
            m_words("%1, %2", domain(m_report.domainAge.domain),
                    m_words.sentence(ageInWords(m_report.domainAge, m_report.checkedAt, m_words.reader))));
    }
    addNotes(section, NoteSection::message);
    return section;
}

ReportSection Composer::warningSigns() const {
    ReportSection section{m_words("Warning signs"), {}, {}, {}, {}, {}, NoteSection::warningSigns};
    for (const LookAlikeFlag& flag : capped(m_report.flags)) {
        section.rows.push_back({Tone::caution,
                                m_words.sentence(title(flag, m_words.reader)),
                                m_words.sentence(sentence(flag, m_words.reader)),
                                {},
                                {}});
    }
    addMore(section.remarks, m_report.flags.size());
    return section;
}

template <typename Finding>
ReportRow Composer::row(const Finding& finding) const {
    ReportRow row{tone(finding),
                  m_words.sentence(label(finding, m_words.reader)),
                  m_words.sentence(sentence(finding, m_words.reader)),
                  {},
                  {}};
    for (const Remark& each : remarks(finding, m_words.reader)) row.notes.push_back(remark(each, m_words));
    return row;
}

ReportRow Composer::signature(const DKIMResult& result) const {
    ReportRow row{tone(result),
                  m_words.sentence(label(result.status, m_words.reader)),
                  m_words.sentence(signatureSentence(m_report, result, m_words.reader)),
                  {},
                  {}};
    for (const Remark& each : remarks(result, m_report.checkedAt, m_words.reader))
        row.notes.push_back(remark(each, m_words));
    QStringList aside;
    for (const std::string& each : {result.selector, result.algorithm}) {
        if (!each.empty()) aside << shown(each, longestAside);
    }
    row.aside = aside.join(QStringLiteral(" · "));
    Facts& facts = row.details;
    add(facts, toTranslate("Signing domain"), result.domain.empty() ? QString() : domain(result.domain));
    addText(facts, toTranslate("Selector"), result.selector);
    addText(facts, toTranslate("Signed for"), result.identity);
    addText(facts, toTranslate("Algorithm"), result.algorithm);
    if (result.keyBits)
        add(facts, toTranslate("Key size"), m_words("%1 bits", QString::number(*result.keyBits)));
    addText(facts, toTranslate("Canonicalization"), result.canonicalization);
    add(facts, toTranslate("Signed fields"), names(result.signedHeaders));
    std::vector<std::string> unsignedFields;
    for (const std::string& each : result.unsignedImportant)
        unsignedFields.push_back(fieldName(each, m_words.reader));
    add(facts, toTranslate("Not signed"), names(unsignedFields));
    if (result.signedAt) add(facts, toTranslate("Signed at"), m_words.time(*result.signedAt));
    if (result.expiresAt) add(facts, toTranslate("Valid until"), m_words.time(*result.expiresAt));
    add(facts, toTranslate("Body compared"), result.bodyChecked ? m_words("yes") : m_words("no"));
    if (result.bodyLength) {
        add(facts, toTranslate("Signed body bytes"),
            QString::fromStdString(m_words.reader.number(*result.bodyLength)));
    }
    addReason(facts, result.detail);
    return row;
}

ReportSection Composer::signatures() const {
    ReportSection section{m_words("Signatures (DKIM)"), {}, {}, {}, {}, {}};
    section.entry = glossaryEntry("DKIM");
    for (const DKIMResult& each : capped(m_report.dkim)) section.rows.push_back(signature(each));
    if (m_report.dkim.empty()) section.remarks << m_words("No DKIM signature.");
    addMore(section.remarks, m_report.dkim.size());
    addNotes(section, NoteSection::signatures);
    return section;
}

ReportSection Composer::server() const {
    const SPFFinding& spf = m_report.spf;
    ReportRow finding = row(spf);
    addText(finding.details, toTranslate("Envelope domain"), spf.domain);
    if (spf.ip) {
        addText(finding.details, toTranslate("Server’s address"), spf.ip->ip);
        addText(finding.details, toTranslate("Server’s name, by its own word"), spf.ip->helo);
    }
    add(finding.details, toTranslate("Term that decided"),
        m_words.sentence(decidingTerm(spf, m_words.reader)));
    addReason(finding.details, spf.detail);
    ReportSection section{m_words("Sending server (SPF)"), {}, {finding}, {}, {}, {}};
    section.entry = glossaryEntry("SPF");
    addNotes(section, NoteSection::sendingServer);
    return section;
}

ReportSection Composer::policy() const {
    const DMARCFinding& dmarc = m_report.dmarc;
    ReportRow finding = row(dmarc);
    finding.sentence = m_words.sentence(policySentence(m_report, m_words.reader));
    Facts& facts = finding.details;
    const auto mode = [this](AlignmentMode counted) {
        return counted == AlignmentMode::strict ? m_words("the same domain")
                                                : m_words("the same organization");
    };
    if (!dmarc.fromDomain.empty()) add(facts, toTranslate("From domain"), domain(dmarc.fromDomain));
    if (dmarc.alignedDKIMDomain)
        add(facts, toTranslate("Signature that counts"), domain(*dmarc.alignedDKIMDomain));
    if (dmarc.status == DMARCFinding::Status::pass || dmarc.status == DMARCFinding::Status::fail) {
        add(facts, toTranslate("Server counts"), dmarc.spfAligned ? m_words("yes") : m_words("no"));
        add(facts, toTranslate("Signatures count if of"), mode(dmarc.dkimMode));
        add(facts, toTranslate("Servers count if of"), mode(dmarc.spfMode));
    }
    addText(facts, toTranslate("Record"), dmarc.record);
    if (dmarc.recordDomain) add(facts, toTranslate("Published at"), domain(*dmarc.recordDomain));
    ReportSection section{m_words("Domain policy (DMARC)"), {}, {finding}, {}, {}, {}};
    section.entry = glossaryEntry("DMARC");
    addNotes(section, NoteSection::policy);
    return section;
}

ReportRow Composer::hop(const ARCFinding::Hop& hop) const {
    // Every forwarder may change the message, so an earlier one's signature of it seldom fits any more.
    std::optional<Tone> of = hop.sealValid ? tone(hop.messageSignature) : Tone::bad;
    const bool isLast = &hop == &m_report.arc.hops.back();
    if (hop.sealValid && !isLast && of != Tone::good) of = std::nullopt;
    ReportRow row{of, m_words("%1. %2", QString::number(hop.instance), domain(hop.sealer)), {}, {}, {}};
    for (const Remark& each : remarks(hop, m_words.reader)) row.notes.push_back(remark(each, m_words));
    add(row.details, toTranslate("Seal"), hop.sealValid ? m_words("valid") : m_words("not valid"));
    addText(row.details, toTranslate("Selector"), hop.messageSignature.selector);
    add(row.details, toTranslate("Signed fields"), names(hop.messageSignature.signedHeaders));
    addReason(row.details, hop.messageSignature.detail);
    return row;
}

ReportSection Composer::chain() const {
    const ARCFinding& arc = m_report.arc;
    ReportSection section{m_words("Forwarding chain (ARC)"), {}, {}, {}, {}, {}};
    section.entry = glossaryEntry("ARC");
    section.rows.push_back({tone(arc),
                            m_words.sentence(label(arc, m_words.reader)),
                            m_words.sentence(sentence(arc, m_words.reader)),
                            {},
                            {}});
    for (const ARCFinding::Hop& each : capped(arc.hops)) section.chain.push_back(hop(each));
    addMore(section.remarks, arc.hops.size());
    if (!arc.hops.empty()) section.remarks << m_words.sentence(futureOfARC(m_words.reader));
    addNotes(section, NoteSection::chain);
    return section;
}

ReportRow Composer::step(const PathStep& step, bool isJudged) const {
    const ReceivedHop& hop = step.hop;
    ReportRow row;
    row.label = hop.by ? m_words("Taken by %1", domain(*hop.by)) : m_words("Taken by an unnamed server");
    QStringList from;
    if (hop.fromName) from << domain(*hop.fromName);
    if (hop.fromIP) from << text(*hop.fromIP);
    row.sentence =
        from.isEmpty() ? m_words("It doesn’t say from where.") : m_words("From %1", from.join(m_words(", ")));
    if (step.date) {
        const QString time = m_words.time(*step.date);
        row.notes.push_back(
            {{},
             step.delay
                 ? m_words("%1, %2", time, QString::fromStdString(delayInWords(*step.delay, m_words.reader)))
                 : time});
    }
    if (isJudged) row.notes.push_back({{}, m_words("SPF was judged for this address.")});
    return row;
}

ReportSection Composer::path(const std::optional<std::vector<PathStep>>& steps) const {
    ReportSection section{m_words("The way it came"), {}, {}, {}, {}, {}};
    section.entry = glossaryEntry("Received");
    section.way = wayOf(m_report, steps, m_words.reader);
    for (const std::string& each : section.way->remarks) section.remarks << m_words.sentence(each);
    if (!steps) {
        section.remarks << m_words(
            "The servers on its way are only known while the message itself is at hand. Check it again to "
            "see "
            "them.");
        return section;
    }
    if (steps->empty()) section.remarks << m_words("The message has no Received lines.");
    const auto& ip = m_report.spf.ip;
    const bool fromReceived = ip && std::holds_alternative<SenderIP::Source::Received>(ip->source.value);
    // The address was taken from the topmost line that has it: the last step.
    auto judged = steps->size();
    for (std::size_t i = 0; fromReceived && i < steps->size(); ++i) {
        if ((*steps)[i].hop.fromIP == ip->ip) judged = i;
    }
    // The latest steps are those that the reader's own provider wrote.
    const std::size_t first = steps->size() - std::min(steps->size(), m_caps.rows);
    for (std::size_t i = first; i < steps->size(); ++i)
        section.chain.push_back(step((*steps)[i], i == judged));
    if (first > 0) {
        section.remarks << m_words.translateCount("and %n earlier step", "and %n earlier steps",
                                                  static_cast<std::int64_t>(first));
    }
    if (!steps->empty()) {
        section.remarks << m_words(
            "Oldest first. A sender can write such lines, too; only those at the end were added "
            "by your own mail provider.");
    }
    return section;
}

ReportSection Composer::serverSaid() const {
    ReportSection section{m_words("Your mail server said"), {}, {}, {}, {}, {}};
    section.entry = glossaryEntry("Authentication-Results");
    ReportRow row;
    for (const Remark& each : receiverRemarks(m_report, m_words.reader))
        row.notes.push_back(remark(each, m_words));
    section.rows.push_back(row);
    addNotes(section, NoteSection::receiverResults);
    return section;
}

ReportSection Composer::limits() const {
    ReportSection section{m_words("What this can’t prove"), {}, {}, {}, {}, {}};
    for (const Limit limit : m_report.limits) {
        ReportRow row;
        row.label = m_words.sentence(title(limit, m_words.reader));
        row.sentence = m_words.sentence(sentence(limit, m_words.reader));
        section.rows.push_back(row);
    }
    return section;
}

}  // namespace

QString answersFrom(const RecordedAnswers& answers, const Words& words) {
    const auto entries = answers.dns.entries();
    std::set<std::string> sources;
    for (const auto& [question, entry] : entries) sources.insert(entry.source);
    if (sources.empty()) return {};
    sources.erase(std::string());
    if (sources.empty()) return words("answers from a recording");
    QStringList names;
    for (const std::string& each : sources)
        names << (each == "system" ? words("this computer’s own DNS") : isolatedRuns(quotedWord(each)));
    return words("answers from %1", names.join(words(", ")));
}

ReportContent reportContent(const ProofReport& report, const std::optional<std::vector<PathStep>>& path,
                            const ReportCaps& caps, const Words& words) {
    const Composer composer(report, caps, words);
    const Banner banner = bannerOf(report, words.reader);
    ReportContent content{banner.tone, words.sentence(banner.headline), words.sentence(banner.explanation)};
    const auto lead = [&words](const BannerLine& line) {
        return ReportLead{line.tone, words.sentence(line.text), line.section, line.note, line.row};
    };
    if (banner.decider) content.decider = lead(*banner.decider);
    content.lead = words.sentence(banner.lead);
    for (const BannerLine& each : banner.cautions) content.cautions.push_back(lead(each));
    content.more = banner.more;
    for (const Remark& each : banner.remarks) content.remarks.push_back(remark(each, words));
    content.whatToDo = words.sentence(banner.whatToDo);
    content.identity = banner.identity;
    if (report.fileName) content.quiet << shown(placeName(*report.fileName, words.reader), caps.text);
    content.quiet << words("checked %1", words.time(report.checkedAt));
    content.hasFailedLookup = hasFailedLookup(report);
    content.hasMessage = path.has_value();
    if (!report.flags.empty()) content.sections.push_back(composer.warningSigns());
    content.sections.push_back(composer.message());
    content.sections.push_back(composer.signatures());
    content.sections.push_back(composer.server());
    content.sections.push_back(composer.policy());
    content.sections.push_back(composer.chain());
    content.sections.push_back(composer.serverSaid());
    content.sections.push_back(composer.path(path));
    content.sections.push_back(composer.limits());
    for (ReportSection& each : content.sections) {
        if (!each.entry) continue;
        for (const std::string& line : rawValues(*each.entry, report)) each.raw << isolatedRuns(line);
    }
    return content;
}

}  // namespace quillmark
