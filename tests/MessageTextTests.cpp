#include "QuillmarkKit/MessageText.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

/// A line for each of its own, with a sign for its kind in front.
std::string described(const std::vector<PageText::Line>& lines) {
    constexpr char signs[] = {' ', '!', '>', '#'};
    std::string out;
    for (const PageText::Line& line : lines) {
        out += signs[static_cast<std::size_t>(line.kind)];
        out += (line.label.empty() ? "" : line.label + "=") + line.text + "\n";
    }
    return out;
}

TEST(PageText, whatItSaysAndWhatItHides) {
    const struct {
        const char *page, *expected;
    } rows[] = {
        {"<p>One\n two <b>th</b>ree<p>four<br>five", " One two three\n \n four\n five\n"},
        {"<head><title>t</title><style>p{}</style>text", " text\n"},
        {"a &amp; b &#8364;&#x20AC;&nbsp;c &foo; &lt;p&gt; &",
         " a & b €€\xc2\xa0"
         "c &foo; <p> &\n"},
        {"1 < 2 <!-- x --> 3 <!--> 4 <!-- y --!> 5", " 1 < 2 3 4 5\n"},
        {"<a href='https://evil.example/?a=1&amp;b'>https://bank.example</a> now",
         " https://bank.example now\n>https://bank.example=https://evil.example/?a=1&b\n"},
        {"<a href=\"https://a.example\">https://a.example</a><a href=#x>up</a>", " https://a.exampleup\n"},
        {"<a href=x>one<div>two", " one\n two\n>one two=x\n"},
        {"<form action=https://evil.example/>Password", " Password\n>Password=https://evil.example/\n"},
        {"<img src=https://t.example alt='a &gt; b'><img>", "#a > b\n"},
        {"<ul><li>a<ol><li>b</ol><li>c</ul>", " - a\n \n - b\n \n - c\n"},
        {"<table><tr><td>a<td>b<tr><td>c</table>", " a b\n c\n"},
        {"<pre>a  b\n c</pre>", " a  b\n  c\n"},
        {"<script>if (a<b) '</p>'</script>x<style><p></style>y", " xy\n"},
        {"<span style='display:none'>secret</span>seen", "!secret\n seen\n"},
        {"<p style='DISPLAY : none !important'>one<p>two", "!one\n \n two\n"},
        {"<div hidden>a<div>b</div></div>c", "!a\n!b\n c\n"},
        {"<i style=visibility:hidden>a<i style=visibility:visible>b</i></i>", "!a\n b\n"},
        {"<td style=font-size:0>a<div style='font-size:14px'>b</div><i style=font-size:2em>c",
         "!a\n b\n!c\n"},
        {"<i style=font-size:0.5em>a</i><i style='max-height:0;overflow:hidden'>b</i>", " a\n!b\n"},
        {"<div bgcolor=#fff><font color=White>a</font><font color=#ffe>b", "!a\n b\n"},
        {"<!--[if mso]>office<![endif]--> all <!--[if !mso]><!-->rest<!--<![endif]-->",
         "!office\n all rest\n"},
        {"<b/x='>'y z=\"q>\">t</b", " t\n"},
        {"a<textarea><p>b</textarea>c", " a<p>bc\n"},
    };
    for (const auto& row : rows) EXPECT_EQ(described(pageText(row.page).lines), row.expected) << row.page;
}

TEST(PageText, isBounded) {
    std::string deep, wide;
    for (int i = 0; i < 20'000; ++i) deep += "<div>";
    EXPECT_EQ(described(pageText(deep + "x").lines), " x\n");
    for (int i = 0; i < 100'000; ++i) wide += "words ";
    const PageText text = pageText(wide);
    EXPECT_TRUE(text.isCut);
    EXPECT_LE(described(text.lines).size(), 300'000u);
    EXPECT_TRUE(pageText(std::string(5'000'001, ' ')).isCut);
}

TEST(MessageText, partsAlternativesAndAttachments) {
    const std::string plain = "Content-Type: text/plain\r\n\r\nHello, you\r\n";
    const auto alternative = [&](const std::string& page) {
        return "Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\nContent-Type: multipart/alternative; "
               "boundary=b\r\n\r\n--b\r\n" +
               plain +
               "--b\r\nContent-Type: multipart/related; boundary=c\r\n\r\n--c\r\nContent-Type: "
               "text/html\r\n\r\n" +
               page + "\r\n--c\r\nContent-Type: image/png\r\n\r\nx\r\n--c--\r\n--b--\r\n";
    };
    const MessageText same = messageText(MailMessage::parse(alternative("<p>Hello, <b>you!")));
    ASSERT_EQ(same.texts.size(), 1u);
    EXPECT_EQ(same.texts[0].type, "text/html");
    ASSERT_EQ(same.fields.size(), 1u);
    EXPECT_EQ(same.fields[0].shown, std::vector<std::string>{"Grüße"});
    ASSERT_EQ(same.attachments.size(), 1u);
    EXPECT_EQ(same.attachments[0].content->bytes, 1);
    // What only one of them says must not stay unseen.
    const MessageText other = messageText(MailMessage::parse(alternative("<p>Hello, <b>you all")));
    ASSERT_EQ(other.texts.size(), 2u);
    EXPECT_EQ(described(other.texts[0].lines), " Hello, you\n");
    const MessageText hidden = messageText(MailMessage::parse(alternative("<p>Hello<i hidden>, you")));
    EXPECT_EQ(hidden.texts.size(), 2u);
    // Texts that follow each other are no alternatives.
    const MessageText two = messageText(
        MailMessage::parse("Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n" + plain + "--b\r\n" +
                           plain + "--b\r\nContent-Type: text/plain; name=a.txt\r\n\r\ntext\r\n--b--\r\n"));
    EXPECT_EQ(two.texts.size(), 2u);
    ASSERT_EQ(two.attachments.size(), 1u);
    EXPECT_EQ(two.attachments[0].name, "a.txt");

    const MessageText inert = messageText(MailMessage::parse(
        "Content-Type: text/html\r\n\r\n<a href='https://a\xe2\x80\xae.example'>\x1b[2J</a>"));
    EXPECT_EQ(described(inert.texts.at(0).lines),
              " \xef\xbf\xbd[2J\n>\xef\xbf\xbd[2J=https://a‹U+202E›.example\n");
    EXPECT_TRUE(
        messageText(MailMessage::parse("A: b\r\n\r\n" + std::string(300'000, '\n') + "x")).texts.at(0).isCut);
}

}  // namespace
}  // namespace quillmark
