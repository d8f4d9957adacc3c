#include "Wording/TextReport.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <ranges>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Banner.h"
#include "Wording/Details.h"
#include "Wording/Direction.h"
#include "Wording/Expected.h"
#include "Wording/FailedLookups.h"
#include "Wording/Findings.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"
#include "Wording/ReceiverResults.h"
#include "Wording/Signatures.h"
#include "Wording/Signs.h"
#include "Wording/Wording.h"
#include "Wording/Wrapped.h"

namespace quillmark {

namespace {

/// Entries of a list that are shown.
constexpr std::size_t longestList = 100;
/// The same of one page.
constexpr std::size_t mostOnPage = 8;

/// The report while it is put together.
class Lines {
public:
    Lines(const Reader& reader, const TextLayout& layout) : m_reader(reader), m_layout(layout) {}

    void add(std::string_view line) { put(line, 0); }
    void add(const Remark& remark) { put(remark, 0); }
    /// More about the line above.
    void note(const Remark& remark) { put(remark, 4); }
    /// What a note tells of, as it is written.
    void detail(std::string_view line) { put(line, 8); }
    void section(std::string_view heading) {
        const std::string title = unicodeUppered(m_reader.translate(heading), factsOf(m_reader.language).tag);
        add("");
        add(title);
        add(std::string(columnsOf(title), '-'));
    }
    std::string text() && { return std::move(m_text); }

private:
    void put(std::string_view line, std::size_t indent) {
        if (m_isBegun) m_text += '\n';
        m_isBegun = true;
        m_text += wrapped(line, indent, m_layout.width);
    }
    void put(const Remark& remark, std::size_t indent) {
        if (!remark.tone) {
            // Some begin with the name of a server, which may look like a marker.
            put(remark.text.starts_with('[') ? "- " + remark.text : remark.text, indent);
            return;
        }
        const std::string_view plain = marker(*remark.tone);
        // An island, so that the line has the direction of its sentence.
        const std::string shown = isolated(plain, m_reader.language);
        const std::size_t at = m_text.size() + (m_isBegun ? 1 : 0) + indent + shown.find(plain);
        put(shown + " " + remark.text, indent);
        if (m_layout.markers == Markers::coloured)
            m_text.replace(at, plain.size(), coloured(plain, *remark.tone));
    }
    static std::string coloured(std::string_view marker, Tone tone) {
        // Select Graphic Rendition (ECMA-48): bold, and green, yellow, red or blue.
        const char* const colour = tone == Tone::good      ? "32"
                                   : tone == Tone::caution ? "33"
                                   : tone == Tone::bad     ? "31"
                                                           : "34";
        return "\x1B[1;" + std::string(colour) + "m" + std::string(marker) + "\x1B[0m";
    }

