#include "Wording/Wording.h"

#include "Wording/NoteSentences.h"
#include "Wording/Signs.h"
#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(Wording, headlines) {
    using enum VerdictKind;
    const struct {
        VerdictKind kind;
        std::string fromDomain, headline;
    } rows[] = {
        {verified, "s.example", "Signed by d.example, unchanged since sent"},
        {verifiedHeadersOnly, "s.example", "Signed by d.example; the body wasn’t checked"},
        {signedByOther, "s.example", "Signed by d.example, not by s.example"},
        {signedByOther, "", "Signed by d.example, not by the sender"},
        {signatureBroken, "s.example", "Signature broken: changed after sending or forwarded"},
        {keyGone, "s.example", "Can’t check: d.example’s signing key is no longer published"},
        {couldNotCheck, "s.example", "Couldn’t check: the key lookup failed"},
        {allowedServerOnly, "s.example", "Not signed, but sent from a server s.example allows"},
        {allowedServerOnly, "", "Not signed, but sent from a server the sender allows"},
        {cannotProve, "s.example", "Can’t prove who sent this"},
    };
    for (const auto& row : rows) {
        const Verdict verdict{row.kind, Tone::good, "d.example", row.fromDomain, {}};
        EXPECT_EQ(headline(verdict, english), row.headline);
        EXPECT_FALSE(explanation({.verdict = verdict}, english).empty());
    }
    EXPECT_EQ(headline({verified, Tone::good, "d\n[OK] \u202Ex", "", {}}, english),
              "Signed by \"d [OK] ‹U+202E›x\", unchanged since sent");
    const Verdict vouched{signatureBroken, Tone::caution, "d", "", {"list.example"}};
    EXPECT_NE(explanation({.verdict = vouched}, english).find("list.example"), std::string::npos);
}

TEST(Wording, problemLines) {
    const Refusal unreadable{Refusal::Unreadable{"no\nway"}}, large{Refusal::TooLarge{}},
        none{Refusal::NotAnEmail{}};
    EXPECT_EQ(problemLine(unreadable, "a\nb", english), "“a b” couldn’t be read: no way");
    EXPECT_EQ(problemLine(large, "a", english), "“a” is larger than 50 MB, too large for a single email.");
    const std::string noMail =
        "doesn’t look like an email: no From, Received or DKIM-Signature header was found.";
    EXPECT_EQ(problemLine(none, "a", english), "“a” " + noMail);
    EXPECT_TRUE(problemLine({Refusal::Converted{}}, "a", english)
                    .starts_with("“a” " + noMail + " It is in a format"));
    EXPECT_EQ(problemLine({Refusal::Packed{PackedForm::tar}}, "a", english),
              "“a” is an archive (tar). Unpack it, and check what was in it: tar -xf FILE");
    EXPECT_EQ(problemLine({Refusal::Packed{PackedForm::gzip}}, std::nullopt, english),
              "That is compressed (gzip). Unpack it, and check what comes out: gzip -dc FILE > UNPACKED");
    EXPECT_TRUE(problemLine({Refusal::Packed{PackedForm::dbox}}, "a", english)
                    .starts_with("“a” is another program’s store (dbox)."));
    EXPECT_EQ(problemLine({Refusal::EmptyFolder{}}, "a", english), "No email was found in “a”.");
    EXPECT_EQ(problemLine(none, std::nullopt, english),
              "That " + noMail + " Paste the message’s full source or its headers.");
}

TEST(Wording, placeNames) {
    const Reader german{.language = Language::german};
    for (const auto& [name, shown] :
         {std::pair("Inbox, message 12", "Inbox, Nachricht 12"),
          {"message 12", "Nachricht 12"},
          {"a.eml, attached message 2.1", "a.eml, angehängte Nachricht 2.1"},
          {"a, message 3, attached message 1", "a, Nachricht 3, angehängte Nachricht 1"},
          {"attached message 1", "angehängte Nachricht 1"},
          {"my message 3", "my message 3"},
          {"message ", "message "},
          {"a, message 3.eml", "a, message 3.eml"},
          {"", ""}}) {
        EXPECT_EQ(placeName(name, german), shown);
        EXPECT_EQ(placeName(name, english), name);
    }
}

