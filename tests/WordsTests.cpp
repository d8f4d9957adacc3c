
#include <cstdlib>

#include "EveryCase.h"
#include "Wording/Banner.h"
#include "Wording/Findings.h"
#include "Wording/NoteSentences.h"
#include "Wording/Signs.h"
#include "Wording/TextReport.h"
#include "Wording/Wording.h"
#include "WordingSupport.h"
#include "tests/Test.h"

/// Every word that stands for a finding, a note, a sign, a verdict, a limit or a problem, for each of its
/// cases and in each language, against one file that people have read: words.txt. `scripts/update-samples`
/// writes it anew; each line that differs is a claim.
namespace quillmark {
namespace {

const std::pair<std::string_view, Reader> readers[] = {{"en", english}, {"de", german}};

std::string toneName(std::optional<Tone> tone) { return tone ? nameOf(*tone) : "no tone"; }

class Words {
public:
    /// A line for each language, under one that says what it is for; none where the words were there before.
    template <typename InWords>
    void add(const std::string& what, InWords inWords) {
        std::string words;
        for (const auto& [language, reader] : readers)
            words += "  " + std::string(language) + "  " + inWords(reader) + '\n';
        if (m_known.insert(words).second) m_text += what + '\n' + words;
    }
    const std::string& text() const { return m_text; }

private:
    std::string m_text = {};
    std::set<std::string> m_known = {};
};

/// The sentences of a finding and the remarks under it. The first is told in full; of the others, how they
/// differ from it: their own values, "- 3" for its third remark that they lack, and the remarks that it
/// lacks.
template <typename Finding, typename Label, typename Remarks>
void addFindings(Words& words, const std::string& kind, Label labelOf, Remarks remarksOf) {
    const std::vector<Finding> findings = EveryCase().of<Finding>();
    const JSON first = JSON::parse(encoded(findings.front()));
    for (const Finding& finding : findings) {
        const bool isFirst = &finding == &findings.front();
        const JSON json = JSON::parse(encoded(finding));
        words.add(kind + " " + (isFirst ? json : JSON::diff(first, json)).dump(), [&](const Reader& reader) {
            std::string text =
                toneName(tone(finding)) + ": " + labelOf(finding, reader) + " | " + sentence(finding, reader);
            const auto own = remarksOf(finding, reader);
            const auto known = isFirst ? std::vector<Remark>() : remarksOf(findings.front(), reader);
            for (std::size_t i = 0; i < known.size(); ++i) {
                if (std::ranges::count(own, known[i]) == 0) text += "\n      - " + std::to_string(i + 1);
            }
            for (const Remark& remark : own) {
                if (std::ranges::count(known, remark) == 0)
                    text += "\n      + " + toneName(remark.tone) + ": " + remark.text;
            }
            return text;
        });
    }
}
template <typename Finding>
void addFindings(Words& words, const std::string& kind) {
    addFindings<Finding>(
        words, kind, [](const Finding& finding, const Reader& reader) { return label(finding, reader); },
        [](const Finding& finding, const Reader& reader) { return remarks(finding, reader); });
}

/// Each alternative of a variant, as it is at first.
template <typename Variant>
std::vector<Variant> everyAlternative() {
    return []<std::size_t... index>(std::index_sequence<index...>) {
        return std::vector<Variant>{std::variant_alternative_t<index, Variant>{}...};
    }(std::make_index_sequence<std::variant_size_v<Variant>>());
}

/// What a report says of its own, line by line, what stands beside its headline, and what its verdict means.
void addReport(Words& words, std::string_view json) {
    auto report = decoded<ProofReport>(JSON::parse(json), MissingMembers::keepDefault);
    const ProofReport empty{.checkedAt = january(20)};
    report.checkedAt = empty.checkedAt;
    words.add("report " + std::string(json), [&](const Reader& reader) {
        const std::string all = textReport(report, reader), usual = '\n' + textReport(empty, reader) + '\n';
        std::string text;
        for (std::string_view rest = all; !rest.empty();) {
            const std::string line(takePiece(rest, '\n'));
            if (usual.find('\n' + line + '\n') == std::string::npos) text += "\n      " + line;
        }
        const Banner banner = bannerOf(report, reader);
        if (banner.decider)
            text += "\n      decides, " + toneName(banner.decider->tone) + ": " + banner.decider->text;
        if (!banner.lead.empty()) text += "\n      lead: " + banner.lead;
        for (const BannerLine& line : banner.cautions) text += "\n      first: " + line.text;
        for (const Remark& remark : banner.remarks)
            text += "\n      beside, " + toneName(remark.tone) + ": " + remark.text;
        text += "\n      meaning: " + banner.explanation;
        return banner.whatToDo == bannerOf(empty, reader).whatToDo
                   ? text
                   : text + "\n      to do: " + banner.whatToDo;
    });
}

std::string allWords() {
    Words words;
    for (const VerdictKind kind : EveryCase().of<VerdictKind>()) {
        for (const bool isVouched : {false, true}) {
            for (const std::string_view fromDomain : {"from.example", ""}) {
                ProofReport report;
                report.verdict = {kind, Tone::good, "domain.example", std::string(fromDomain), {}};
                if (isVouched) report.verdict.arcVouchers = {"list.example", "alias.example"};
                words.add("verdict " + encoded(report.verdict), [&](const Reader& reader) {
                    const Banner banner = bannerOf(report, reader);
                    return banner.headline + " | " + banner.explanation + " | " + banner.whatToDo;
                });
            }
        }
    }
    addFindings<DKIMResult>(
        words, "signature",
        [](const DKIMResult& result, const Reader& reader) { return label(result.status, reader); },
        [](const DKIMResult& result, const Reader& reader) { return remarks(result, january(20), reader); });
    for (const auto status : EveryCase().of<DKIMResult::Status>()) {  // without what only some results have
        const DKIMResult bare{.status = status, .domain = "domain.example"};
        words.add(std::string("bare signature ") + nameOf(status),
                  [&](const Reader& reader) { return toneName(tone(bare)) + ": " + sentence(bare, reader); });
    }
    addFindings<SPFFinding>(words, "SPF");
    addFindings<DMARCFinding>(words, "DMARC");
    addFindings<ARCFinding>(words, "ARC");
    for (const DomainAge& age : EveryCase().of<DomainAge>())
        words.add("age " + encoded(age),
                  [&](const Reader& reader) { return ageInWords(age, january(20), reader); });
    auto flags = EveryCase().of<LookAlikeFlag>();
    flags.push_back({LookAlikeFlag::YoungDomain{"domain.example", january(2), -4}});
    flags.push_back({LookAlikeFlag::MixedScripts{"xn--pypal-4ve.example"}});
    flags.push_back({LookAlikeFlag::DisplayNameMismatch{"b”. It is genuine.\n%2", "a@s.example"}});
    for (const LookAlikeFlag& flag : flags) {
        words.add("sign " + encoded(flag), [&](const Reader& reader) {
            return title(flag, reader) + " | " + sentence(flag, reader) + " | " + shortSentence(flag, reader);
        });
    }
    auto notes = EveryCase().of<ReportNote>();
    notes.push_back({ReportNote::LineOfSender{"Received-SPF", "192.0.2.1", {}}});
    notes.push_back({Damage{DamageKind::exportedAnew, {}}});
    std::set<std::string> knownDetails;
    for (const ReportNote& note : notes) {
        const char* sections[] = {"message", "signatures", "server", "policy", "chain", "receiver", "sender"};
        words.add("note " + encoded(note) + ": " + toneName(tone(note)) + ", " +
                      sections[static_cast<std::size_t>(sectionOf(note))] +
                      (standsBesideHeadline(note, Tone::bad) ? ", beside the headline" : ""),
                  [&](const Reader& reader) {
                      std::string text = sentence(note, reader), under;
                      if (shortSentence(note, reader) != text) text += " | " + shortSentence(note, reader);
                      for (const std::string& detail : details(note, reader)) under += "\n      " + detail;
                      return knownDetails.insert(under).second ? text + under : text;
                  });
    }
    for (const Limit limit : EveryCase().of<Limit>()) {
        words.add(std::string("limit ") + nameOf(limit), [&](const Reader& reader) {
            return title(limit, reader) + " | " + sentence(limit, reader);
        });
    }
    auto refusals = everyAlternative<decltype(Refusal::value)>();
    refusals.front() = Refusal::Unreadable{"no\nway"};
    for (int form = 0; form <= static_cast<int>(PackedForm::olm); ++form)
        refusals.emplace_back(Refusal::Packed{static_cast<PackedForm>(form)});
    for (int fault = 0; fault <= static_cast<int>(ArchiveFault::tooDeep); ++fault)
        refusals.emplace_back(Refusal::Archive{static_cast<ArchiveFault>(fault)});
    for (const auto& value : refusals) {
        for (const std::optional<std::string>& name : {std::optional<std::string>("a\nb, message 3"), {}}) {
            words.add("problem " + std::to_string(value.index()) + (name ? "" : ", pasted"),
                      [&](const Reader& reader) { return problemLine(Refusal{value}, name, reader); });
        }
    }
    const std::string reports = test::contents(QUILLMARK_TESTS "/reports.txt");
    for (std::string_view rest = reports; !rest.empty();) {
        if (const std::string_view line = takePiece(rest, '\n'); line.starts_with('{'))
            addReport(words, line);
    }
    return words.text();
}

TEST(Words, areTheOnesThatWereRead) {
    const std::string file = QUILLMARK_TESTS "/words.txt";
    const std::string now = allWords();
    if (std::getenv("QUILLMARK_UPDATE_WORDS")) std::ofstream(file, std::ios::binary) << now;
    std::ifstream in(file, std::ios::binary);
    std::string line, before;
    std::istringstream lines(now);
    for (std::size_t number = 1; std::getline(in, before); ++number) {
        ASSERT_TRUE(std::getline(lines, line))
            << "words.txt has more lines, from " << number << ": " << before;
        ASSERT_EQ(line, before) << "words.txt, line " << number;
    }
    EXPECT_FALSE(std::getline(lines, line)) << "words.txt lacks: " << line;
}

TEST(Words, everyNoteIsInTheBook) {
    std::ifstream in(QUILLMARK_TESTS "/../docs/notes.md");
    const std::string page{std::istreambuf_iterator<char>(in), {}};
    for (const ReportNote& note : EveryCase().of<ReportNote>()) {
        const auto* damage = std::get_if<ReportNote::Damage>(&note.value);
        const std::string_view name = damage ? nameOf(damage->kind) : caseNameOf(note);
        const bool isUnknown = std::holds_alternative<UnknownCase>(note.value);
        EXPECT_EQ(page.find("`" + std::string(name) + "`") != std::string::npos, !isUnknown) << name;
    }
}

}  // namespace
}  // namespace quillmark
