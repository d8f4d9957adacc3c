#include "Wording/Signatures.h"

#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Status = DKIMResult::Status;

TEST(Signatures, sentences) {
    DKIMResult result{.status = Status::pass, .domain = "xn--mnchen-3ya.example"};
    EXPECT_EQ(sentence(result, english),
              "xn--mnchen-3ya.example (münchen.example) signed these header lines and they haven’t changed. "
              "The body wasn’t there to check.");
    result.bodyChecked = true;
    EXPECT_EQ(tone(result), Tone::good);
    result = {.status = Status::keyTooWeak, .domain = "d", .keyBits = 512};
    EXPECT_EQ(sentence(result, english),
              "The signature fits, but the key is so short (512 bits) that others could have made it.");
    result = {.status = Status::keyNotPublished, .domain = "b\u00ADank.example", .selector = "s"};
    EXPECT_EQ(
        sentence(result, english),
        "The key would stand at s._domainkey.b‹U+00AD›ank.example, which is no name that DNS can hold. So "
        "nobody could be asked for it, and the signature can be neither confirmed nor refuted.");
    result = {.status = Status::bodyChanged, .detail = "l=9 is longer than the body", .domain = "d"};
    EXPECT_EQ(sentence(result, english),
              "d says it signed more body than this message has. Part of the body is missing.");
    result = {.status = Status::malformed, .detail = "tag a\n[OK]= appears twice"};
    EXPECT_EQ(sentence(result, german), "Das ist keine gültige Signatur: \"a [OK]\"= kommt zweimal vor.");
}

TEST(Signatures, remarks) {
    const auto caution = Tone::caution;
    const struct {
        DKIMResult result;
        std::vector<Remark> remarks;
    } rows[] = {
        {{.status = Status::pass, .bodyLength = 40'000, .unsignedBodyBytes = 10'000},
         {{caution,
           "The signature covers the body only up to byte 40,000 (80%). The 10,000 bytes "
           "after it could have been added by anyone."}}},
        {{.status = Status::pass, .bodyLength = 0, .unsignedBodyBytes = 1},
         {{caution, "The signature covers nothing of the body. Its only byte could be anyone’s."}}},
        {{.status = Status::pass, .bodyLength = 5, .unsignedBodyBytes = 0}, {}},
        {{.status = Status::pass,
          .algorithm = "rsa-sha1",
          .signedHeaders = {"from", "subject"},
          .unsignedImportant = {"Subject", "To", "Cc"}},
         {{caution,
           "The message has more Subject lines than the signature covers; the one that is shown may "
           "have been added later."},
          {caution, "Not covered by the signature: To, Cc. These lines could have been changed or added."},
          {caution, "The signature uses SHA-1, an old method that is no longer considered safe."}}},
        {{.status = Status::pass, .domain = "d", .identity = "x@d", .testing = true},
         {{caution, "d marks this key as being tested; it asks nobody to rely on it."},
          {{}, "Signed for x@d."}}},
        {{.status = Status::pass,
          .domain = "D",
          .identity = "@d",
          .signedAt = january(1),
          .expiresAt = january(8),
          .expired = true},
         {{caution,
           "The signature was meant to be valid until 8 Jan 2026 at 12:00 CET, 7 days after signing; "
           "that has passed."},
          {{}, "Says it was signed on 1 Jan 2026 at 12:00 CET."}}},
        {{.status = Status::keyNotPublished, .signedAt = january(29), .unsignedImportant = {"To"}},
         {{caution, "Says it was signed on 29 Jan 2026 at 12:00 CET, which is later than this check."}}},
        {{.status = Status::malformed, .signedAt = january(1)}, {}},
    };
    for (const auto& row : rows) EXPECT_EQ(remarks(row.result, january(20), english), row.remarks);
}

}  // namespace
}  // namespace quillmark
