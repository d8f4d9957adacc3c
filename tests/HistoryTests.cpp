#include "QuillmarkKit/History.h"

#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "fuzz/HistoryText.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using fuzz::readBack, fuzz::written;

ProofReport reportOf(std::uint8_t id, const std::string& subject = "") {
    ProofReport report;
    report.id.bytes[15] = id;
    report.summary.subject = subject;
    return report;
}

TEST(History, form) {
    EXPECT_EQ(written({}), "{\n  \"reports\": [],\n  \"version\": 1\n}\n");
    ProofReport report = reportOf(1, "a\\\"{[,:\n");  // nothing in a text is layout
    report.fileName = "\\";
    report.checkedAt = referenceDate + std::chrono::milliseconds(-1);
    const std::string text = written({report, reportOf(2)});
    EXPECT_EQ(text.find("{\n  \"reports\": [\n    {\n      \"arc\": {\n        \"detail\": \"\",\n"
                        "        \"hops\": [],\n        \"status\": {\n          \"none\": {}\n"),
              0u)
        << text;
    for (const std::string_view piece :
         {"\n    },\n    {\n", "\n    }\n  ],\n  \"version\": 1\n}\n",
          "\"subject\": \"a\\\\\\\"{[,:\\u000a\"", "\n      \"fileName\": \"\\\\\",\n"}) {
        EXPECT_NE(text.find(piece), std::string::npos) << piece;
    }
    EXPECT_EQ(readBack(text), (History{1, {report, reportOf(2)}}));
    const std::vector many(30, reportOf(3, std::string(50'000, 'x')));  // more than is written at a time
    EXPECT_EQ(readBack(written(many)).reports, many);
}

TEST(History, reading) {
    const std::string report = compactJSON(reportOf(1));
    std::string broken = report;
    broken.replace(broken.find("\"dkim\":[]"), 9, "\"dkim\":[{\"status\":{}}]");
    const std::string pair = R"({"reports":[)" + report + "," + broken + R"(],"version":)";
    const std::string deep(62, '['), tooDeep(63, '[');
    const auto closed = [](const std::string& open) { return open + std::string(open.size(), ']'); };
    const struct {
        std::string text;
        std::int64_t version;  ///< 0 where there is a fault
        std::string fault = {};
    } rows[] = {
        {R"({"reports":[],"version":1})", 1},
        {R"({"version":-5,"reports":[],"more":{"reports":[5]}})", -5},
        {R"({"reports":[)" + report + R"(],"version":2})", 2},
        {R"({"version":3})", 3},
        {pair + "3}", 3},  // whatever a newer version calls a report
        {pair + "1}", 0, "reports[1].dkim[0].status: Invalid number of keys found, expected one."},
        {pair + "\"2\"}", 0, "reports[1].dkim[0].status: Invalid number of keys found, expected one."},
        {R"({"reports":[5,{}],"version":1})", 0, "reports[0]: expected an object"},
        {R"({"reports":{"a":[)" + report + R"(]},"version":1})", 0, "reports: expected a list"},
        {R"({"version":1})", 0, "reports: missing"},
        {R"({"reports":[]})", 0, "version: missing"},
        {R"({"reports":[],"version":null})", 0, "version: expected a whole number"},
        {R"({"reports":[],"version":"2"})", 0, "version: expected a whole number"},
        {R"({"reports":[],"version":1.0})", 0, "version: expected a whole number"},
        {R"({"reports":[],"version":1e999})", 0, "a number is out of range"},
        {"[" + report + "]", 0, "expected an object"},
        {"", 0, "byte 1: this is no JSON"},
        {"no JSON", 0, "byte 2: this is no JSON"},
        {R"({"reports":[],"version":1}})", 0, "byte 27: this is no JSON"},
        {R"({"reports":[],"version":1})" + std::string(" \n\t\r"), 1},
        {R"({"reports":[],"version":1})" + std::string(1, '\0'), 0, "byte 27: this is no JSON"},
        {R"({"reports":[],"version":1})" + std::string("\n\0{", 3), 0, "byte 28: this is no JSON"},
        {pair, 0, "byte " + std::to_string(pair.size() + 1) + ": this is no JSON"},
        {R"({"reports":[],"version":1,"more":")"
         "\xFF\"}",
         0, "byte 35: this is no JSON"},
        {R"({"reports":[)" + closed(deep) + R"(],"version":1})", 0, "reports[0]: expected an object"},
        {R"({"reports":[)" + closed(tooDeep) + R"(],"version":1})", 0, "nested too deep"},
        {std::string(5'000'000, '['), 0, "nested too deep"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 100));
        try {
            EXPECT_EQ(readBack(row.text).version, row.version);
            EXPECT_EQ(row.fault, "");
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.what(), row.fault);
        }
    }
}

