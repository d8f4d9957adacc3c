#include "QuillmarkKit/ReportCSV.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(ReportCSV, cellsAreSafe) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain", R"("plain")"},
        {"a \"b\", c", R"("a ""b"", c")"},
        {"=HYPERLINK(\"x\")", "\"'=HYPERLINK(\"\"x\"\")\""},
        {"+1", "\"'+1\""},
        {"-1", "\"'-1\""},
        {"@SUM(1)", "\"'@SUM(1)\""},
        {"\t=1", "\"' =1\""},
        {"\rx", "\"' x\""},
        {"  =1", "\"'  =1\""},
        {"＝1", "\"'＝1\""},
        {"a\r\n=1", "\"a =1\""},
        {"a; \"=1\";b;-1", "\"a;' \"\"=1\"\";b;'-1\""},  // where semicolons part the cells
        {"\x1B[31m\u202E", "\"\uFFFD[31m‹U+202E›\""},
    };
    for (const auto& [subject, cell] : rows) {
        ProofReport report;
        report.summary.subject = subject;
        const std::string text = csvRow(report, "");
        EXPECT_NE(text.find("," + cell + ","), std::string::npos) << text;
        EXPECT_EQ(std::ranges::count(text, '\n'), 1);
    }
}

TEST(ReportCSV, row) {
    ProofReport report;
    report.checkedAt = std::chrono::sys_days(std::chrono::November / 21 / 2026);
    report.fileName = "Inbox, message 12";
    report.verdict = {VerdictKind::verified, Tone::good, "d.example", "f.example", {}};
    report.summary.from = {{.address = "a@f.example"}, {.address = "b@f.example"}};
    report.spf.status.value = SPFFinding::Status::Judged{SPFResult::softfail};
    report.flags = {{LookAlikeFlag::MultipleFrom{}}, {LookAlikeFlag::Punycode{}}};
    report.notes = {{ReportNote::NewerSignatures{1}}};
    EXPECT_EQ(csvHeader(),
              "\"file\",\"checked_at\",\"verdict\",\"tone\",\"domain\",\"from_domain\",\"from\",\"subject\","
              "\"date\",\"message_id\",\"spf\",\"dmarc\",\"arc\",\"warning_signs\",\"notes\",\"path\"\r\n");
    EXPECT_EQ(
        csvRow(report, "Mail/Inbox, message 12"),
        "\"Inbox, message 12\",\"2026-11-21T00:00:00Z\",\"verified\",\"good\",\"d.example\",\"f.example\","
        "\"a@f.example, b@f.example\",\"\",\"\",\"\",\"softfail\",\"noPolicy\",\"none\","
        "\"multipleFrom punycode\",\"newerSignatures\",\"Mail/Inbox, message 12\"\r\n");
}

}  // namespace
}  // namespace quillmark
