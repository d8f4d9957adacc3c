#include "QuillmarkKit/ReportJSON.h"

#include "EveryCase.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

/// A report with every field in use.
ProofReport fullReport() {
    ProofReport report;
    report.id = *UUID::parse("01234567-89ab-cdef-0123-456789abcdef");
    report.checkedAt = referenceDate + std::chrono::milliseconds(736'260'690'123);
    report.fileName = "a\"\n.eml";
    report.summary = {{{"Alice", "a@example.org"}, {std::nullopt, "b@example.org"}},
                      {{std::nullopt, "r@example.com"}},
                      {},
                      "Subject \U0001F600",
                      referenceDate,
                      "<1@example.org>",
                      "a@example.org"};
    report.headersOnly = true;
    DKIMResult signature;
    signature.status = DKIMResult::Status::keyTooWeak;
    signature.detail = "512-bit RSA key";
    signature.signedHeaders = {"from", "to"};
    signature.identity = "@example.org";
    signature.bodyLength = std::numeric_limits<std::int64_t>::max();
    signature.unsignedBodyBytes = 0;
    signature.signedAt = referenceDate - std::chrono::seconds(1);
    signature.expiresAt = Date(std::chrono::seconds(999'999'999'999'999));
    signature.keyBits = 512;
    signature.expired = signature.testing = signature.bodyChecked = true;
    signature.unsignedImportant = {"Subject"};
    report.dkim = {signature, {}};
    report.spf = {{SPFFinding::Status::Judged{SPFResult::softfail}},
                  "example.org",
                  SenderIP{"192.0.2.1", {SenderIP::Source::Received{"mx"}}, "helo"},
                  "~all in example.org",
                  "x"};
    report.dmarc = {DMARCFinding::Status::fail,
                    "a.example.org",
                    "example.org",
                    "reject",
                    "none",
                    "none",
                    50,
                    AlignmentMode::strict,
                    AlignmentMode::relaxed,
                    "v=DMARC1",
                    "example.org",
                    "example.org",
                    true};
    report.arc = {
        {ARCFinding::Status::Fail{ARCFinding::Reason::sealFailed}},
        "ARC-Seal i=1 didn't verify",
        {{1, "list.example", signature, true, {"mx", {{"dkim", "pass", {{"a", "1"}, {"b", "2"}}}}}}}};
    report.receiverResults = {{"mx", {}}};
    report.flags = {{LookAlikeFlag::MultipleFrom{}},
                    {LookAlikeFlag::ReplyToDiffers{"a", "b"}},
                    {LookAlikeFlag::DisplayNameMismatch{"a", "b"}},
                    {LookAlikeFlag::Punycode{"xn--a", "b"}},
                    {LookAlikeFlag::MixedScripts{"a"}},
                    {LookAlikeFlag::YoungDomain{"a", referenceDate, -3}}};
    report.domainAge = {"example.org", {DomainAge::Status::Unavailable{"timed out"}}};
    report.verdict = {VerdictKind::signatureBroken, Tone::caution, "a", "b", {"c", "d"}};
    report.limits = {Limit::domainNotCompany, Limit::headersOnly};
    using Note = ReportNote;
    report.notes = {{Note::HeaderEndsEarly{3, 1'000}},
                    {Note::FromHoldsMore{Note::FromHoldsMore::Kind::route, "a", "b"}},
                    {Note::FromEmpty{std::nullopt, "a"}},
                    {Note::ShownNotSigned{"Subject", "a", "b", 2, 1}},
                    {Note::Damage{}},
                    {Note::LinesBeforeDropped{2, "a"}}};
    return report;
}

TEST(ReportJSON, roundTrip) {
    EXPECT_EQ(reportFromJSON(compactJSON({})), ProofReport{});
    for (const ProofReport& report : EveryCase().of<ProofReport>())
        EXPECT_EQ(reportFromJSON(compactJSON(report)), report) << compactJSON(report);
}

TEST(ReportJSON, form) {
    const auto json = JSON::parse(compactJSON(fullReport()));
    const std::pair<const char*, const char*> rows[] = {
        {"/id", R"("01234567-89AB-CDEF-0123-456789ABCDEF")"},
        {"/checkedAt", "736260690.123"},
        {"/summary/date", "0"},
        {"/dkim/0/status", R"({"keyTooWeak":{}})"},
        {"/dkim/0/signedAt", "-1"},
        {"/dkim/1/status", R"({"malformed":{}})"},
        {"/spf/status", R"({"judged":{"_0":"softfail"}})"},
        {"/spf/ip/source", R"({"received":{"by":"mx"}})"},
        {"/dmarc/status", R"({"fail":{}})"},
        {"/dmarc/dkimMode", R"("strict")"},
        {"/arc/status", R"({"fail":{"_0":"sealFailed"}})"},
        {"/arc/hops/0/sawResults/methods/0/properties", R"({"a":"1","b":"2"})"},
        {"/flags/0", R"({"multipleFrom":{}})"},
        {"/flags/5", R"({"youngDomain":{"days":-3,"domain":"a","registered":0}})"},
        {"/domainAge/status", R"({"unavailable":{"_0":"timed out"}})"},
        {"/verdict/kind", R"("signatureBroken")"},
        {"/limits", R"(["domainNotCompany","headersOnly"])"},
        {"/notes/0", R"({"headerEndsEarly":{"bytes":1000,"line":3}})"},
        {"/notes/1", R"({"fromHoldsMore":{"address":"a","kind":"route","more":"b"}})"},
        {"/notes/3",
         R"({"shownNotSigned":{"count":2,"covered":1,"field":"Subject","shown":"a","signed":"b"}})"},
        {"/notes/4", R"({"damage":{"kind":"mboxLossy"}})"},
        {"/notes/5", R"({"linesBeforeDropped":{"first":"a","lines":2}})"},
    };
    for (const auto& [pointer, value] : rows)
        EXPECT_EQ(json.at(JSON::json_pointer(pointer)).dump(), value) << pointer;
    const auto empty = JSON::parse(compactJSON({}));
    EXPECT_EQ(empty.size(), 13u);  // all but fileName and notes
    EXPECT_EQ(empty["dkim"].dump(), "[]");
    EXPECT_EQ(empty["summary"].dump(), R"({"from":[],"replyTo":[],"subject":"","to":[]})");
    EXPECT_NE(compactJSON(fullReport()).find("736260690.123,"), std::string::npos);
}

TEST(ReportJSON, faultsSayWhereTheyAre) {
    const auto full = JSON::parse(encoded(fullReport()));
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
        {"/flags/5/youngDomain/days", nullptr, "flags[5].youngDomain.days: missing"},
        {"/flags/2", R"({"never":{}})", "flags[2].never: unknown case"},
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