/// Members and notes of a newer program come out of it as they went in.
TEST(History, membersThatNobodyKnows) {
    ProofReport report = reportOf(1);
    report.dkim = {DKIMResult{}, DKIMResult{}};
    report.notes = {{ReportNote::NewerSignatures{1}}};
    report.flags = {{LookAlikeFlag::MultipleFrom{}}};
    JSON json = JSON::parse(compactJSON(report));
    for (const auto& [pointer, value] : std::initializer_list<std::pair<const char*, const char*>>{
             {"/", "0"},
             {"/zone", R"(["Ä",1.5,-7,null,{"":"a\n\u202e\""}])"},
             {"/summary/a", "1"},
             {"/dkim/1/status/malformed/now", "true"},
             {"/dkim/1/zz", "{}"},
             {"/dmarc/status/noPolicy/m", "18446744073709551615"},
             {"/flags/0/multipleFrom/how", "\"x\""},
             {"/notes/-", R"({"later":{"b":{"c":[]},"ü":2}})"},
             {"/notes/0/newerSignatures/kind", "5"}}) {
        json[JSON::json_pointer(pointer)] = JSON::parse(value);
    }
    const ProofReport read = reportFromJSON(json.dump());
    EXPECT_EQ(JSON::parse(compactJSON(read)), json);
    for (const char byte : compactJSON(read)) EXPECT_TRUE(byte >= 0x20 && byte < 0x7F);
    EXPECT_EQ(read.notes.back().value,
              decltype(ReportNote::value)(UnknownCase{"later", R"({"b":{"c":[]},"\u00fc":2})"}));
    EXPECT_EQ(reportFromJSON(compactJSON(read)), read);

    const std::string text = written({report, read}, {{"", "app", "{\"a\":[1]}"}, {"", "where", "5"}});
    EXPECT_TRUE(
        text.ends_with("  ],\n  \"app\": {\n    \"a\": [\n      1\n    ]\n  },\n"
                       "  \"version\": 1,\n  \"where\": 5\n}\n"))
        << text.substr(text.size() - 100);
    const History history = readBack(text);
    EXPECT_EQ(history.reports, (std::vector{report, read}));
    EXPECT_EQ(written(history.reports, history.unknown), text);
}

