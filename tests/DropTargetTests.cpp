#include "Quillmark/DropTarget.h"

#include "tests/WindowTest.h"

namespace quillmark {
namespace {

constexpr const char* source = "From: a@b.example\r\n\r\nhello\r\n";

TEST(DropTarget, kinds) {
    using D = DropContents;
    const struct {
        const char* name;
        std::map<QString, QByteArray> formats;
        D contents;
    } rows[] = {
        {"files first, even with data",
         {{"text/uri-list", "file:///tmp/a%20b.eml\r\nfile:///tmp/c\r\n"}, {"message/rfc822", source}},
         {D::Files{{"/tmp/a b.eml", "/tmp/c"}}}},
        {"folders beside links elsewhere",
         {{"text/uri-list", "file:///tmp/box\r\nhttps://elsewhere.example/"}},
         {D::Files{{"/tmp/box"}}}},
        {"data before text", {{"message/rfc822", source}, {"text/plain", "x"}}, {D::Data{source}}},
        {"data beside a link",
         {{"text/uri-list", "store:?item=5"}, {"message/rfc822", source}},
         {D::Data{source}}},
        {"data announced but empty", {{"message/rfc822", ""}, {"text/plain", source}}, {D::Text{source}}},
        {"text", {{"text/plain", source}}, {D::Text{source}}},
        {"text that the model will refuse", {{"text/plain", "hello there"}}, {D::Text{"hello there"}}},
        {"text beside a link",
         {{"text/uri-list", "store:?item=5"}, {"text/plain", source}},
         {D::Text{source}}},
        {"link", {{"text/uri-list", "imap://me@mail.example/fetch%3EUID%3E7"}}, {D::LinkOnly{}}},
        {"link as text", {{"text/plain", "mid:1@a.example"}}, {D::LinkOnly{}}},
        {"link to the web", {{"text/plain", "https://mail.example/#inbox/7\n"}}, {D::LinkOnly{}}},
        {"place", {{"text/x-moz-message", "mailbox-message://x#1"}}, {D::LinkOnly{}}},
        {"picture", {{"image/png", "x"}}, {D::Nothing{}}},
        {"nothing", {}, {D::Nothing{}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        QMimeData data;
        for (const auto& [format, bytes] : row.formats) data.setData(format, bytes);
        EXPECT_EQ(dropContents(data), row.contents);
        EXPECT_EQ(mayHoldMessage(data), !std::holds_alternative<D::Nothing>(row.contents.value));
    }
}

TEST(DropTarget, whatIsOfferedIsAMessageBeyondDoubt) {
    using D = DropContents;
    const std::pair<D, bool> rows[] = {
        {{D::Data{source}}, true},
        {{D::Text{"Received: x\nFrom: a@b.example\n\nhello"}}, true},
        {{D::Text{"    Message-ID: <1@b.example>\n    From: a@b.example\n"}}, true},  // as it is quoted
        {{D::Text{source}}, false},
        {{D::Text{"Received: today\nThank you"}}, false},
        {{D::Text{"Received: x\nFrom: a@b.example\n\n" + std::string(5'000'000, 'x')}}, false},
        {{D::Files{{"/tmp/a.eml"}}}, false},
        {{D::LinkOnly{}}, false},
    };
    for (const auto& [contents, isOffered] : rows) EXPECT_EQ(holdsMessage(contents), isOffered);
}

}  // namespace
}  // namespace quillmark
