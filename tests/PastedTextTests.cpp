#include "QuillmarkKit/Intake/PastedText.h"

#include "QuillmarkKit/Verifier.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

/// A message as a window shows it, with line feeds.
std::string source() {
    std::string message = test::signedMessage(
        "From: A <a@example.org>\r\nMessage-ID: <1.2@example.org>\r\nSubject: x\r\n "
        "=?UTF-8?Q?=C3=A4?=\r\nDate: Mon, 5 Jan 2026 10:12:00 "
        "+0100\r\n\r\nDear all,\r\n\r\n  z\r\n",
        {.canonicalization = "simple/simple"}, test::ed25519Key());
    std::erase(message, '\r');
    return message;
}

std::string indented(const std::string& text, const std::string& by, const std::string& emptyLine) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const auto end = text.find('\n', at) + 1;
        result += (end == at + 1 ? emptyLine : by) + text.substr(at, end - at);
        at = end;
    }
    return result;
}

VerdictKind verdictOf(const std::string& text) {
    const auto resolver = std::make_shared<StaticResolver>(test::published(test::ed25519Key()));
    return Verifier(resolver).verify(MailMessage::parse(text, ParseMode::lenient), {}, Date()).verdict.kind;
}

TEST(PastedText, arrives) {
    enum Outcome { certain, dropped, asked, asItIs };
    const std::string mail = source();
    const std::string summary =
        "From: A <a@example.org>\nSubject: x ä\nDate: Mon, 5 Jan 2026 10:12:00 +0100\n";
    const struct {
        std::string text;
        Outcome outcome;
    } rows[] = {
        {mail, certain},
        {" \n\n\t\n" + mail, certain},
        {indented(mail, "    ", ""), certain},
        {"\n \n" + indented(mail, "\t", "\t"), certain},
        {indented(mail, "    ", " "), certain},
        {summary + "\n" + mail, dropped},
        {indented("From: a@example.org\nDate: 5 Jan 2026 09:12 +0000\nTo: b\n c\nSubject: x ä\n \n\n" + mail,
                  "  ", ""),
         dropped},
        {"Look what came:\n" + mail, dropped},
        {"\xEF\xBB\xBF" + mail, certain},
        {"\xEF\xBB\xBF" + indented(mail, "  ", ""), certain},
        {"\xEF\xBB\xBF" + summary + "\n" + mail, dropped},
        {"From a@b Mon Jan  5 10:12:00 2026\n" + mail, certain},
        {"From a@b Mon Jan  5 10:12:00 2026\n X: y\n" + mail, certain},
        // Lines that may be the message, whose text then is somebody else's source.
        {test::replaced(summary, "x ä", "Pay") + "\n" + mail, asked},
        {test::replaced(summary, "A <", "B <") + "\n" + mail, asked},
        {test::replaced(summary, "org>", "org> pay c@example.net") + "\n" + mail, asked},
        {test::replaced(summary, "10:12", "10:13") + "\n" + mail, asked},
        {test::replaced(summary, "Date", "Sent") + "\n" + mail, asked},
        {summary + "Subject: Pay\n\n" + mail, asked},
        {summary + "MIME-Version: 1.0\n\n" + mail, asked},
        {summary + "Pay\n\n" + mail, asked},
        {"Pay\n" + summary + "\n" + mail, asked},
        {"Pay\n\n" + summary + "\n" + mail, asked},
        {summary + "\nPay\n" + mail, asked},
        {summary + "\nPay\n\n" + mail, asked},
        {"From: me@example.net\nSubject: look\nIn-Reply-To: <1.2@example.org>\n\n" + mail, asked},
        {"Look what came:\n\n" + mail, asked},
        // A message that is complete by itself is never taken for a summary.
        {"Received: from x by y\nFrom: me@example.net\n\n" + mail, asItIs},
        {"From: me@example.net\n  To: folded\n\ntext\n", asItIs},
        {"  Subject: folded\n  and on\n", asItIs},
        {"", asItIs},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const PastedText pasted = pastedText(row.text);
        EXPECT_EQ(pasted.withoutLinesBefore.has_value(), row.outcome == asked);
        EXPECT_TRUE(row.outcome <= dropped || pasted.source == row.text);
        EXPECT_EQ(pasted.dropped.has_value(), row.outcome == dropped);
        if (row.outcome == asItIs) continue;
        EXPECT_EQ(verdictOf(pasted.withoutLinesBefore.value_or(pasted.source)), VerdictKind::verified);
    }
    const PastedText pasted = pastedText(summary + "\n" + mail);
    EXPECT_EQ(pasted.dropped, (DroppedLines{3, "From: A <a@example.org>"}));
}

}  // namespace
}  // namespace quillmark