/// Whatever is wrong with a history, the reports that are whole come out of it, once and in order.
TEST(History, salvage) {
    std::vector<ProofReport> reports;
    for (std::uint8_t id = 1; id <= 4; ++id) reports.push_back(reportOf(id, "{\"arc\": {\n    {\n\""));
    const std::string whole = written(reports), line = JSON::parse(whole).dump();
    const auto begin = [&](const std::string& text, std::size_t number) {  // of a report's text
        std::size_t at = text.find("\"arc\"");
        while (number-- > 0) at = text.find("\"arc\"", at + 1);
        return at;
    };
    const auto with = [](std::string text, std::size_t at, std::size_t size, const std::string& other) {
        return text.replace(at, size, other);
    };
    const std::size_t third = begin(whole, 2), inLine = begin(line, 2), cases = whole.find("\"spf\"", third);
    const std::string cut = whole.substr(0, whole.find("\"verdict\"", third));
    const struct {
        std::string text;
        std::vector<std::uint8_t> ids;
        std::size_t unread;
        std::vector<std::string> faults;
    } rows[] = {
        {whole, {1, 2, 3, 4}, 0, {}},
        {with(whole, cases, 5, "\"sqf\""), {1, 2, 4}, 1, {"reports[2].spf: missing"}},
        {with(whole, whole.rfind("\"version\": 1"), 12, "\"version\": 5"), {1, 2, 3, 4}, 0, {}},
        {with(whole, whole.rfind("\"version\": 1"), 12, "\"xx\": 1"), {1, 2, 3, 4}, 0, {"version: missing"}},
        {cut, {1, 2}, 1, {"this is no JSON", "at byte " + std::to_string(third - 7) + ": this is no JSON"}},
        {with(cut, cut.find("\"spf\""), 5, "\"sqf\""), {2}, 2, {"this is no JSON", "at byte ", "at byte "}},
        {with(whole, cases, 1, ""), {1, 2, 4}, 1, {"this is no JSON", "at byte "}},  // a quote is lost
        {with(line, inLine, 1, ""), {1, 2, 4}, 0, {"this is no JSON"}},
        {with(line, inLine + 20, 400, std::string(400, '\0')), {1, 2, 4}, 1, {"this is no JSON", "at byte "}},
        {whole + whole, {1, 2, 3, 4}, 0, {"this is no JSON"}},
        {"<<<<\n" + whole, {1, 2, 3, 4}, 0, {"byte 1: this is no JSON"}},
        {"{\"arc\"{\"arc\"", {}, 2, {"byte 7: ", "at byte 1: ", "at byte 7: "}},
        {"no JSON", {}, 0, {"byte 2: this is no JSON"}},
    };
    for (const auto& row : rows) {
        std::vector<std::uint8_t> ids;
        const auto salvage =
            salvageHistory(row.text, [&](const ProofReport& report) { ids.push_back(report.id.bytes[15]); });
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(ids, row.ids);
        EXPECT_EQ(salvage.unread, row.unread);
        ASSERT_EQ(salvage.faults.size(), row.faults.size());
        for (std::size_t i = 0; i < row.faults.size(); ++i)
            EXPECT_NE(salvage.faults[i].find(row.faults[i]), std::string::npos) << salvage.faults[i];
    }
}

TEST(History, keepsNothingOfTheText) {
    ProofReport report = reportOf(1);
    report.notes = {{ReportNote::Undone{
        .texts = {
            {.lines = 1, .bytes = 6, .excerpt = "secret", .last = "secret", .signedExcerpt = "secret"}}}}};
    HistoryChange change;
    ASSERT_TRUE(change.add(report));
    EXPECT_EQ(compactJSON(change.added().front()).find("secret"), std::string::npos);
}

TEST(History, changes) {
    const auto id = [](std::uint8_t number) { return reportOf(number).id; };
    HistoryChange several;
    EXPECT_TRUE(several.isEmpty());
    EXPECT_TRUE(several.add(reportOf(2, "new")));  // takes the place of the one that is there
    EXPECT_TRUE(several.add(reportOf(5)));
    EXPECT_TRUE(several.add(reportOf(6)));
    several.remove(id(1));
    several.remove(id(5));  // was never written
    EXPECT_TRUE(several.add(reportOf(6, "again")));
    History history{1, {reportOf(1), reportOf(2), reportOf(3)}};
    const std::vector<ProofReport> after = {reportOf(3), reportOf(2, "new"), reportOf(6, "again")};
    for (int times = 0; times < 2; ++times) {
        history.apply(several);
        EXPECT_EQ(history.reports, after);
    }

    HistoryChange later;  // than a change that is not written yet
    later.remove(id(2));
    EXPECT_TRUE(later.add(reportOf(8)));
    several.append(later);
    EXPECT_EQ(several.added(), (std::vector{reportOf(6, "again"), reportOf(8)}));
    EXPECT_TRUE(several.removes(id(1)) && several.removes(id(2)));

    const std::size_t rest = compactJSON(reportOf(8)).size();
    HistoryChange large;
    EXPECT_FALSE(large.add(reportOf(8, std::string(largestKeptReport - rest + 1, 'x'))));
    EXPECT_TRUE(large.isEmpty());
    EXPECT_TRUE(large.add(reportOf(8, std::string(largestKeptReport - rest, 'x'))));
}

}  // namespace
}  // namespace quillmark