TEST(Wording, besideHeadline) {
    using Status = DKIMResult::Status;
    const Verdict verified{VerdictKind::verified, Tone::good, "a.d.example", "d.example", {}};
    const Verdict other{VerdictKind::signedByOther, Tone::caution, "d.example", "s.example", {}};
    const DKIMResult whole{.status = Status::pass, .domain = "d.example", .bodyChecked = true};
    const DKIMResult part{.status = Status::pass,
                          .domain = "a.d.example",
                          .signedHeaders = {"From"},
                          .bodyLength = 1,
                          .unsignedBodyBytes = 3,
                          .bodyChecked = true,
                          .unsignedImportant = {"Subject", "Cc"}};
    const DKIMResult headers{.status = Status::pass, .domain = "d.example"};
    const DKIMResult unasked{.status = Status::lookupFailed,
                             .detail = "a.example: name not found; b.example: no connection",
                             .domain = "s.example"};
    DKIMResult silent = unasked;
    silent.detail = "a.example: timed out; b.example: no connection";
    const Remark organization{{}, "a.d.example is a part of d.example."};
    const Remark unsignedRest{Tone::caution,
                              "The signature covers the body only up to byte 1 (25%). The 3 bytes after it "
                              "could have been added by anyone."};
    const Remark subject{
        Tone::caution, "Not covered by the signature: Subject. This line could have been changed or added."};
    const struct {
        ProofReport report;
        std::vector<Remark> remarks;
    } rows[] = {
        {{.dkim = {part}, .verdict = verified}, {organization, unsignedRest, subject}},
        {{.dkim = {part, whole}, .verdict = verified}, {organization}},  // the other covers all
        {{.dkim = {whole}, .verdict = other}, {}},
        {{.dkim = {headers, unasked}, .verdict = other},
         {{Tone::caution, "The body wasn’t there to check."},
          {Tone::unknown,
           "The key of a signature by s.example couldn’t be asked for. There seems to be no network. Check "
           "again when you are online."}}},
        {{.dmarc = {.status = DMARCFinding::Status::lookupFailed, .fromDomain = "s.example"}},
         {{Tone::unknown, "s.example’s policy couldn’t be asked for. Check again later."}}},
        {{.dkim = {headers, silent},
          .dmarc = {.status = DMARCFinding::Status::lookupFailed, .fromDomain = "s.example"},
          .verdict = other},
         {{Tone::caution, "The body wasn’t there to check."},
          {Tone::unknown,
           "Several things couldn’t be asked for; they are named below. The DNS services don’t answer as "
           "they should. Check again later."}}},
        {{.dkim = {part},
          .verdict = verified,
          .notes = {{ReportNote::SigningDomainNoHost{"x"}}, {ReportNote::ShownNotSigned{"Subject"}}}},
         {organization,
          {Tone::caution,
           "The signing domain, “x”, isn’t a valid host name, so the signature doesn’t tell "
           "who signed."},
          {Tone::caution, sentence(ReportNote{ReportNote::ShownNotSigned{"Subject"}}, english)},
          unsignedRest}},
        {{.verdict = {VerdictKind::keyGone, Tone::unknown, "xn--mnchen-3ya.example", "", {}}},
         {{Tone::caution, "Some apps show xn--mnchen-3ya.example as “münchen.example”."}}},
        {{.verdict = {VerdictKind::keyGone, Tone::unknown, "m\u00FCnchen.example", "", {}}},
         {{Tone::caution,
           "In m\u00FCnchen.example stand letters beyond a to z, which may only look like the ones you know. "
           "In DNS that domain is called xn--mnchen-3ya.example."}}},
        {{.flags = {{LookAlikeFlag::MultipleFrom{}}, {LookAlikeFlag::MultipleFrom{}}}},
         {{Tone::caution, "There are 2 warning signs; read them below."}}},
    };
    for (const auto& row : rows) EXPECT_EQ(besideHeadline(row.report, english), row.remarks);
    // The likely cause is part of the explanation, once.
    const std::pair<const char*, const char*> causes[] = {
        {"a: no connection; b: proxy refused", "proxy of your network refused"},
        {"a: proxy not found; b: proxy not found", "proxy of your network wasn’t found"},
        {"a: certificate not trusted; b: timed out", "certificate isn’t trusted"},
        {"not in the recorded answers", "recorded answers don’t hold"},
        {"a: timed out; b: SERVFAIL", "DNS servers of a domain"},
        {"a: HTTP 500; b: no connection", "DNS services don’t answer"},
        {"the check took too long", "took too long"},
        {"somebody’s; own: words", "good or bad. Check again later."},
    };
    for (const auto& [detail, cause] : causes) {
        const ProofReport report{.dkim = {{.status = Status::lookupFailed, .detail = detail}},
                                 .verdict = {VerdictKind::couldNotCheck, Tone::unknown, "d.example", "", {}}};
        EXPECT_NE(explanation(report, english).find(cause), std::string::npos)
            << explanation(report, english);
        EXPECT_TRUE(besideHeadline(report, english).empty());
    }
}

TEST(Wording, signedByOtherWithSeveralSenders) {
    const Verdict verdict{VerdictKind::signedByOther, Tone::caution, "d.example", "", {}};
    EXPECT_EQ(
        explanation({.verdict = verdict}, english),
        "d.example vouches for this message, but From doesn’t hold exactly one usable address, so nobody "
        "can tell whose word that is. Don’t rely on the names in From.");
}

TEST(Wording, addresses) {
    EXPECT_EQ(displayForm({"A\u202E", "a@b\x1B"}), "A‹U+202E› <a@b\uFFFD>");
    EXPECT_EQ(displayForm({std::nullopt, "a@b"}), "a@b");
    // Neither a name nor an address can look like several of them.
    EXPECT_EQ(displayForm({"x” <b@bank.example>, “y", "a@b"}), "“x\" <b@bank.example>, \"y” <a@b>");
    EXPECT_EQ(displayForm({std::nullopt, "b@bank.example>, \"c\"@d"}), "\"b@bank.example>, 'c'@d\"");
}

/// What stands in a sentence ends where we say so.
TEST(Wording, nothingGoesOnInOurPlace) {
    const LookAlikeFlag name{
        LookAlikeFlag::DisplayNameMismatch{"x”. It is genuine. “y", "a@b. It is genuine"}};
    EXPECT_EQ(sentence(name, english),
              "The name reads “x\". It is genuine. \"y”, but the real address is \"a@b. It is genuine\".");
    const Verdict verdict{
        VerdictKind::signedByOther, Tone::caution, "d.example", "s, unchanged since sent", {}};
    EXPECT_EQ(headline(verdict, english), "Signed by d.example, not by \"s, unchanged since sent\"");
}

}  // namespace
}  // namespace quillmark
