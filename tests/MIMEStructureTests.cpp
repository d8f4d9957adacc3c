#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

/// Each part as "number<parent@depth kind [header][body][boundary line and closing line, cut off the rest]".
std::vector<std::string> described(const std::string& message, std::size_t mostDepth, std::size_t mostParts) {
    const MailMessage parsed = MailMessage::parse(message);
    const std::string_view body = parsed.body().value_or("");
    const auto span = [&](std::size_t from, std::size_t to) {
        std::string text;
        for (const char c : body.substr(from, to - from))
            text += c == '\r' ? "" : c == '\n' ? "|" : std::string(1, c);
        return "[" + text + "]";
    };
    std::vector<std::string> parts;
    for (const MIMEPart& part : mimeParts(parsed, mostDepth, mostParts)) {
        const char* const kinds[] = {"other", "message", "multipart"};
        parts.push_back(std::to_string(part.number) +
                        (part.parent ? "<" + std::to_string(*part.parent) : "") + "@" +
                        std::to_string(part.depth) + " " + kinds[static_cast<int>(part.kind)] + " " +
                        span(part.begin, part.headerBegin) + span(part.headerBegin, part.bodyBegin) +
                        span(part.bodyBegin, part.bodyEnd) + span(part.bodyEnd, part.end) +
                        (part.closing ? " closed " + span(part.closing->begin, part.closing->end) : ""));
    }
    return parts;
}

TEST(MIMEStructure, partsByTheirPlaces) {
    const std::string type = "Content-Type: multipart/mixed; boundary=", plain = "\r\n\r\ntext\r\n";
    const std::string nested =
        type + "a\r\n\r\npre\r\n--a\r\n" + type + "\"b\"\r\n\r\n--b\r\n\r\none\r\n--b--\r\nepi\r\n" +
        "--a\r\nContent-Type: message/rfc822\r\n\r\n" + type + "c\r\n\r\n--c\r\n\r\nx\r\n--a--\r\n";
    const struct {
        std::string message;
        std::size_t mostDepth, mostParts;
        std::vector<std::string> parts;
    } rows[] = {
        {"A: b\r\n\r\ntext\r\n", 3, 9, {"0@0 other [][][text|][]"}},
        {"A: b\r\n", 3, 9, {"0@0 other [][][][]"}},
        {type + "a\r\n\r\n--a\r\nX: y\r\n--a\r\n\r\n--a--\r\n",
         3,
         9,
         {"0@0 multipart [][][--a|X: y|--a||--a--|][] closed [--a--|]", "1<0@1 other [--a|][X: y|][][]",
          "2<0@1 other [--a|][|][][]"}},
        {nested,
         3,
         9,
         {"0@0 multipart [][][pre|--a|Content-Type: multipart/mixed; boundary=\"b\"||--b||one|--b--|epi|--a|"
          "Content-Type: message/rfc822||Content-Type: multipart/mixed; boundary=c||--c||x|--a--|][] closed "
          "[--a--|]",
          "1<0@1 multipart [--a|][Content-Type: multipart/mixed; boundary=\"b\"||][--b||one|--b--|epi][|] "
          "closed [--b--|]",
          "2<1@2 other [--b|][|][one][|]",
          "3<0@1 message [--a|][Content-Type: message/rfc822||][Content-Type: multipart/mixed; "
          "boundary=c||--c||x][|]"}},
        {type + "a\r\n\r\n--a\r\n" + type + "b\r\n\r\n--b\r\n\r\none\r\n--a\r\n\r\ntwo\r\n",
         1,
         2,
         {"0@0 multipart [][][--a|Content-Type: multipart/mixed; boundary=b||--b||one|--a||two|][]",
          "1<0@1 other [--a|][Content-Type: multipart/mixed; boundary=b||][--b||one][|]"}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(described(row.message, row.mostDepth, row.mostParts), row.parts) << row.message;
}

TEST(MIMEStructure, parametersOfAField) {
    const std::string_view value = " text/plain; name=\"a\\\"; charset=no\";\r\n Charset = utf-8 ; x";
    EXPECT_EQ(fieldParameter(value, "charset"), "utf-8");
    EXPECT_EQ(fieldParameter(value, "name"), "a\"; charset=no");
    EXPECT_EQ(fieldParameter(value, "boundary"), "");
    EXPECT_EQ(fieldParameter("charset=x", "charset"), "");
}

}  // namespace
}  // namespace quillmark
