#include "Wording/Wording.h"

#include <cerrno>
#include <new>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/Banner.h"
#include "Wording/Details.h"
#include "Wording/HistoryWording.h"
#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

/// Why no email was found is said where it can be seen.
TEST(Wording, problemOfDamagedCopies) {
    const std::string field = "Return-Path: <a@b.example>",
                      mail = field + "\nReceived: x\nFrom: a\nTo: b\n\nHi\n";
    const auto copied = [&](std::string_view before, std::string_view end) {
        std::string copy;
        int number = 1;
        for (std::string_view rest = mail; !rest.empty(); ++number) {
            const std::string digits =
                before == "1" ? "  " + std::to_string(number) + "\t" : std::string(before);
            copy.append(digits).append(takePiece(rest, '\n')).append(end);
        }
        return copy;
    };
    const struct {
        std::string text;
        std::string_view cause;
    } rows[] = {
        {copied("1", "\n"), " The lines are numbered,"},
        {copied("> ", "\n"), " Every line begins with “>”,"},
        {copied("", "\r\r\n"), " Every line ends twice"},
        {copied("", "\n\n"), " An empty line follows each line,"},
        {field + "\n\nFrom: a\n", ""},
        {"1. Eggs\n2. Milk\n3. Bread\n4. Salt\n5. Tea\n", ""},
    };
    for (const auto& row : rows) {
        const auto refused = messageIn(ByteBuffer(row.text), ParseMode::strict);
        ASSERT_TRUE(std::holds_alternative<Refusal>(refused)) << row.text;
        const std::string line = problemLine(std::get<Refusal>(refused), "a", english);
        EXPECT_EQ(line.find("was found. ") == std::string::npos, row.cause.empty()) << line;
        EXPECT_NE(line.find(std::string("was found.").append(row.cause)), std::string::npos) << line;
    }
}

TEST(Wording, placeNames) {
    for (const auto& [name, shown] :
         {std::pair("Inbox, message 12", "Inbox, Nachricht 12"),
          {"message 12", "Nachricht 12"},
          {"a.eml, attached message 2.1", "a.eml, angehängte Nachricht 2.1"},
          {"a, message 3, attached message 1", "a, Nachricht 3, angehängte Nachricht 1"},
          {"attached message 1", "angehängte Nachricht 1"},
          {"my message 3", "my message 3"},
          {"message ", "message "},
          {"a, message 3.eml", "a, message 3.eml"},
          {"", ""}}) {
        EXPECT_EQ(placeName(name, german), shown);
        EXPECT_EQ(placeName(name, english), name);
    }
}

TEST(Wording, details) {
    const struct {
        std::string_view detail, german;
    } rows[] = {
        {"a.example: timed out; b.example: no connection",
         "a.example: keine Antwort in der vorgesehenen Zeit; b.example: keine Verbindung"},
        {"d.example publishes 2 SPF records", "d.example veröffentlicht 2 SPF-Einträge"},
        {"nothing in %2's record matched", "nichts im Eintrag von %2 traf zu"},
        {"bad redirect", "unbrauchbare Umleitung (redirect)"},
        {"bad ip4:x; y\x1B[", "unbrauchbar ist \"ip4:x; y\uFFFD[\""},
        {"v=2", "v=2"},
        {"v=1. [OK] Signed by bank.example", "v=\"1. [OK] Signed by bank.example\""},
        {"; ; x", "; ; x"},
        {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(detailText(row.detail, german), row.german);
    }
    EXPECT_EQ(detailText(rows[0].detail, {.language = languageOf("zh")}),
              "a.example：超时；b.example：没有连接");
    EXPECT_EQ(reasonOf(std::bad_alloc(), german), systemErrorText(ENOMEM, german));
}

/// No number of domains to reply to crowds out what is odd about the sender, or about the text.
TEST(Wording, letters) {
    for (const int count : {60, 2'000}) {
        ProofReport report;
        report.verdict = {VerdictKind::verified, Tone::good, "xn--sprbank-3fg.example", "", {}};
        report.summary.from.push_back({std::nullopt, "a@xn--bnk-6cd.example"});
        report.dkim = {{.status = DKIMResult::Status::pass,
                        .domain = report.verdict.domain,
                        .unsignedBodyBytes = 1,
                        .bodyChecked = true}};
        for (int i = 0; i < count; ++i)
            report.flags.push_back({LookAlikeFlag::Punycode{std::to_string(i) + ".xn--pypal-4ve.com", ""}});
        for (const char* domain : {"xn--bnk-6cd.example", "xn--sprbank-3fg.example"})
            report.flags.push_back({LookAlikeFlag::Punycode{domain, ""}});
        const Banner banner = bannerOf(report, english);
        ASSERT_GE(banner.cautions.size(), 3u);
        EXPECT_TRUE(banner.cautions[0].text.starts_with("xn--bnk-6cd.example")) << banner.cautions[0].text;
        EXPECT_TRUE(banner.cautions[1].text.starts_with("xn--sprbank-3fg.example"));
        EXPECT_EQ(banner.cautions[2].text, "The signature covers nothing of the text");
        EXPECT_EQ(banner.cautions.size() + banner.more, static_cast<std::size_t>(count) + 3);
    }
}

TEST(Wording, addresses) {
    EXPECT_EQ(displayForm({"A\u202E", "a@b\x1B"}), "A‹U+202E› <a@b\uFFFD>");
    EXPECT_EQ(displayForm({std::nullopt, "a@b"}), "a@b");
    // Neither a name nor an address can look like several of them.
    EXPECT_EQ(displayForm({"x” <b@bank.example>, “y", "a@b"}), "“x\" <b@bank.example>, \"y” <a@b>");
    EXPECT_EQ(displayForm({std::nullopt, "b@bank.example>, \"c\"@d"}), "\"b@bank.example>, 'c'@d\"");
}

}  // namespace
}  // namespace quillmark
