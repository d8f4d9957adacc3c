// The page about many messages: nothing of a message's becomes a part of it, and it stays small.

#include "Wording/MailboxReport.h"

#include <regex>

#include "tests/Test.h"

namespace quillmark::test {
namespace {

const Reader english{Language::english, Platform::other, [](Date) { return ZoneOffset(); }};
const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");

ProofReport report(const std::string& text) {
    ProofReport report;
    report.checkedAt = now;
    report.fileName = text + ", message 1";
    report.summary.from = {{text, text + "@example.org"}};
    report.summary.replyTo = {{text, text + "@example.net"}};
    report.summary.subject = text;
    report.summary.messageID = text;
    report.summary.date = now - std::chrono::days(400);
    report.dkim = {{.status = DKIMResult::Status::pass, .detail = text, .domain = text, .selector = text}};
    report.verdict = {.kind = VerdictKind::signatureBroken, .tone = Tone::bad, .domain = text};
    report.flags = {{LookAlikeFlag::DisplayNameMismatch{text, text}}};
    return report;
}

/// The page of so many messages like this one.
std::string page(const ProofReport& each, std::size_t count, const std::string& other = {}) {
    MailboxReport all(english);
    Totals totals;
    const MailboxEntry entry = mailboxEntry(each, WholeReport::included, english);
    for (std::size_t i = 0; i < count; ++i) {
        all.add(entry);
        totals.add(countedOf(each));
    }
    all.addProblem(other);
    std::string text;
    all.write({.inputs = {other},
               .facts = {{"label", other}},
               .begun = now,
               .ended = now,
               .table = other.empty() || other.size() > 1000 ? std::nullopt : std::optional(other)},
              totals, [&](std::string_view piece) { text += piece; });
    return text;
}

/// All tags, without the values of their attributes.
std::string tags(const std::string& page) {
    std::string found;
    const std::regex tag("<[^>]*>"), value("=(\"[^\"]*\"|[^ >]*)");
    for (std::sregex_iterator each(page.begin(), page.end(), tag), end; each != end; ++each)
        found += std::regex_replace(each->str(), value, "=") + "\n";
    return found;
}

TEST(MailboxReport, nothingInAMessageBecomesAPartOfThePage) {
    const std::string plain = tags(page(report("word"), 2, "word"));
    for (const char* const hostile :
         {"<script>alert(1)</script>", "</style></table><h1>", "\"><img src=x onerror=alert(1)>",
          "</pre></article><p id=r1>", "<!--", "]]>", "&#60;script&#62;", "' onclick='x",
          "javascript:alert(1)", "a\r\n<b>\n", "\xE2\x80\xAE<i>\xE2\x81\xA6", "</title>"}) {
        SCOPED_TRACE(hostile);
        const std::string text = page(report(hostile), 2, hostile);
        EXPECT_EQ(tags(text), plain);
        EXPECT_EQ(text.find("\xE2\x80\xAE"), std::string::npos);
        EXPECT_EQ(text.find("&#60;"), std::string::npos);  // an entity is text, too
        EXPECT_EQ(text.find("href=\"javascript"), std::string::npos);
    }
    const std::string policy = "default-src 'none'; style-src 'sha256-";
    EXPECT_EQ(plain.find("<script"), std::string::npos);
    EXPECT_NE(page(report("x"), 1).find(policy), std::string::npos);
}

TEST(MailboxReport, staysSmall) {
    const auto megabyte = std::string(1'000'000, '"');
    EXPECT_LT(page(report(megabyte), 1, megabyte).size(), 100'000u);
    ProofReport usual = report("a plain subject line");
    usual.dkim.front().domain = usual.verdict.domain = "books.example";
    usual.summary.from = {{"Harbour Books", "orders@books.example"}};
    EXPECT_LT(page(usual, 10'000).size(), 2'000'000u);
    EXPECT_LT(page(usual, 100'000).size(), 2'500'000u);
    const std::string whole = page(usual, MailboxReport::mostReports);
    EXPECT_LT(whole.size(), 15'000'000u);
    EXPECT_NE(whole.find("<tr id=r2000><td class=n><a href=#m2000>"), std::string::npos);
    EXPECT_NE(whole.find("<article id=m2000>"), std::string::npos);
    EXPECT_EQ(page(usual, MailboxReport::mostReports + 1).find("<article"), std::string::npos);
    ProofReport large = report(std::string(400, '&'));
    large.flags.resize(100, large.flags.front());
    EXPECT_LT(page(large, MailboxReport::mostReports).size(), 17'000'000u);
}

}  // namespace
}  // namespace quillmark::test
