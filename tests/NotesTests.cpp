// Each note through a whole message that earns it, beside messages that nearly do.

#include "QuillmarkKit/Notes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "QuillmarkKit/Verifier.h"
#include "tests/TestSigner.h"

namespace quillmark {
namespace {

using Note = ReportNote;
using Notes = std::vector<ReportNote>;

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");
const std::string minimal = "From: a@example.org\r\nSubject: x\r\n\r\nbody\r\n";

std::string signedBy(std::string_view tags, std::string_view message) {
    return test::signedMessage(message, {"v=1; s=key; " + std::string(tags)}, test::ed25519Key());
}

ProofReport report(std::string_view message, const StaticResolver::Answers& answers) {
    return Verifier(std::make_shared<StaticResolver>(answers)).verify(MailMessage::parse(message), {}, now);
}
ProofReport report(std::string_view message) {
    StaticResolver::Answers answers;
    for (const char* domain : {"example.org", "co.uk", "odd_name.example.org", "example.org."}) {
        answers["key._domainkey." + std::string(domain) + "|TXT"] =
            DNSAnswer::records({test::keyRecord(test::ed25519Key())});
    }
    return report(message, answers);
}

TEST(Notes, validatedAnswersAndNewerSignatures) {
    using Kind = Note::AnswerValidated::Kind;
    StaticResolver::Answers answers = test::published(test::ed25519Key());
    answers["_dmarc.example.org|TXT"] = DNSAnswer::records({"v=DMARC1; p=none"});
    for (auto& [name, answer] : answers) answer.isValidated = true;
    const std::string message = signedBy("d=Example.org; h=from:subject", minimal);
    const ReportNote ofKey{Note::AnswerValidated{Kind::key, "key._domainkey.example.org"}},
        ofPolicy{Note::AnswerValidated{Kind::policy, "_dmarc.example.org"}};
    EXPECT_EQ(report(message, answers).notes, (Notes{ofKey, ofPolicy}));
    EXPECT_EQ(report(test::replaced(message, "body", "BODY"), answers).notes.front(), ofPolicy);
    EXPECT_EQ(report("DKIM2-Signature: i=1\r\ndkim2-signature: i=2\r\n" + message, answers).notes.back(),
              ReportNote{Note::NewerSignatures{2}});
}

TEST(Notes, headerBlockThatEndsEarly) {
    std::string message = signedBy("d=example.org; h=from:subject", minimal);
    EXPECT_EQ(report(message).notes, Notes());
    // What the body was signed for, a stranger can replace: the kind stays good, and the note tells of it.
    message = test::replaced(message, "\r\n\r\nbody\r\n", "\r\nno field\r\n\r\nforged body\r\n");
    const auto forged = report("\xEF\xBB\xBF\r\n" + message);
    EXPECT_EQ(forged.verdict.kind, VerdictKind::verifiedHeadersOnly);
    const std::string before = message.substr(0, message.find("no field"));
    const auto line = std::ranges::count(before, '\n') + 2;  // an empty line was put in front
    EXPECT_EQ(forged.notes, (Notes{{Note::HeaderEndsEarly{line, 25}}}));

    const struct {
        const char* message;
        Notes notes;
    } rows[] = {
        {"From: a@example.org\nno field\nTo: b\n\nx", {{Note::HeaderEndsEarly{2, 20}}}},
        {"From: a@example.org\nno field", {{Note::HeaderEndsEarly{2, 8}}}},
        {"From: a@example.org\nSubject: a\n folded\n\nno field", {}},
        {"no field\nFrom: a@example.org\n", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(report(row.message).notes, row.notes) << row.message;
}

TEST(Notes, whoTheMessageSaysSentIt) {
    using Kind = Note::FromHoldsMore::Kind;
    using Text = std::optional<std::string>;
    const std::string judged = "a@evil.example", routed = "@relay.example,@b.example:a@evil.example";
    const auto more = [](Kind kind, const std::string& address, const std::string& text) {
        return Notes{{Note::FromHoldsMore{kind, address, text}}};
    };
    const auto part = [&](const std::string& text) { return more(Kind::part, judged, text); };
    const auto text = [&](const std::string& address, const std::string& words) {
        return more(Kind::text, address, words);
    };
    const auto none = [](Text sender, Text resent) { return Notes{{Note::FromEmpty{sender, resent}}}; };
    const struct {
        std::string fields;
        Notes notes;
    } rows[] = {
        {"From: Bank <a@evil.example>", {}},
        {"From: \"Bank, Ltd.\" <a@evil.example>,", {}},
        {"From: a@evil.example (Bank)", {}},
        {"From: \"a bank@bank.example\"@evil.example", {}},
        {"From: <a@evil.example> bank@bank.example\r\nSender: c@d.example",
         text(judged, "bank@bank.example")},
        {"From: a@evil.example (Joe) of the Bank", text(judged, "of the Bank")},
        {"From: pay@bank.example a@evil.example",
         text("pay@bank.example a@evil.example", "pay@bank.example")},
        {"From: a@evil.example bank", text("a@evil.example bank", "bank")},
        {"From: =?utf-8?q?B=C3=A4nk?=, a@evil.example", part("Bänk")},
        {"From: The Bank\r\nFrom: a@evil.example", part("The Bank")},
        {"From: pay@bank.example: <a@evil.example>;", part("pay@bank.example")},
        {"From: <" + routed + ">", more(Kind::route, routed, "@relay.example,@b.example")},
        {"From: a@bank.example@evil.example",
         more(Kind::route, "a@bank.example@evil.example", "a@bank.example")},
        // Several senders are a warning sign, and nobody was judged.
        {"From: a@evil.example, b@evil.example, c", {}},
        {"From: " + std::string(199, 'x') + "é, a@evil.example", part(std::string(199, 'x') + "…")},

        {"From: The Bank\r\nSender: a@b.example", none("a@b.example", {})},
        {"From: <>\r\nResent-From: B <a@b.example>", none({}, "B <a@b.example>")},
        {"Sender: a@b.example\r\nResent-From: c@d.example", none("a@b.example", "c@d.example")},
        {"From: The Bank\r\nSender:", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(report(row.fields + "\r\n\r\n").notes, row.notes) << row.fields;
}

TEST(Notes, whatIsShownButNotSigned) {
    const auto shown = [](const std::string& field, const std::string& text, const std::string& whatIsSigned,
                          int count, int covered) {
        return Note{Note::ShownNotSigned{field, text, whatIsSigned, count, covered}};
    };
    const std::string today = "Sat, 21 Nov 2026 10:00:00 +0000", sent = "Fri, 20 Nov 2026 10:00:00 +0000";
    const struct {
        std::string signs, added, message;
        Notes notes;
    } rows[] = {
        {"from:subject", "Subject: forged\r\n", "Subject: =?utf-8?q?true?=\r\n",
         Notes{shown("Subject", "forged", "true", 2, 1)}},
        {"from:SUBJECT:subject", "", "Subject: 1\r\nSubject: 2\r\n", {}},
        {"from:subject:subject", "Subject: 0\r\n", "Subject: 1\r\nSubject: 2\r\n",
         Notes{shown("Subject", "0", "1", 3, 2)}},
        {"from:subject", "Subject: a\r\n b\r\n", "Subject: a b\r\n", {}},
        // Of two additions only the upper one is shown.
        {"from:subject", "Subject: true\r\nSubject: forged\r\n", "Subject: true\r\n", {}},
        // Not signed at all: `unsignedImportant` says so.
        {"from", "Subject: forged\r\n", "Subject: true\r\n", {}},
        {"from:date", "Date: " + today + "\r\n", "Date: " + sent + "\r\n",
         Notes{shown("Date", today, sent, 2, 1)}},
        // Every address is shown.
        {"from:to:cc:reply-to", "Reply-To: b@c\r\nReply-To: evil@c\r\nCc: evil@c\r\nTo: evil@c\r\n",
         "To: b@c\r\nCc: b@c\r\nReply-To: b@c\r\n",
         Notes{shown("To", "evil@c", "b@c", 2, 1), shown("Cc", "evil@c", "b@c", 2, 1),
               shown("Reply-To", "evil@c", "b@c", 3, 1)}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.added + row.message);
        const auto checked = report(row.added + signedBy("d=example.org; h=" + row.signs,
                                                         row.message + minimal.substr(0, 21) + "\r\nx"));
        EXPECT_EQ(checked.verdict.kind, VerdictKind::verified);
        EXPECT_EQ(checked.notes, row.notes);
    }
    // A signature that no longer holds covers nothing.
    EXPECT_EQ(report("Subject: y\r\n" + signedBy("d=example.org; h=from:subject", minimal) + "z").notes,
              (Notes{{Note::SignedLinesHold{0, "example.org", true, {"From"}}}}));
}

TEST(Notes, linesThatTheSenderCouldHaveWritten) {
    using Why = Note::LineOfSender::Why;
    const std::string internal = "Received: from mx1 ([10.0.0.1]) by store.mx.example.net; x\r\n",
                      border = "Received: from out.example.org ([192.0.2.1]) by mx1.example.net; x\r\n",
                      earlier = "Received: from pc ([198.51.100.7]) by out.example.org; x\r\n",
                      results = "Authentication-Results: mx.Example.net; dkim=pass\r\n",
                      forgedResults = "Authentication-Results: mx.bank.example; dkim=pass\r\n",
                      spf = "Received-SPF: pass client-ip=192.0.2.1\r\n",
                      forgedSPF = "Received-SPF: pass client-ip=203.0.113.9\r\n";
    const auto spfNote = [](Why why, const char* client) {
        return Note{Note::LineOfSender{"Received-SPF", client, why}};
    };
    const auto resultsNote = [](Why why, const char* server) {
        return Note{Note::LineOfSender{"Authentication-Results", server, why}};
    };
    const struct {
        std::string fields;
        Notes notes;
    } rows[] = {
        // As receivers write them: above the Received field of their border, or right below it.
        {results + spf + border + earlier, {}},
        {internal + results + spf + border + earlier, {}},
        {internal + border + spf + results + earlier, {}},
        {results + spf + internal, {}},
        {"Authentication-Results: spf=pass smtp.mailfrom=a\r\n" + forgedResults + border, {}},
        {forgedResults + forgedSPF + border, {}},  // strange, but nothing that a sender could write
        // As senders do.
        {border + forgedSPF + forgedResults,
         {spfNote(Why::unknownServer, "203.0.113.9"), resultsNote(Why::unknownServer, "mx.bank.example")}},
        {internal + border + earlier + spf + results,
         {spfNote(Why::belowReceived, "192.0.2.1"), resultsNote(Why::belowReceived, "mx.Example.net")}},
        {internal + earlier + border + results, {resultsNote(Why::belowReceived, "mx.Example.net")}},
        {border + "Authentication-Results: dkim=pass\r\n", {resultsNote(Why::unknownServer, "dkim=pass")}},
        {"Received: by mx.example.net; x\r\nReceived: from a ([10.0.0.1]) by mx.bank.example; x\r\n" +
             forgedResults,
         {resultsNote(Why::belowReceived, "mx.bank.example")}},
        {results, {resultsNote(Why::unknownServer, "mx.Example.net")}},
        {spf, {spfNote(Why::unknownServer, "192.0.2.1")}},
        // No address was taken from this one.
        {border + "Received-SPF: pass\r\n", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(report(row.fields + minimal).notes, row.notes) << row.fields;
}

TEST(Notes, whoSignedAndWhen) {
    const auto at = [](const std::string& time) { return *parsedRFC3339("2026-11-" + time + "Z"); };
    const auto signedAt = [&](const std::string& time) {
        return "d=example.org; t=" + std::to_string(at(time).time_since_epoch().count() / 1000);
    };
    const Note early{Note::SignedAfterCheck{"example.org", at("21T10:10:01")}},
        late{Note::SignedLongBefore{"example.org", at("14T08:59:59"), at("21T09:00:00")}};
    const std::string odd = "odd_name.example.org", arrived = "21 Nov 2026 09:00:00 +0000";
    const struct {
        std::string tags, received;
        Notes notes;
    } rows[] = {
        {"d=example.org", "", {}},
        {"d=co.uk", "", {{Note::SigningDomainPublicSuffix{"co.uk"}}}},
        {"d=" + odd, "", {{Note::SigningDomainNoHost{odd}}}},
        {"d=example.org.", "", {{Note::SigningDomainNoHost{"example.org."}}}},
        {signedAt("21T10:10:00"), "", {}},
        {signedAt("21T10:10:01"), "", {early}},
        {signedAt("14T09:00:00"), arrived, {}},
        {signedAt("14T08:59:59"), arrived, {late}},
        {"d=example.org; t=1", "no date", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tags);
        const std::string hop =
            row.received.empty() ? "" : "Received: by mx.example.net; " + row.received + "\r\n";
        const auto checked = report(hop + signedBy(row.tags + "; h=from:subject", minimal));
        EXPECT_EQ(checked.dkim.at(0).status, DKIMResult::Status::pass);
        EXPECT_EQ(checked.notes, row.notes);
    }
}

}  // namespace
}  // namespace quillmark
