#include "QuillmarkKit/History.h"

#include <gtest/gtest.h>

#include <sstream>

#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/DecodingError.h"

namespace quillmark {
namespace {

ProofReport reportOf(std::uint8_t id, const std::string& subject = "") {
    ProofReport report;
    report.id.bytes[15] = id;
    report.summary.subject = subject;
    return report;
}

std::string written(const std::vector<ProofReport>& reports) {
    std::string text;
    HistoryWriter writer([&](std::string_view bytes) { text += bytes; });
    for (const ProofReport& report : reports) writer.add(report);
    writer.end();
    return text;
}

History readBack(const std::string& text) {
    std::istringstream input(text);
    History history;
    history.version =
        readHistory(input, [&](ProofReport report) { history.reports.push_back(std::move(report)); });
    return history;
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
    several.removeAll();
    EXPECT_FALSE(several.isEmpty());
    EXPECT_TRUE(several.add(reportOf(7)));
    history.apply(several);
    EXPECT_EQ(history.reports, std::vector{reportOf(7)});

    HistoryChange later;  // than a change that is not written yet
    later.remove(id(7));
    EXPECT_TRUE(later.add(reportOf(8)));
    several.append(later);
    EXPECT_EQ(several.added(), std::vector{reportOf(8)});
    EXPECT_TRUE(several.removes(id(1)) && several.removes(id(7)));
    later.removeAll();
    several.append(later);
    EXPECT_TRUE(several.added().empty());

    const std::size_t rest = compactJSON(reportOf(8)).size();
    HistoryChange large;
    EXPECT_FALSE(large.add(reportOf(8, std::string(largestKeptReport - rest + 1, 'x'))));
    EXPECT_TRUE(large.isEmpty());
    EXPECT_TRUE(large.add(reportOf(8, std::string(largestKeptReport - rest, 'x'))));
}

}  // namespace
}  // namespace quillmark
