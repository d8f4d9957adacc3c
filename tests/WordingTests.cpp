#include "Wording/Wording.h"

#include <gtest/gtest.h>

#include "WordingSupport.h"

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
              "Signed by d [OK] ‹U+202E›x, unchanged since sent");
    const Verdict vouched{signatureBroken, Tone::caution, "d", "", {"list.example"}};
    EXPECT_NE(explanation({.verdict = vouched}, english).find("list.example"), std::string::npos);
}

TEST(Wording, problemLines) {
    const Refusal unreadable{Refusal::Unreadable{"no\nway"}}, large{Refusal::TooLarge{}},
        none{Refusal::NotAnEmail{}};
    EXPECT_EQ(problemLine(unreadable, "a\nb", english), "“a b” couldn’t be read: no way");
    EXPECT_EQ(problemLine(large, "a", english), "“a” is larger than 50 MB, too large for a single email.");
    EXPECT_EQ(problemLine(none, "a", english),
              "“a” doesn’t look like an email: no From, Received or DKIM-Signature header was found.");
    EXPECT_EQ(problemLine(none, std::nullopt, english),
              "That doesn’t look like an email: no From, Received or DKIM-Signature header was found. Paste "
              "the message’s "
              "full source or its headers.");
    EXPECT_EQ(problemLine(large, std::nullopt, english),
              "That is larger than 50 MB, too large for a single email.");
}

TEST(Wording, addresses) {
    EXPECT_EQ(displayForm({"A\u202E", "a@b\x1B"}), "A‹U+202E› <a@b\uFFFD>");
    EXPECT_EQ(displayForm({std::nullopt, "a@b"}), "a@b");
}

}  // namespace
}  // namespace quillmark
