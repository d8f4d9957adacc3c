#include "Wording/NoteSentences.h"

#include <gtest/gtest.h>

#include <set>

#include "WordingSupport.h"

namespace quillmark {
namespace {

TEST(NoteSentences, all) {
    using Note = ReportNote;
    using enum NoteSection;
    using Why = Note::LineOfSender::Why;
    using Kind = Note::AnswerValidated::Kind;
    const struct {
        decltype(Note::value) note;
        NoteSection section;
        bool isBeside;
    } rows[] = {
        {Note::HeaderEndsEarly{12, 3456}, message, true},
        {Note::FromHoldsMore{Note::FromHoldsMore::Kind::part, "a@b", "x\ny"}, message, false},
        {Note::FromEmpty{"a@b", "c"}, message, false},
        {Note::ShownNotSigned{"Subject", "a", "b", 3, 1}, signatures, true},
        {Note::LineOfSender{"Received-SPF", "192.0.2.1", Why::belowReceived}, sendingServer, false},
        {Note::LineOfSender{"Authentication-Results", "mx", Why::unknownServer}, receiverResults, false},
        {Note::SigningDomainNoHost{"a b"}, signatures, true},
        {Note::SigningDomainPublicSuffix{"co.uk"}, signatures, true},
        {Note::SignedAfterCheck{"d", january(3)}, signatures, false},
        {Note::SignedLongBefore{"d", january(3), january(30)}, signatures, false},
        {Note::QuotedFromLines{FromQuoting::none, 2}, message, false},
        {Note::QuotedFromLines{FromQuoting::full, 2}, message, false},
        {Note::AnswerValidated{Kind::key, "k._domainkey.d"}, signatures, false},
        {Note::AnswerValidated{Kind::policy, "_dmarc.d"}, policy, false},
        {Note::AnswerValidated{Kind::senderPolicy, "d"}, sendingServer, false},
        {Note::AnswerValidated{Kind::forwarderKey, "k._domainkey.d"}, chain, false},
        {Note::NewerSignatures{1}, signatures, false},
        {Note::Damage{}, message, true},
        {Note::LinesBeforeDropped{3, "x\ny"}, message, true},
        {UnknownCase{"later", "{}"}, message, true},
    };
    std::set<std::string> sentences;
    for (const auto& row : rows) {
        const ReportNote note{row.note};
        for (const Reader& reader : {english, german}) sentences.insert(sentence(note, reader));
        EXPECT_EQ(sectionOf(note), row.section) << sentence(note, english);
        EXPECT_EQ(standsBesideHeadline(note, Tone::bad), row.isBeside) << sentence(note, english);
    }
    EXPECT_FALSE(standsBesideHeadline(ReportNote{Note::Damage{}}, Tone::good));
    EXPECT_EQ(sentences.size(), 2 * std::size(rows));
    // What goes where in a sentence.
    const auto begins = [&](std::size_t row, const Reader& reader, std::string_view text) {
        EXPECT_TRUE(sentence(ReportNote{rows[row].note}, reader).starts_with(text)) << text;
    };
    begins(0, german, "Die Kopfzeilen enden bei Zeile 12, die keine ist. Die 3.456 Bytes");
    begins(1, english, "From also holds something that is no address: “x y”. Only a@b was judged.");
    begins(2, english, "From names no address. The Sender line reads “a@b”, the Resent-From line “c”.");
    begins(3, english,
           "The Subject line that is shown isn’t the one that was signed. Shown: “a”. Signed: “b”. Of the 3");
    begins(4, english, "The sender could have written the Received-SPF line: it stands");
    begins(5, english, "The sender could have written the Authentication-Results line: it speaks of “mx”");
    begins(9, english,
           "The signature by d says it was made on 3 Jan 2026 at 12:00 CET, long before the message arrived "
           "on 30");
    begins(10, english,
           "The mailbox has 2 lines of this message that begin with “>From ”. According to a signature");
    begins(10, german, "Im Postfach beginnen 2 Zeilen");
    begins(18, english,
           "3 lines before the message were taken for a summary of it and left out. The first reads “x y”.");
}

}  // namespace
}  // namespace quillmark
