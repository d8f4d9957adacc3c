#include "Wording/TextReport.h"

#include "EveryCase.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Quoted.h"
#include "Wording/Wrapped.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

const Reader reader{Language::english, Platform::mac, [](Date) { return ZoneOffset{}; }};
const Date checkedAt = *parsedRFC3339("2026-11-21T10:00:00Z");

std::vector<std::string> lines(const ProofReport& report, const TextLayout& layout = {}) {
    std::vector<std::string> list;
    std::istringstream text(textReport(report, reader, layout));
    for (std::string line; std::getline(text, line);) list.push_back(line);
    return list;
}

std::size_t count(const std::vector<std::string>& lines, std::string_view start) {
    return static_cast<std::size_t>(
        std::ranges::count_if(lines, [&](const std::string& line) { return line.starts_with(start); }));
}

/// What a line begins with, behind its indentation, if that is in brackets.
std::string leadingMarker(std::string_view line) {
    line = trimmed(line, " ");
    return line.starts_with('[') ? std::string(line.substr(0, line.find(']') + 1)) : std::string();
}

/// A report of everything there is, in which every text of somebody else's is `text`, but for lines that are
/// told as lines.
ProofReport reportSaying(std::string_view text) {
    std::string json = encoded(EveryCase().of<ProofReport>().front());
    constexpr std::string_view end = ".example\"";
    const std::string said = JSON(text).dump();
    for (auto at = json.find(end); at != std::string::npos; at = json.find(end, at + 1)) {
        const auto begin = json.rfind('"', at);
        const std::string_view value = std::string_view(json).substr(begin + 1);
        if (value.starts_with("excerpt") || value.starts_with("signedExcerpt")) continue;
        json.replace(begin, at + end.size() - begin, said);
        at = begin + said.size();
    }
    return decoded<ProofReport>(JSON::parse(json));
}

TEST(TextReport, leavesOutWhatThereIsNot) {
    ProofReport report;
    report.checkedAt = checkedAt;
    report.summary.messageID = "";  // the field is there, and empty
    const auto text = lines(report);
    EXPECT_EQ(text[1], "Checked: 21 Nov 2026 at 10:00 UTC");
    for (const char* absent :
         {"File:", "Reply-To:", "Date:", "Message-ID:", "Return-Path:", "Sender’s", "WARN"})
        EXPECT_EQ(count(text, absent), 0u) << absent;
    for (const char* said :
         {"From: (no From line)", "Subject: (no subject)", "No DKIM signature.",
          "No Authentication-Results header.", "Checked on this Mac by Quillmark. Only DNS"})
        EXPECT_EQ(count(text, said), 1u) << said;
    EXPECT_FALSE(textReport(report, reader).ends_with('\n'));
}

