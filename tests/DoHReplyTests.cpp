#include "QuillmarkKit/Lookups/DoHReply.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

/// What a body comes to: the answer's data, one a line, or a word for it.
std::string outcome(std::string_view json, DNSRecordType type) {
    try {
        const DoHReply reply = DoHReply::parse(json, type);
        const auto* answer = std::get_if<DNSAnswer>(&reply.value);
        if (!answer) return "SERVFAIL";
        if (*answer == DNSAnswer::noData()) return "no data";
        if (*answer == DNSAnswer::nxdomain()) return "no such domain";
        std::string lines = answer->isValidated ? "validated\n" : "";
        for (const auto& data : answer->data()) lines += data + "\n";
        return lines;
    } catch (const DNSLookupError& error) {
        return error.what();
    }
}

/// A body with `count` A records.
std::string manyRecords(int count) {
    std::string json = R"({"Status":0,"Answer":[)";
    for (int i = 0; i < count; ++i) json += std::string(i ? "," : "") + R"({"type":1,"data":"a"})";
    return json + "]}";
}

std::string withData(std::size_t length) {
    return R"({"Status":0,"Answer":[{"type":1,"data":")" + std::string(length, 'a') + R"("}]})";
}

std::string nested(std::size_t depth) {
    return R"({"Status":3,"Other":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
}

TEST(DoHReply, parse) {
    using enum DNSRecordType;
    const struct {
        std::string json;
        DNSRecordType type;
        std::string outcome;
    } rows[] = {
        {R"({"Status":0})", txt, "no data"},
        {R"({"Status":0,"Answer":[]})", txt, "no data"},
        {R"({"Status":3,"Answer":[{"type":16,"data":"x"}]})", txt, "no such domain"},
        {R"({"Status":2})", txt, "SERVFAIL"},
        {R"({"Status":5})", txt, "DNS status 5"},
        {R"({"Status":-1})", txt, "DNS status -1"},
        {R"({"Status":0,"TC":false,"Question":[{"name":"a"}],"Answer":[
            {"name":"a.example.","type":5,"TTL":1,"data":"b.example."},
            {"type":16,"data":"\"v=DKIM1; k=rsa; \" \"p=AB\""}, {"type":16}, {"type":16,"data":"second"}],
            "Comment":["more"]})",
         txt, "v=DKIM1; k=rsa; p=AB\nsecond\n"},
        {R"({"Status":0,"Answer":[{"type":5,"data":"b.example."}]})", a, "no data"},
        {R"({"Status":0,"Answer":[{"type":1}]})", a, "no data"},
        {R"({"Status":0,"Answer":[{"type":28,"data":"2001:db8::1"},{"type":1,"data":"192.0.2.1"}]})", aaaa,
         "2001:db8::1\n"},
        {R"({"Status":0,"Answer":[{"type":15,"data":"\"10\""}]})", mx, "\"10\"\n"},  // unquoted for TXT alone
        {R"({"Status":3,"AD":"true","TC":"no","Question":0,"Answer":null,"Comment":{"x":[]}})", txt,
         "no such domain"},
        {R"({"Status":0,"AD":[1],"Answer":[{"name":1,"TTL":"x","type":1,"data":"192.0.2.1"}]})", a,
         "192.0.2.1\n"},
        {R"({"Status":0,"AD":true,"Answer":[{"type":1,"data":"192.0.2.1"}]})", a, "validated\n192.0.2.1\n"},
        {nested(50), txt, "no such domain"},
        {withData(65'535), a, std::string(65'535, 'a') + "\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.json, row.type), row.outcome) << row.json.substr(0, 200);
    EXPECT_EQ(outcome(manyRecords(1000), a).size(), 2000u);
    for (const std::string& json :
         {manyRecords(1001), withData(65'536), nested(70), nested(400'000),
          std::string(DoHReply::bodyLimit, ' ') + R"({"Status":3})",
          std::string("{\"Status\":0,\"Answer\":[{\"type\":16,\"data\":\"\xff\"}]}")})
        EXPECT_EQ(outcome(json, a), "unreadable answer") << json.substr(0, 200);
    for (const char* json :
         {"", "[]", "{}", "null", R"({"Status":"0"})", R"({"Status":0.5})", R"({"Status":null})",
          R"({"Status":true})", R"({"Status":99999999999})", R"({"Status":0,"Answer":{}})",
          R"({"Status":0,"Answer":"x"})", R"({"Status":0,"Answer":["x"]})", R"({"Status":0,"Answer":[{}]})",
          R"({"Status":0,"Answer":[{"type":"16","data":"x"}]})",
          R"({"Status":0,"Answer":[{"type":16,"data":1}]})",
          R"({"Status":0,"Answer":[{"type":16,"data":["x"]}]})",
          R"({"Status":0,"Answer":[{"type":16,"data":"\ud800"}]})"})
        EXPECT_EQ(outcome(json, txt), "unreadable answer") << json;
}

TEST(DoHReply, unquotedTXT) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"", ""},
        {"v=spf1 -all", "v=spf1 -all"},
        {R"(no quote, so \059 stays)", R"(no quote, so \059 stays)"},
        {R"("k=rsa; " "p=AB")", "k=rsa; p=AB"},
        {R"("a""b"  "c")", "abc"},
        {R"("a\059b")", "a;b"},
        {R"("\"\\\a")", R"("\a)"},
        {R"("\255\256.\999\25")", "\uFFFD256.99925"},  // a byte, then digits that are no byte
        {R"("\05")", "05"},
        {R"("\195\164")", "ä"},
        {R"("\195" "\164")", "\uFFFD\uFFFD"},  // each string is text of its own
        {R"("")", ""},
        {R"(outside "in" outside \" in " out)", "in in "},
        {R"("closed" "open)", "closed"},
        {R"("open)", ""},
        {R"("open\)", ""},
        {R"("open\")", ""},
        {R"(")", ""},
    };
    for (const auto& [data, text] : rows) EXPECT_EQ(unquotedTXT(data), text) << data;
}

}  // namespace
}  // namespace quillmark