    const Reader& m_reader;
    const TextLayout m_layout;
    std::string m_text = {};
    bool m_isBegun = false;
};

std::string more(std::size_t count, const Reader& reader) {
    return reader.translateCount("and %n more", "and %n more", static_cast<std::int64_t>(count));
}

/// "a, b, c and 5 more"
std::string joined(const PackedList<MailAddress>& addresses, const Reader& reader) {
    std::string text;
    for (const MailAddress& address : std::views::take(addresses, longestList))
        reader.addTo(text, displayForm(address));
    if (addresses.size() > longestList) reader.addTo(text, more(addresses.size() - longestList, reader));
    return text;
}

/// The notes that belong under one heading.
void addNotes(Lines& lines, const ProofReport& report, NoteSection section, const Reader& reader) {
    std::set<std::string, std::less<>> said;  // two signatures of one domain have the same to say
    for (const ReportNote& note : report.notes) {
        if (sectionOf(note) != section) continue;
        const std::string text = sentence(note, reader);
        if (!said.insert(text).second) continue;
        lines.note(Remark{tone(note), text});
        for (const std::string& detail : details(note, reader)) lines.detail(detail);
    }
}

void addBanner(Lines& lines, const Banner& banner, std::size_t most, const Reader& reader) {
    lines.note(Remark{{}, banner.explanation});
    if (banner.decider) lines.note(Remark{banner.decider->tone, banner.decider->text});
    if (!banner.lead.empty()) lines.note(Remark{{}, reader.translate("%1:", {banner.lead})});
    const std::size_t told = std::min(banner.cautions.size(), most);
    for (const BannerLine& line : std::span(banner.cautions).first(told))
        lines.note(Remark{line.tone, line.text});
    if (const std::size_t left = banner.cautions.size() - told + banner.more)
        lines.note(Remark{{}, more(left, reader)});
    for (const Remark& remark : banner.remarks) lines.note(remark);
    lines.note(Remark{{}, reader.translate("What to do: %1", {banner.whatToDo})});
}

/// What must be seen first, where there is something to beware of. Whether there is.
bool addMeaning(Lines& lines, const ProofReport& report, const Reader& reader) {
    if (report.notes.empty() && !hasCautions(report)) return false;
    const Banner banner = bannerOf(report, reader);
    addBanner(lines, banner, banner.cautions.size(), reader);
    return true;
}

/// Under a finding whose lookup failed: the likely cause, unless it was said before, and what came of asking.
void addFailure(Lines& lines, std::string& cause, std::string_view detail, const Reader& reader) {
    if (!cause.empty()) lines.note(Remark{{}, std::exchange(cause, {})});
    if (!detail.empty()) lines.note(Remark{{}, detailText(detail, reader)});
}

void addMessage(Lines& lines, const ProofReport& report, const Reader& reader) {
    const MessageSummary& message = report.summary;
    const auto field = [&](std::string_view pattern, const std::string& value) {
        lines.add(reader.translate(pattern, {value}));
    };
    lines.section(toTranslate("The message says"));
    field(toTranslate("From: %1"), insteadOfSender(report, reader).value_or(joined(message.from, reader)));
    if (!message.replyTo.empty()) field(toTranslate("Reply-To: %1"), joined(message.replyTo, reader));
    field(toTranslate("Subject: %1"),
          message.subject.empty() ? reader.translate("(no subject)") : inert(message.subject));
    if (message.date) field(toTranslate("Date: %1"), reader.time(*message.date));
    if (!message.messageID.value_or("").empty()) {
        field(toTranslate("Message-ID: %1"), inert(*message.messageID));
    }
    if (message.returnPath) field(toTranslate("Return-Path: <%1>"), inert(cutInside(*message.returnPath)));
    if (!report.domainAge.domain.empty()) {
        lines.add(reader.translate(
            "Sender’s domain: %1, %2",
            {quotedDomain(report.domainAge.domain), ageInWords(report.domainAge, report.checkedAt, reader)}));
    }
}

void addWarningSigns(Lines& lines, std::span<const LookAlikeFlag> flags, const Reader& reader) {
    if (flags.empty()) return;
    lines.section(toTranslate("Warning signs"));
    for (const LookAlikeFlag& flag : flags.first(std::min(flags.size(), longestList))) {
        lines.add(
            Remark{Tone::caution, reader.translate("%1: %2", {title(flag, reader), sentence(flag, reader)})});
    }
    if (flags.size() > longestList) lines.note(Remark{{}, more(flags.size() - longestList, reader)});
}

void addSignatures(Lines& lines, const ProofReport& report, std::string& cause, const Reader& reader) {
    lines.section(toTranslate("Signatures (DKIM)"));
    if (report.dkim.empty()) lines.add(reader.translate("No DKIM signature."));
    for (const DKIMResult& signature : report.dkim) {
        const auto shown = [](const std::string& tag) { return tag.empty() ? "?" : quotedWord(tag); };
        const std::string domain = shown(signature.domain), selector = shown(signature.selector),
                          algorithm = shown(signature.algorithm),
                          said = signatureSentence(report, signature, reader);
        // For translators: a signature: domain, selector, algorithm, what came of it, size of its key.
        const std::string line =
            signature.keyBits
                ? reader.translate("%1 (s=%2, %3, %5-bit): %4",
                                   {domain, selector, algorithm, said, std::to_string(*signature.keyBits)})
                : reader.translate("%1 (s=%2, %3): %4", {domain, selector, algorithm, said});
        lines.add(Remark{tone(signature), line});
        if (signature.status == DKIMResult::Status::lookupFailed)
            addFailure(lines, cause, signature.detail, reader);
        for (const Remark& remark : remarks(signature, report.checkedAt, reader)) lines.note(remark);
    }
    addNotes(lines, report, NoteSection::signatures, reader);
}

/// What came of asking, when there was no answer.
std::optional<std::string> lookupFailure(const SPFFinding& finding) {
    const auto* judged = std::get_if<SPFFinding::Status::Judged>(&finding.status.value);
    if (!judged || judged->result != SPFResult::temperror) return std::nullopt;
    return finding.detail.value_or("");
}

std::optional<std::string> lookupFailure(const DMARCFinding& finding) {
    return finding.status == DMARCFinding::Status::lookupFailed ? std::optional(std::string()) : std::nullopt;
}

std::optional<std::string> lookupFailure(const ARCFinding& finding) {
    if (!std::holds_alternative<ARCFinding::Status::Unknown>(finding.status.value)) return std::nullopt;
    const auto status = [](const ARCFinding::Hop& hop) { return hop.messageSignature.status; };
    const auto hop = std::ranges::find(finding.hops, DKIMResult::Status::lookupFailed, status);
    return hop != finding.hops.end() ? hop->messageSignature.detail : std::string();
}

template <typename Finding>
void addFinding(Lines& lines, std::string_view heading, const Finding& finding, const std::string& said,
                std::string& cause, const Reader& reader) {
    lines.section(heading);
    lines.add(Remark{tone(finding), said});
    if (const auto failure = lookupFailure(finding)) addFailure(lines, cause, *failure, reader);
    for (const Remark& remark : remarks(finding, reader)) lines.note(remark);
}

void addExpected(Lines& lines, const ProofReport& report, std::string_view expected, const Reader& reader) {
    if (expected.empty()) return;
    const ExpectedAnswer answer = expectedAnswer(report, expected, reader);
    lines.note(Remark{answer.tone, answer.text});
}

/// A line for each finding.
void addFindings(Lines& lines, const ProofReport& report, const Reader& reader) {
    lines.section(toTranslate("What was found"));
    if (report.dkim.empty()) lines.add(reader.translate("No DKIM signature."));
    const std::size_t told = std::min(report.dkim.size(), mostOnPage);
    for (const DKIMResult& each : std::span(report.dkim).first(told)) {
        const std::string domain = each.domain.empty() ? "?" : quotedDomain(each.domain);
        lines.add(Remark{tone(each), reader.translate("Signature (DKIM) by %1: %2",
                                                      {domain, label(each.status, reader)})});
    }
    if (told < report.dkim.size()) lines.note(Remark{{}, more(report.dkim.size() - told, reader)});
    lines.add(Remark{tone(report.spf),
                     report.spf.ip
                         ? reader.translate("Sending server (SPF), %1: %2",
                                            {quotedWord(report.spf.ip->ip), label(report.spf, reader)})
                         : reader.translate("Sending server (SPF): %1", {label(report.spf, reader)})});
    lines.add(Remark{tone(report.dmarc),
                     reader.translate("Domain policy (DMARC): %1", {label(report.dmarc, reader)})});
    lines.add(Remark{tone(report.arc),
                     reader.translate("Forwarding chain (ARC): %1", {label(report.arc, reader)})});
}

}  // namespace

std::string textReport(const ProofReport& report, const Reader& reader, const TextLayout& layout,
                       std::string_view expected) {
    Lines lines(reader, layout);
    lines.add(reader.translate("Quillmark report"));
    lines.add(reader.translate("Checked: %1", {reader.time(report.checkedAt)}));
    if (report.fileName)
        lines.add(reader.translate("File: %1", {inert(placeName(*report.fileName, reader))}));
    lines.add("");
    lines.add(Remark{report.verdict.tone, headline(report.verdict, reader)});
    std::string cause = addMeaning(lines, report, reader) ? std::string() : likelyCause(report, reader);
    addExpected(lines, report, expected, reader);
    addMessage(lines, report, reader);
    addNotes(lines, report, NoteSection::message, reader);
    addWarningSigns(lines, report.flags, reader);
    addSignatures(lines, report, cause, reader);
    addFinding(lines, toTranslate("Sending server (SPF)"), report.spf, sentence(report.spf, reader), cause,
               reader);
    addNotes(lines, report, NoteSection::sendingServer, reader);
    addFinding(lines, toTranslate("Domain policy (DMARC)"), report.dmarc, policySentence(report, reader),
               cause, reader);
    addNotes(lines, report, NoteSection::policy, reader);
    addFinding(lines, toTranslate("Forwarding chain (ARC)"), report.arc, sentence(report.arc, reader), cause,
               reader);
    addNotes(lines, report, NoteSection::chain, reader);
    lines.section(toTranslate("Your mail server said"));
    bool isFirst = true;
    for (const Remark& remark : receiverRemarks(report, reader)) {
        std::exchange(isFirst, false) ? lines.add(remark) : lines.note(remark);
    }
    addNotes(lines, report, NoteSection::receiverResults, reader);
    lines.section(toTranslate("Limits"));
    for (const Limit limit : report.limits) {
        lines.add(reader.translate("%1: %2", {title(limit, reader), sentence(limit, reader)}));
    }
    lines.add("");
    lines.add(
        reader.translate("Checked on this Mac by Quillmark. Only DNS and registry (RDAP) lookups of the "
                         "domains named in the message left the Mac."));
    return std::move(lines).text();
}

std::vector<std::string> forWhoeverIsGivenIt(const Reader& reader) {
    return {
        reader.translate("This page says what a message’s signatures and the DNS of its domains prove about "
                         "its sender. It doesn’t say whether what is written in the message is true."),
        reader.translate("To look into it, ask for the message itself as a file (.eml). A message that is "
                         "forwarded is a new one, of which this can’t be checked."),
        reader.translate("Any program that checks DKIM, SPF, DMARC and ARC can repeat this check. Senders "
                         "withdraw their keys after some time, so do it soon.")};
}

std::string textPage(const ProofReport& report, const Reader& reader, const TextLayout& layout,
                     std::string_view expected, const std::optional<std::string>& digest) {
    Lines lines(reader, layout);
    lines.add(reader.translate("Who can be proven to have sent this email?"));
    lines.add(reader.translate("Checked: %1", {reader.time(report.checkedAt)}));
    if (report.fileName)
        lines.add(reader.translate("File: %1", {inert(placeName(*report.fileName, reader))}));
    if (digest) lines.add(reader.translate("SHA-256 of the message: %1", {*digest}));
    lines.add("");
    const Banner banner = bannerOf(report, reader);
    lines.add(Remark{banner.tone, banner.headline});
    addBanner(lines, banner, mostOnPage, reader);
    addExpected(lines, report, expected, reader);
    for (const ReportNote& note : report.notes) {  // which weighs on all that was found
        if (std::holds_alternative<ReportNote::AnsweredBy>(note.value))
            lines.note(Remark{tone(note), sentence(note, reader)});
    }
    addMessage(lines, report, reader);
    addFindings(lines, report, reader);
    lines.section(toTranslate("For whoever is given this page"));
    for (const std::string& each : forWhoeverIsGivenIt(reader)) lines.add(each);
    return std::move(lines).text();
}

}  // namespace quillmark
