#include "QuillmarkKit/ReportJSON.h"

#include "EveryCase.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(ReportJSON, roundTrip) {
    EXPECT_EQ(reportFromJSON(compactJSON({})), ProofReport{});
    for (const ProofReport& report : EveryCase().of<ProofReport>())
        EXPECT_EQ(reportFromJSON(compactJSON(report)), report) << compactJSON(report);
}

/// What neither the samples' reports nor words.txt show.
TEST(ReportJSON, form) {
    ProofReport report;
    report.id = *UUID::parse("01234567-89ab-cdef-0123-456789abcdef");
    report.checkedAt = referenceDate + std::chrono::milliseconds(736'260'690'123);
    report.dkim = {{.signedAt = referenceDate - std::chrono::seconds(1)}};
    const std::string text = compactJSON(report);
    for (const char* piece :
         {R"("id":"01234567-89AB-CDEF-0123-456789ABCDEF")", R"("checkedAt":736260690.123,)",
          R"("signedAt":-1,)", R"("status":{"malformed":{}})"})
        EXPECT_NE(text.find(piece), std::string::npos) << piece << text;
    const auto empty = JSON::parse(compactJSON({}));
    EXPECT_EQ(empty.size(), 13u);  // all but fileName and notes
    EXPECT_EQ(empty["dkim"].dump(), "[]");
    EXPECT_EQ(empty["summary"].dump(), R"({"from":[],"replyTo":[],"subject":"","to":[]})");
}

/// What a receiving server's field says doesn't decide where they stand.
TEST(ReportJSON, pathAndDigestAreOfTheReport) {
    ProofReport report;
    report.arc.hops.emplace_back().sawResults = {"mx.example", {{"spf", "pass", {{"a", "x"}, {"spf", "y"}}}}};
    report.receiverResults = {report.arc.hops[0].sawResults};
    report.unknown = {{"", "season", "5"}};
    auto expected = JSON::parse(compactJSON(report));
    expected["path"] = "a.eml";
    expected["sha256"] = "00";
    EXPECT_EQ(JSON::parse(compactJSON(report, "a.eml", "00")), expected);
}

TEST(ReportJSON, inPieces) {
    ProofReport report = EveryCase().of<ProofReport>().front();
    report.unknown = {{"", "season", "5"}, {"summary", "a", "1"}, {"summary", "z", "2"}};
    report.dkim.front().signedHeaders = {100'000, ""};
    report.summary.subject = std::string(200'000, 'x') + "\x01\u00FC\"" + std::string(100'000, '\xFF');
    const std::string text = compactJSON(report, "a.eml", "00");
    std::string all;
    writeCompactJSON(
        [&](std::string_view piece) {
            EXPECT_LT(piece.size(), 200'000u);
            all += piece;
        },
        report, "a.eml", "00");
    EXPECT_EQ(all, text);
    for (const std::size_t size : {1u, 2u, 3u, 10u, 1'000u}) {
        std::string pieces, last;
        serialization::Encoder(last, size, [&](std::string_view piece) { pieces += piece; }).write(report);
        EXPECT_EQ(pieces + last, compactJSON(report)) << size;
    }
    EXPECT_EQ(compactJSONWithin(text.size(), report, "a.eml", "00"), text);
    EXPECT_EQ(compactJSONWithin(text.size() - 1, report, "a.eml", "00"), std::nullopt);
    EXPECT_EQ(compactJSONWithin(1'000, report), std::nullopt);
}

TEST(ReportJSON, faultsSayWhereTheyAre) {
    auto full = JSON::parse(encoded(EveryCase().of<ProofReport>().front()));
    full["flags"] = JSON::parse(R"([{"youngDomain":{"days":1,"domain":"a","registered":0}}])");
    full["spf"]["status"] = JSON::parse(R"({"judged":{"_0":"pass"}})");
    const char* keys = "dkim[0].status: Invalid number of keys found, expected one.";
    const struct {
        const char *pointer, *value;  ///< what is put there; null takes it away
        const char* fault;
    } rows[] = {
        {"/id", "5", "id: expected a text"},
        {"/id", R"("0123")", "id: expected a UUID"},
        {"/summary", nullptr, "summary: missing"},
        {"/dkim/0/status", "{}", keys},
        {"/dkim/0/status", R"({"pass":{},"malformed":{}})", keys},
        {"/dkim/0/status", R"({"odd":{}})", "dkim[0].status: unknown case \"odd\""},
        {"/dkim/0/status", R"("pass")", "dkim[0].status: expected an object"},
        {"/dkim/1/bodyLength", "9223372036854775808", "dkim[1].bodyLength: number out of range"},
        {"/dkim/0/keyBits", "4294967296", "dkim[0].keyBits: number out of range"},
        {"/dkim/0/keyBits", "1.5", "dkim[0].keyBits: expected a whole number"},
        {"/dkim/0/signedAt", "1e300", "dkim[0].signedAt: number out of range"},
        {"/dkim/0/signedAt", "9223372036854775807", "dkim[0].signedAt: number out of range"},
        {"/flags/0/youngDomain/days", nullptr, "flags[0].youngDomain.days: missing"},
        {"/flags/0", R"({"never":{}})", "flags[0].never: unknown case"},
        {"/spf/status", R"({"judged":5})", "spf.status: expected an object of the case’s values"},
        {"/spf/status/judged/_0", R"("maybe")", "spf.status.judged._0: unknown case \"maybe\""},
        {"/arc/hops/0/sawResults/server", "1", "arc.hops[0].sawResults.server: expected a text"},
        {"/limits/0", R"("never")", "limits[0]: unknown case \"never\""},
        {"/limits", "{}", "limits: expected a list"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fault);
        auto json = full;
        const JSON::json_pointer pointer(row.pointer);
        if (row.value) {
            json[pointer] = JSON::parse(row.value);
        } else {
            json[pointer.parent_pointer()].erase(pointer.back());
        }
        std::string fault;
        try {
            decoded<ProofReport>(json);
        } catch (const DecodingError& error) {
            fault = error.what();
        }
        EXPECT_EQ(fault, row.fault);
    }
    auto json = full;
    json["arc"]["status"] = JSON::parse(R"({"fail":{"_0":{"sealSaysFailed":{}}}})");
    json["unknown"] = 1;
    EXPECT_EQ(
        decoded<ProofReport>(json).arc.status.value,
        decltype(ARCFinding::Status::value)(ARCFinding::Status::Fail{ARCFinding::Reason::sealSaysFailed}));
    json["fileName"] = nullptr;  // as good as absent
    EXPECT_EQ(decoded<ProofReport>(json).fileName, std::nullopt);
    json["dkim"][0].erase("detail");
    EXPECT_EQ(decoded<ProofReport>(json, MissingMembers::keepDefault).dkim[0].detail, "");
}

TEST(ReportJSON, textIsHarmlessAndUTF8) {
    ProofReport report;
    report.summary.subject = "a\x1B\x7F\u0085\u009B\u2028\u2029\u202E\u2066\u200F\u061C b é";
    const std::string text = compactJSON(report);
    EXPECT_NE(text.find("\"a\\u001b\\u007f\\u0085\\u009b\\u2028\\u2029\\u202e\\u2066\\u200f\\u061c b é\""),
              std::string::npos)
        << text;
    EXPECT_EQ(reportFromJSON(text), report);
    report.summary.subject = "bad \xFF";
    EXPECT_EQ(reportFromJSON(compactJSON(report)).summary.subject, "bad \uFFFD");
}

TEST(Serialization, jsonFromStrangers) {
    const auto fault = [](std::string_view text, std::size_t limit = 1000) {
        try {
            parsedJSON(text, limit);
        } catch (const DecodingError& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(fault("{\"a\": [1, 2]}"), "");
    EXPECT_EQ(fault("{"), "this is no JSON");
    EXPECT_EQ(fault(""), "this is no JSON");
    EXPECT_EQ(fault("[1]", 2), "too large");
    EXPECT_EQ(fault(std::string_view("[1]\0", 4)), "this is no JSON");
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_EQ(fault(nested(64)), "");
    EXPECT_EQ(fault(nested(65)), "nested too deep");
    EXPECT_EQ(fault(std::string(50'000'000, '['), 100'000'000), "nested too deep");
    const std::string brackets(100, '[');
    EXPECT_EQ(fault(R"(["\"{[", ")" + brackets + R"(", "\\"])"), "");  // text does not nest
    EXPECT_EQ(fault(R"(["\\",)" + brackets), "nested too deep");
    EXPECT_EQ(parsedJSON(R"({"a":1,"a":2})", 1000)["a"], 2);
    EXPECT_EQ(fault("[1e999999]"), "this is no JSON");
}

}  // namespace
}  // namespace quillmark
