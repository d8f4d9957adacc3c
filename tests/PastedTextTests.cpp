#include "QuillmarkKit/PastedText.h"

#include <gtest/gtest.h>

#include <string>

#include "QuillmarkKit/Verifier.h"
#include "tests/TestSigner.h"

namespace quillmark {
namespace {

/// A message as a window shows it, with line feeds.
std::string source() {
    std::string message = test::signedMessage(
        "From: a@example.org\r\nSubject: x\r\n y\r\nMessage-ID: <1.2@example.org>\r\n\r\nDear all,\r\n\r\n  "
        "z\r\n",
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
    enum Outcome { certain, asked, asItIs };
    const std::string mail = source();
    const struct {
        std::string text;
        Outcome outcome;
    } rows[] = {
        {mail, certain},
        {" \n\n\t\n" + mail, certain},
        {indented(mail, "    ", ""), certain},
        {"\n \n" + indented(mail, "\t", "\t"), certain},
        {indented(mail, "    ", " "), certain},
        {"Message ID\t<1.2@example.org>\nCreated at:\tMonday\nFrom:\tA <a@example.org>\nDKIM:\t'PASS'\n\n\n" +
             mail,
         certain},
        {"Original message\n\nMessage ID: <1.2@example.org>\nSubject: x\n \n" + mail, certain},
        {indented("Message ID\t<1.2@example.org>\n\n" + mail, "  ", ""), certain},
        // Lines that may be the message, whose text then is somebody else's source.
        {"From: me@example.net\nSubject: look\n\n" + mail, asked},
        {"Look what came:\n\n" + mail, asked},
        {"From: me@example.net\nMIME-Version: 1.0\nSubject: <1.2@example.org>\n\n" + mail, asked},
        {"Message ID <1.3@example.org>\n\n" + mail, asked},
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
        EXPECT_TRUE(row.outcome == certain || pasted.source == row.text);
        if (row.outcome == asItIs) continue;
        EXPECT_EQ(verdictOf(pasted.withoutLinesBefore.value_or(pasted.source)), VerdictKind::verified);
    }
}

}  // namespace
}  // namespace quillmark
