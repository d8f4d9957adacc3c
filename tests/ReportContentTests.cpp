#include "Quillmark/ReportContent.h"

#include <stdlib.h>
#include <unistd.h>

#include "Apart/CheckProcesses.h"
#include "Apart/CheckProtocol.h"
#include "Quillmark/PDFExport.h"
#include "TestSamples.h"
#include "tests/WindowTest.h"

namespace quillmark {
namespace {

const Words english{{.zone = [](Date) { return ZoneOffset{}; }}};

const ReportSection& section(const ReportContent& content, const QString& heading) {
    for (const ReportSection& each : content.sections) {
        if (each.heading == heading) return each;
    }
    throw std::runtime_error("no section " + heading.toStdString());
}

/// A report in which every text is as bad as can be.
ProofReport hostileReport() {
    const std::string bad = "<img src='http://x.example/a.png'><b>Signed by bank.example</b> \u202E%1\n" +
                            std::string(200'000, 'x');
    ProofReport report;
    report.fileName = bad;
    report.summary.subject = report.summary.messageID.emplace(bad);
    report.summary.from = {100'000, {bad.substr(0, 60), "a@\u05D0\u05D1.example"}};
    report.flags.assign(100'000, {LookAlikeFlag::Punycode{"xn--a.example", bad.substr(0, 80)}});
    report.dkim.assign(10, DKIMResult{});
    for (DKIMResult& each : report.dkim) each.domain = each.selector = each.detail = each.algorithm = bad;
    report.dkim[0].signedHeaders = {10'000, bad.substr(0, 50)};
    report.receiverResults.push_back({bad, {100'000, {"dkim", "pass", {{"header.d", bad.substr(0, 50)}}}}});
    report.arc.hops.assign(5, {1, bad, report.dkim[1], true, {}});
    report.verdict = {VerdictKind::signedByOther, Tone::caution, bad, bad, {bad}};
    return report;
}

void eachText(const ReportRow& row, const std::function<void(const QString&)>& visit) {
    visit(row.label);
    visit(row.sentence);
    for (const ReportLine& note : row.notes) visit(note.text);
    for (const ReportFact& fact : row.details) visit(fact.value);
}

void eachText(const ReportContent& content, const std::function<void(const QString&)>& visit) {
    visit(content.headline);
    visit(content.explanation);
    for (const ReportLead& each : content.cautions) visit(each.text);
    for (const ReportLine& each : content.remarks) visit(each.text);
    for (const ReportSection& each : content.sections) {
        for (const ReportFact& fact : each.facts) visit(fact.value);
        for (const ReportLine& note : each.notes) visit(note.text);
        for (const ReportRow& row : each.rows) eachText(row, visit);
        for (const ReportRow& row : each.chain) eachText(row, visit);
    }
}

TEST(ReportContent, hostileTextIsCappedAndInert) {
    const ProofReport report = hostileReport();
    const ReportContent content = reportContent(report, std::vector<PathStep>(10'000), {}, english);
    std::size_t texts = 0;
    eachText(content, [&](const QString& text) {
        ++texts;
        EXPECT_LT(text.size(), 50'000);
        EXPECT_FALSE(text.contains(u'\u202E') || text.contains(u'\n')) << text.left(200).toStdString();
    });
    EXPECT_LT(texts, 2'000U);
    EXPECT_EQ(section(content, "Warning signs").rows.size(), 50U);
    EXPECT_EQ(section(content, "Warning signs").remarks, QStringList("and 99,950 more"));
    EXPECT_EQ(section(content, "The way it came").chain.size(), 50U);
    EXPECT_TRUE(section(content, "The message says").facts[0].value.endsWith("and 99,950 more"));
}

TEST(ReportContent, notesStandInTheirSectionsAndBesideTheHeadline) {
    ProofReport report;
    report.notes = {{ReportNote::HeaderEndsEarly{7, 100}}, {ReportNote::SigningDomainNoHost{"x"}}};
    report.flags = {{LookAlikeFlag::MultipleFrom{}}};
    const ReportContent content = reportContent(report, std::nullopt, {}, english);
    EXPECT_EQ(section(content, "The message says").notes.size(), 1U);
    EXPECT_EQ(section(content, "Signatures (DKIM)").notes.size(), 1U);
    ASSERT_EQ(content.cautions.size(), 3U);
    EXPECT_EQ(content.cautions[1].row, 0U);
    EXPECT_EQ(content.cautions[2].note, 0U);
}

TEST(ReportContent, anEarlierForwarderMayHaveSignedAnotherText) {
    using Status = DKIMResult::Status;
    ProofReport report;
    const auto hop = [](int number, Status status, bool sealValid) {
        return ARCFinding::Hop{number, "list.example", {.status = status}, sealValid, {}};
    };
    report.arc.hops = {hop(1, Status::bodyChanged, true), hop(2, Status::bodyChanged, false),
                       hop(3, Status::bodyChanged, true)};
    const ReportContent content = reportContent(report, std::nullopt, {}, english);
    const auto& chain = section(content, "Forwarding chain (ARC)").chain;
    EXPECT_EQ(chain[0].tone, std::nullopt);
    EXPECT_EQ(chain[1].tone, Tone::bad);
    EXPECT_EQ(chain[2].tone, Tone::bad);
}

TEST(ReportContent, thePathAndTheStepThatWasJudged) {
    const Sample sample = checkedSample("mailing-list");
    const ReportContent content = reportContent(sample.report, sample.path, {}, english);
    const ReportSection& path = section(content, "The way it came");
    ASSERT_EQ(path.chain.size(), 2U);
    const auto notes = [&](std::size_t step) {
        QStringList all;
        for (const ReportLine& each : path.chain[step].notes) all << each.text;
        return all.join(" | ");
    };
    EXPECT_FALSE(notes(0).contains("judged"));
    EXPECT_TRUE(notes(1).contains("after 5 seconds | SPF was judged for this address."));
    EXPECT_EQ(section(content, "Forwarding chain (ARC)").chain.size(), sample.report.arc.hops.size());
    const ReportContent saved = reportContent(sample.report, std::nullopt, {}, english);
    EXPECT_TRUE(section(saved, "The way it came").chain.empty());
    EXPECT_FALSE(section(saved, "The way it came").remarks.isEmpty());
}

std::string program(const QString& name, const QStringList& arguments) {
    QProcess process;
    process.start(name, arguments);
    EXPECT_TRUE(process.waitForFinished()) << name.toStdString();
    return process.readAllStandardOutput().toStdString();
}

/// What another program reads out of a PDF.
struct ReadBack {
    explicit ReadBack(const QByteArray& pdf) {
        EXPECT_TRUE(file.open());
        file.write(pdf);
        file.flush();
        bytes = pdf.toStdString();
        text = program("pdftotext", {"-layout", file.fileName(), "-"});
        raw = program("pdftotext", {"-raw", file.fileName(), "-"});
        info = program("pdfinfo", {file.fileName()});
        fonts = program("pdffonts", {file.fileName()});
        images = program("pdfimages", {"-list", file.fileName()});
    }
    QTemporaryFile file;
    std::string bytes, text, raw, info, fonts, images;
};

bool holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(PDFExport, holdsWhatALawyerFiles) {
    const Sample sample = checkedSample("mailing-list");
    const ReportContent content = reportContent(sample.report, sample.path, {1'000, 100}, english);
    const PDFFrame frame{"Quillmark report: a title",
                         {{"SHA-256 of the message", "0123abcd"}, {"Checked", "21 Nov 2026 at 10:00 UTC"}},
                         {{"mail._domainkey.okafor.example|TXT", "v=DKIM1; p=MIIB"}},
                         false};
    for (const bool isLetter : {false, true}) {
        PDFFrame paper = frame;
        paper.isLetter = isLetter;
        const ReadBack read(pdfOf(content, paper, english));
        for (const char* part :
             {"Signature broken", "Page 1 of ", "0123abcd", "10:00 UTC", "p=MIIB", "relaxed/relaxed",
              "From, To, Subject, Date, Message-ID", "okafor.example", "SPF was judged"}) {
            EXPECT_TRUE(holds(read.text, part)) << part << read.text;
        }
        const std::string first = read.text.substr(0, read.text.find('\f'));
        EXPECT_TRUE(holds(first, "Ben Okafor") && holds(first, "ask for the message itself")) << first;
        EXPECT_FALSE(holds(first, "Signatures (DKIM)")) << "evidence on the page that is read alone";
        EXPECT_TRUE(holds(read.text, "by its own word")) << "the way is drawn";
        EXPECT_TRUE(holds(read.text, "first") && !holds(read.text, "\uFB01")) << "joined letters";
        EXPECT_TRUE(holds(read.raw, "From Ben Okafor <ben@okafor.example>\nTo choir@")) << read.raw;
        EXPECT_TRUE(holds(read.bytes, "/Lang (en)") && holds(read.bytes, "/DisplayDocTitle true"));
        EXPECT_TRUE(holds(read.info, "Quillmark report: a title"));
        for (const char* none : {"/EmbeddedFile", "/Filespec", "/Encrypt", "/SMask ", "/Group", "/BM "}) {
            const std::string allowed = none + std::string("/None");
            for (auto at = read.bytes.find(none); at != std::string::npos; at = read.bytes.find(none, at + 1))
                EXPECT_EQ(read.bytes.substr(at, allowed.size()), allowed) << "not fit to be filed";
        }
        for (const char* opacity : {"/CA ", "/ca "}) {
            for (auto at = read.bytes.find(opacity); at != std::string::npos;
                 at = read.bytes.find(opacity, at + 1))
                EXPECT_EQ(read.bytes.substr(at + 4, 3), "1.0") << "transparent";
        }
        EXPECT_TRUE(holds(read.bytes, "pdfaid:part=\"1\" pdfaid:conformance=\"B\""));
        EXPECT_TRUE(holds(read.info, isLetter ? "(letter)" : "(A4)")) << read.info;
        EXPECT_TRUE(holds(read.fonts, " yes no  yes ") && !holds(read.fonts, " no  no  "))
            << "a font that is not embedded\n"
            << read.fonts;
    }
}

TEST(PDFExport, whatWasChangedStandsUnderTheSignature) {
    Sample sample = checkedSample("gateway");
    sample.report.notes.push_back({ReportNote::AnsweredBy{"system"}});
    auto bytes = readFile(samplePath("gateway.eml"));
    FixedAnswers fixed = FixedAnswers::read(samplePath("gateway.dns.json"));
    const auto answers = std::make_shared<RecordedAnswers>();
    for (const auto& [question, answer] : fixed.answers) answers->dns.keep(question, answer);
    const CheckedMessage checked{
        {.bytes = std::make_shared<const ByteBuffer>(std::move(std::get<ByteBuffer>(bytes)))},
        answers,
        std::make_shared<RecordedFailures>(),
        {},
        {}};
    CheckedMessage hanging = checked;
    hanging.processes = std::make_shared<CheckProcesses>([](const Channel& channel) {
        const auto piece = Talk(channel).hear(Talk::Files::taken);
        if (piece && piece->kind == TalkKind::signedTexts) pause();
    });
    std::stop_source stop;
    // Of the history there is what the report kept, and so there is where a process hangs at the end.
    const std::vector kept{"added, not signed", "| unless you know the sender.", "before, as it was signed"};
    const struct {
        std::optional<CheckedMessage> message;
        std::vector<const char*> parts;
    } rows[] = {
        {checked,
         {"added, not signed, 2 lines", "| unless you know the sender.", "changed, not signed, 1 line",
          "| The new touches are at", "as signed, 1 line", "https://bellringers.example/touches?week=47"}},
        {std::nullopt, kept},
        {hanging, kept}};
    for (const auto& row : rows) {
        if (&row == &rows[2]) stop.request_stop();
        const ReadBack read(pdfOf(sample.report, row.message, {}, {}, english, stop.get_token()));
        for (const char* part : row.parts) EXPECT_TRUE(holds(read.text, part)) << part << read.text;
        const auto page = read.text.find('\f'), unprotected = read.text.find("Nothing protects");
        EXPECT_TRUE(unprotected < page && read.text.rfind("Nothing protects") == unprotected) << read.text;
    }
    SignedText::Block block{.kind = SignedText::Block::Kind::added, .lines = {}, .count = 200};
    block.lines.resize(100);
    const auto blocks = blocksOf({{}, {block}}, english, 60);
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0].lines.size(), 60);
    EXPECT_EQ(blocks[1].lines, QStringList{"and 140 more lines"});
}

TEST(PDFExport, markupIsTextAndNothingIsALink) {
    ProofReport report = hostileReport();
    report.summary.subject = "<img src='http://x.example/a.png'> https://evil.example/ <b>bold</b>";
    const ReportContent content = reportContent(report, std::nullopt, {200, 3}, english);
    const QByteArray pdf = pdfOf(content, {"<title>&", {}, {}, false}, english);
    const ReadBack read(pdf);
    EXPECT_TRUE(holds(read.text, "<img src='http://x.example/a.png'> https://evil.example/ <b>bold</b>"));
    EXPECT_TRUE(holds(read.info, "<title>&"));
    EXPECT_FALSE(pdf.contains("/URI") || pdf.contains("/JavaScript") || pdf.contains("/Launch"));
    EXPECT_EQ(std::count(read.images.begin(), read.images.end(), '\n'), 2) << read.images;
}

TEST(PDFExport, linesStandOnceAndFindingsStayOnOnePage) {
    ReportContent content;
    content.headline = content.explanation = "x";
    content.sections.resize(1);
    for (int i = 100; i < 200; ++i) {
        ReportRow row;
        row.label = "begin" + QString::number(i);
        row.sentence = QString("sentence ").repeated(40 + i % 7 * 10);
        row.details = {{"Reason", "end" + QString::number(i)}};
        content.sections[0].rows.push_back(row);
    }
    content.sections[0].rows.push_back({{}, "tall", QString("high ").repeated(3'000), {}, {}});
    const ReadBack read(pdfOf(content, {"x", {}, {}, false}, english));
    const auto only = [&](const std::string& word) {
        const auto first = read.text.find(word);
        EXPECT_TRUE(first != std::string::npos && first == read.text.rfind(word)) << word;
        return std::count(read.text.begin(), read.text.begin() + static_cast<std::ptrdiff_t>(first), '\f');
    };
    for (int i = 100; i < 200; ++i)
        EXPECT_EQ(only("begin" + std::to_string(i)), only("end" + std::to_string(i))) << i;
    std::size_t high = 0;
    for (auto at = read.text.find("high"); at != std::string::npos; at = read.text.find("high", at + 1))
        ++high;
    EXPECT_EQ(high, 3'000u);
}

TEST(PDFExport, proposedNames) {
    const std::pair<const char*, const char*> rows[] = {
        {"example.org", "example.org 2026-01-15.pdf"}, {"", "Report 2026-01-15.pdf"},
        {"../../etc/x", "_.._etc_x 2026-01-15.pdf"},   {"con.example", "Report con.example 2026-01-15.pdf"},
        {"COM1", "Report COM1 2026-01-15.pdf"},        {"a\nb\u202E\u05D0", "a_b_____ 2026-01-15.pdf"},
    };
    for (const auto& [domain, name] : rows) {
        ProofReport report;
        report.verdict.domain = domain;
        report.checkedAt = parsedRFC3339("2026-01-14T23:30:00Z").value();
        const Reader berlin{.zone = [](Date) { return ZoneOffset{std::chrono::hours(1), "CET"}; }};
        EXPECT_EQ(proposedName(report, ".pdf", berlin).toStdString(), name);
    }
    ProofReport report;
    report.verdict.domain = std::string(300, 'a') + ".evil.example";
    const QString name = proposedName(report, ".pdf", english.reader);
    EXPECT_TRUE(name.size() <= 100 && name.contains(".evil.example ")) << name.toStdString();
}

}  // namespace
}  // namespace quillmark
