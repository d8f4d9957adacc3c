#include "QuillmarkKit/Intake/AttachedMessages.h"

#include "QuillmarkKit/Support/Base64.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

struct Found {
    std::vector<std::string> messages = {};  ///< "2.1 " and the bytes
    bool isAnyLeftOut = false;
};

Found attached(std::string_view message) {
    Found found;
    AttachedMessages reader(MailMessage::parse(message));
    while (const auto next = reader.next()) {
        std::string position;
        for (const auto number : next->position)
            position += (position.empty() ? "" : ".") + std::to_string(number);
        found.messages.push_back(position + " " + std::string(next->bytes.view()));
    }
    found.isAnyLeftOut = reader.isAnyLeftOut();
    return found;
}

std::string multipart(const std::string& boundary, const std::string& parts) {
    return "Content-Type: multipart/mixed; charset=x; boundary=\"" + boundary + "\"\r\n\r\n" + parts;
}

TEST(AttachedMessages, areFound) {
    const std::string inner = "From: b@c\r\n\r\nbody\r\n", type = "Content-Type: message/rfc822\r\n";
    const std::string base64 = encodedBase64(inner);
    const struct {
        std::string message;
        std::vector<std::string> attached;
    } rows[] = {
        {"From: a@b\r\n\r\nbody", {}},
        {type + "\r\n" + inner, {"1 " + inner}},
        {"Content-Type: text/plain\r\n\r\n" + inner, {}},
        {"CONTENT-TYPE: (all of it) Message/RFC822; x=y\r\nContent-Transfer-Encoding: Base64\r\n\r\n" +
             base64.substr(0, 7) + "\r\n " + base64.substr(7) + "\r\n",
         {"1 " + inner}},
        {type + "Content-Transfer-Encoding: quoted-printable\r\n\r\n=46rom: b= \t\r\n@c \r\n\r\nx=3D=zz=\r\n",
         {"1 From: b@c\r\n\r\nx==zz"}},
        // The line end before a boundary belongs to it; what follows the last one is no part.
        {multipart("=_a b", "before\r\n--=_a b\r\n" + type + "\r\n" + inner +
                                "\r\n--=_a b  \r\n\r\ntext\r\n--=_a b\r\n" +
                                "Content-Type:\r\n message/rfc822\r\n\r\n" + inner + "--=_a b--\r\n" + type +
                                "\r\n" + inner),
         {"1 " + inner, "2 From: b@c\r\n\r\nbody"}},
        {multipart("a", "--a\r\n" + type + "\r\n" + inner), {"1 " + inner}},  // never closed
        {multipart("a", "--ab\r\n" + type + "\r\n" + inner + "\r\n--a-\r\n"), {}},
        {multipart("", "--\r\n" + type + "\r\n" + inner), {}},
        // A multipart in a multipart; an outer boundary ends the inner one, too.
        {multipart("a",
                   "--a\r\n" + multipart("b", "--b\r\n" + type + "\r\n" + inner + "\r\n--a\r\n" + type +
                                                  "\r\n" + inner + "\r\n--b\r\n" + type + "\r\n" + inner)),
         {"1 " + inner, "2 " + inner + "\r\n--b\r\n" + type + "\r\n" + inner}},
        {"Content-Type: multipart/digest; boundary=a\r\n\r\n--a\r\n\r\n" + inner + "\r\n--a--",
         {"1 " + inner}},
        {multipart("a", "--a\r\n" + type + "\r\nno mail\r\n--a\r\n" + type + "\r\n" + inner + "\r\n--a--"),
         {"2 " + inner}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        const Found found = attached("From: a@b\r\n" + row.message);
        EXPECT_EQ(found.messages, row.attached);
        EXPECT_FALSE(found.isAnyLeftOut);
    }
}

TEST(AttachedMessages, areBounded) {
    const std::string type = "From: a@b\r\nContent-Type: message/rfc822\r\n\r\n";
    const auto nested = [&](int depth) {
        std::string message;
        for (int i = 0; i < depth; ++i) message += type;
        return message + "From: last@b\r\n\r\nx";
    };
    EXPECT_EQ(attached(nested(8)).messages.size(), 8u);
    EXPECT_EQ(attached(nested(8)).messages.back(), "1.1.1.1.1.1.1.1 From: last@b\r\n\r\nx");
    EXPECT_FALSE(attached(nested(8)).isAnyLeftOut);
    EXPECT_EQ(attached(nested(10'000)).messages.size(), 8u);
    EXPECT_TRUE(attached(nested(10'000)).isAnyLeftOut);

    std::string many = "From: a@b\r\nContent-Type: multipart/digest; boundary=a\r\n\r\n";
    for (int i = 0; i < 101; ++i) many += "--a\r\n\r\nFrom: x@y\r\n\r\n";
    EXPECT_EQ(attached(many).messages.size(), 100u);
    EXPECT_TRUE(attached(many).isAnyLeftOut);

    std::string deep = "From: a@b\r\n", boundary;
    for (int i = 0; i < 10'000; ++i) {
        boundary = "b" + std::to_string(i);
        deep += multipart(boundary, "--" + boundary + "\r\n");
    }
    EXPECT_EQ(attached(deep + "Content-Type: message/rfc822\r\n\r\nFrom: x@y\r\n").messages.size(), 0u);
}

}  // namespace
}  // namespace quillmark
