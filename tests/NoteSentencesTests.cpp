#include "Wording/NoteSentences.h"

#include <gtest/gtest.h>

#include "WordingSupport.h"

namespace quillmark {
namespace {

TEST(NoteSentences, all) {
    using Note = ReportNote;
    const struct {
        decltype(Note::value) note;
        NoteSection section;
        bool isBeside;
        std::string beginning, german;
    } rows[] = {
        {Note::HeaderEndsEarly{12, 3456}, NoteSection::message, true,
         "The header lines end at line 12, which isn’t one. The 3,456 bytes from there on were read neither",
         "Die Kopfzeilen enden bei Zeile 12, die keine ist. Die 3.456 Bytes"},
        {Note::FromHoldsMore{Note::FromHoldsMore::Kind::part, "a@b", "x\ny"}, NoteSection::message, false,
         "From also holds something that is no address: “x y”. Only a@b was judged.", "„From“ enthält"},
        {Note::FromEmpty{"a@b", "c"}, NoteSection::message, false,
         "From names no address. The Sender line reads “a@b”, the Resent-From line “c”.", "„From“ nennt"},
        {Note::ShownNotSigned{"Subject", "a", "b", 3, 1}, NoteSection::signatures, true,
         "The Subject line that is shown isn’t the one that was signed. Shown: “a”. Signed: “b”. Of the 3 "
         "such lines in the message, only the lowest is signed.",
         "Die Zeile „Subject“, die angezeigt wird"},
        {Note::LineOfSender{"Received-SPF", "192.0.2.1", Note::LineOfSender::Why::belowReceived},
         NoteSection::sendingServer, false, "The sender could have written the Received-SPF line: it stands",
         "Die Zeile „Received-SPF“ kann der Absender"},
        {Note::LineOfSender{"Authentication-Results", "mx", Note::LineOfSender::Why::unknownServer},
         NoteSection::receiverResults, false,
         "The sender could have written the Authentication-Results line: it speaks of “mx”",
         "Die Zeile „Authentication-Results“ kann der Absender"},
        {Note::SigningDomainNoHost{"a b"}, NoteSection::signatures, true, "The signing domain, “a b”",
         "Die signierende Domain „a b“"},
        {Note::SigningDomainPublicSuffix{"co.uk"}, NoteSection::signatures, true,
         "The signing domain, co.uk, is an ending", "Die signierende Domain, co.uk, ist eine Endung"},
        {Note::SignedAfterCheck{"d", january(3)}, NoteSection::signatures, false,
         "The signature by d says it was made on 3 Jan 2026 at 12:00 CET, which is later than this check.",
         "Die Signatur von d wurde nach eigener Angabe am 3. Jan. 2026 um 12:00 Uhr CET"},
        {Note::SignedLongBefore{"d", january(3), january(30)}, NoteSection::signatures, false,
         "The signature by d says it was made on 3 Jan 2026 at 12:00 CET, long before the message arrived on "
         "30 Jan",
         "Die Signatur von d"},
        {Note::QuotedFromLines{FromQuoting::none, 2}, NoteSection::message, false,
         "The mailbox has 2 lines of this message that begin with “>From ”. According to a signature",
         "Im Postfach beginnen 2 Zeilen"},
        {Note::QuotedFromLines{FromQuoting::full, 1}, NoteSection::message, false,
         "The mailbox put “>” before 1 line", "Das Postfach hat „>“ vor 1 Zeile"},
        {Note::AnswerValidated{Note::AnswerValidated::Kind::key, "k._domainkey.d"}, NoteSection::signatures,
         false, "The DNS service says that the key at k._domainkey.d comes", "Der DNS-Dienst sagt"},
        {Note::AnswerValidated{Note::AnswerValidated::Kind::policy, "_dmarc.d"}, NoteSection::policy, false,
         "The DNS service says that the policy at _dmarc.d comes", "Der DNS-Dienst sagt"},
        {Note::AnswerValidated{Note::AnswerValidated::Kind::senderPolicy, "d"}, NoteSection::sendingServer,
         false, "The DNS service says that the SPF record at d comes", "Der DNS-Dienst sagt"},
        {Note::AnswerValidated{Note::AnswerValidated::Kind::forwarderKey, "k._domainkey.d"},
         NoteSection::chain, false, "The DNS service says that a forwarder’s key, at k._domainkey.d,",
         "Der DNS-Dienst sagt"},
        {Note::NewerSignatures{1}, NoteSection::signatures, false,
         "The message also carries 1 signature of a newer kind (DKIM2)", "Die Nachricht trägt außerdem"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.beginning);
        const ReportNote note{row.note};
        EXPECT_TRUE(sentence(note, english).starts_with(row.beginning)) << sentence(note, english);
        EXPECT_TRUE(sentence(note, german).starts_with(row.german)) << sentence(note, german);
        EXPECT_EQ(sectionOf(note), row.section);
        EXPECT_EQ(standsBesideHeadline(note), row.isBeside);
    }
}

}  // namespace
}  // namespace quillmark