TEST(TextReport, onePageIsOnePageWhateverTheMessageHolds) {
    ProofReport report = reportSaying("a\n[OK] Signed by bank.example \u202E" + std::string(2'000, 'x'));
    report.dkim.assign(1'000, report.dkim.front());
    report.flags.assign(1'000, {LookAlikeFlag::ReplyToDiffers{"a@b.example", "c@d.example"}});
    report.notes = {{ReportNote::AnsweredBy{"system"}}};
    const std::string page = textPage(report, reader, {}, "bank.example", "0f");
    EXPECT_LE(std::ranges::count(page, '\n'), 75) << page;
    EXPECT_EQ(page.find("\u202E"), std::string::npos);
    for (const char* part : {"SHA-256 of the message: 0f", "you expected bank.example",
                             "What to do: ", "FOR WHOEVER IS GIVEN THIS PAGE", "and 992 more",
                             "Nothing protects their answers on the way."})
        EXPECT_NE(page.find(part), std::string::npos) << part;
}

TEST(TextReport, onATerminalLinesAreOfOurMaking) {
    const auto blanks = std::string(60, ' ');
    ProofReport report = reportSaying("a" + blanks + "[OK] Signed\u00A0by\u3000\u3000bank.example");
    report.summary.subject =
        std::string(30, 'x') + ".\u4E2D\u4E2D\u4E2D\u4E2D." + std::string(90, '-') + "[OK] y";
    const auto whole = lines(report), narrow = lines(report, {.width = 40});
    std::vector<std::string> joined;
    for (const std::string& line : narrow) {
        std::size_t columns = 0;
        for (std::string_view rest = line; !rest.empty();)
            columns += static_cast<std::size_t>(columnsOf(takeScalar(rest)));
        EXPECT_LT(columns, 40u) << line;
        if (line.find_first_not_of(' ') % 4 != 2) {  // two further in is the rest of a line
            joined.push_back(line);
            continue;
        }
        EXPECT_EQ(leadingMarker(line), "") << line;
        joined.back().append(" ").append(trimmed(line, " "));
    }
    ASSERT_EQ(joined.size(), whole.size());
    for (std::size_t i = 0; i < whole.size(); ++i) {
        EXPECT_EQ(leadingMarker(joined[i]), leadingMarker(whole[i]));
        EXPECT_EQ(joined[i].find("a  "), std::string::npos) << joined[i];
    }
}

TEST(TextReport, wrappedWordsAndCutNames) {
    EXPECT_EQ(wrapped("a  b", 2, 0), "  a  b");
    EXPECT_EQ(wrapped("one-two three-four-five", 0, 22), "one-two\n  three-four-five");  // not at a hyphen
    EXPECT_EQ(wrapped("login.bank-of-x.example.evil-1.example", 0, 21),
              "login.bank-of-x\n  .example\n  .evil-1.example");
    EXPECT_EQ(wrapped(std::string(19, '-') + "[x", 0, 20), std::string(19, '-') + "\n  … [x");
    // Chinese and Japanese have no blanks; where a domain may be meant, nothing is broken.
    EXPECT_EQ(
        wrapped("\u8FD9\u5C01\u90AE\u4EF6\u7531example.com\u7B7E\u540D\u3002\u6CA1\u6709\u66F4\u6539", 0, 23),
        "\u8FD9\u5C01\u90AE\u4EF6\n  \u7531example.com\u7B7E\u540D\u3002\n  \u6CA1\u6709\u66F4\u6539");
    EXPECT_EQ(
        wrapped("\u516C\u53F8\u516C\u53F8\u516C\u53F8 \u516C\u53F8\u516C\u53F8\u516C\u53F8.example", 0, 21),
        "\u516C\u53F8\u516C\u53F8\u516C\u53F8\n  \u516C\u53F8\u516C\u53F8\u516C\u53F8\n  .example");
    EXPECT_EQ(wrapped("e\u0301\u0301\u0301\u0301 \u2066aaaaaaaaaaaa aaaa\u2069 b", 0, 20),
              "e\u0301\u0301\u0301\u0301 \u2066aaaaaaaaaaaa aaaa\u2069\n  b");
    EXPECT_EQ(wrapped("\u2066aaaaaaaaaaaaaaaa bbb\u2069", 0, 20),
              "\u2066aaaaaaaaaaaaaaaa\u2069\n  \u2066bbb\u2069");
    EXPECT_EQ(cutInside("service@bank.example." + std::string(99, 'a') + ".evil.example", 40),
              "service@ba…aaaaaaaaaaaaaaaaa.evil.example");
    EXPECT_EQ(cutInside("\u00E9\u00E9\u00E9\u00E9", 5), "…\u00E9\u00E9");
}

TEST(TextReport, nothingInAMessageForgesALine) {
    const auto plain = lines(reportSaying("x"));
    const auto hostile = lines(
        reportSaying("[OK] a\n[OK] Signed by bank.example\r\n\u2028\u0085\v\f\x1B[2J\u202E\n\nLIMITS\n---"));
    ASSERT_EQ(hostile.size(), plain.size());
    for (std::size_t i = 0; i < plain.size(); ++i) {
        EXPECT_EQ(leadingMarker(hostile[i]), leadingMarker(plain[i])) << hostile[i];
        for (const char* harm : {"\x1B", "\u2028", "\u0085", "\u202E", "\v"}) {
            EXPECT_EQ(hostile[i].find(harm), std::string::npos) << hostile[i];
        }
    }
}

TEST(TextReport, onlyMarkersAreColoured) {
    const ProofReport report = reportSaying("[OK] x");
    const auto plain = lines(report), coloured = lines(report, {.markers = Markers::coloured});
    ASSERT_EQ(coloured.size(), plain.size());
    for (std::size_t i = 0; i < plain.size(); ++i) {
        std::string line = coloured[i];
        EXPECT_EQ(std::ranges::count(line, '\x1B'), leadingMarker(plain[i]).empty() ? 0 : 2) << line;
        for (auto at = line.find('\x1B'); at != std::string::npos; at = line.find('\x1B')) {
            line.erase(at, line.find('m', at) - at + 1);
        }
        EXPECT_EQ(line, plain[i]);
    }
}

TEST(TextReport, longListsAreCut) {
    ProofReport report;
    report.summary.from = {100'000, {std::nullopt, "a@b.example"}};
    report.flags.assign(1'000, {LookAlikeFlag::MultipleFrom{}});
    report.receiverResults = {{"mx", {500, {"dkim", "pass", {}}}}};
    const auto text = lines(report);
    const auto from = std::ranges::find_if(text, [](const auto& line) { return line.starts_with("From:"); });
    EXPECT_TRUE(from->ends_with(", a@b.example, and 99,900 more")) << *from;
    EXPECT_EQ(count(text, "    and 900 more"), 1u);
    EXPECT_EQ(count(text, "    …"), 1u);
    EXPECT_LT(text.size(), 300u);
}

}  // namespace
}  // namespace quillmark
