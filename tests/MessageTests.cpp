#include "QuillmarkKit/Mail/Message.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(Message, parse) {
    using Fields = std::vector<std::string>;
    const struct {
        std::string_view bytes;
        Fields raw;
        std::optional<std::string> body;
        ParseMode mode = ParseMode::strict;
    } rows[] = {
        {"", {}, std::nullopt},
        {"A: 1\nB: 2\n\nbody\n", {"A: 1", "B: 2"}, "body\r\n"},
        {"A: 1\rB: 2\r\rbody\r", {"A: 1", "B: 2"}, "body\r\n"},
        {"A: 1\n\nx\r\ry\n\rz", {"A: 1"}, "x\r\n\r\ny\r\n\r\nz"},
        {"\r\n\r\nFrom x y\r\nA: 1\r\n", {"A: 1"}, std::nullopt},
        {"From x y", {}, std::nullopt},
        {"From : a@b\r\nB: 2\r\n\r\n", {"B: 2"}, ""},
        {"\uFEFFA: 1\r\n\r\n", {"A: 1"}, ""},
        {"A: 1\r\n\tfolded\r\n \r\nB: 2\r\n\r\n", {"A: 1\r\n\tfolded\r\n ", "B: 2"}, ""},
        {"A:\r\nB : 2\r\n", {"A:", "B : 2"}, std::nullopt},
        {"A: 1\r\nno field\r\nB: 2\r\n\r\nbody", {"A: 1"}, std::nullopt},
        {"A: 1\r\n: x\r\nB: 2\r\n\r\nbody", {"A: 1"}, std::nullopt},
        {"A: 1\r\nN\xC3\xA9: x\r\nB: 2\r\n\r\nbody", {"A: 1"}, std::nullopt},
        {"garbage\r\n more\r\nA: 1\r\n\r\n", {"A: 1"}, ""},
        {"garbage\r\n\r\nA: 1\r\n", {}, "A: 1\r\n"},
        {" A: 1\r\nB: 2\r\n", {"B: 2"}, std::nullopt},
        {" \t A: 1\r\nB: 2\r\n", {"A: 1", "B: 2"}, std::nullopt, ParseMode::lenient},
        {"  \r\n\r\n \r\nA: 1\r\n\r\nx", {"A: 1"}, "x", ParseMode::lenient},
        {"A: 1\r\n\r\n \t\r\n", {"A: 1"}, std::nullopt, ParseMode::lenient},
        {"A: 1\r\n\r\n \t\r\n", {"A: 1"}, " \t\r\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        const auto message = MailMessage::parse(row.bytes, row.mode);
        Fields raw;
        for (const auto& field : message.headers()) raw.emplace_back(field.raw);
        EXPECT_EQ(raw, row.raw);
        EXPECT_EQ(message.body(), row.body);
        if (message.headers().empty()) continue;
        const auto again = MailMessage::parse(message.bytes());
        EXPECT_EQ(again.bytes(), message.bytes());
        EXPECT_EQ(again.body(), message.body());
    }
}

TEST(Message, values) {
    const struct {
        std::string_view field, name, value;
    } rows[] = {
        {"Subject: one\r\n two", "Subject", "one two"},
        {"A \t:  x \t", "A", "x"},
        {"A:", "A", ""},
        {"A: caf\xC3\xA9", "A", "caf\u00E9"},
        {"A: caf\xE9", "A", "caf\u00E9"},
        {"A: \u3000x\u00A0", "A", "x"},
        {"A: b: c", "A", "b: c"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.field);
        const auto message = MailMessage::parse(row.field);
        ASSERT_EQ(message.headers().size(), 1u);
        EXPECT_EQ(message.headers()[0].name, row.name);
        EXPECT_EQ(message.headers()[0].value(), row.value);
    }
}

TEST(Message, copiesKeepViewsAlive) {
    const HeaderField* field = nullptr;
    MailMessage kept;
    {
        const auto message =
            MailMessage::parse("A: a value that is not short enough to lie inside an object\n");
        field = message.first("a");
        kept = message;
    }
    EXPECT_EQ(field->value(), "a value that is not short enough to lie inside an object");
}

/// Long texts are looked at in stretches: a line end counts wherever it lies in them.
TEST(Message, lineEndsAnywhere) {
    for (const std::string_view end : {"\r\n", "\r", "\n", "\n\r\n"}) {
        for (std::size_t at = 0; at < 600; ++at) {
            const std::string before(at, 'x'), behind(100, 'y');
            const std::string text = before + std::string(end) + behind;
            EXPECT_EQ(Bytes::normalizedLineEnds(ByteBuffer(text)).view(),
                      before + (end.size() > 2 ? "\r\n\r\n" : "\r\n") + behind)
                << at;
        }
    }
}

TEST(Message, linesThatEndWellAreKeptInPlace) {
    ByteBuffer bytes(std::string_view("A: 1\r\n\r\nbody\r\n"));
    const char* place = bytes.data();
    const auto message = MailMessage::parse(std::move(bytes));
    EXPECT_EQ(message.headers()[0].raw.data(), place);
}

}  // namespace
}  // namespace quillmark
