#include "QuillmarkKit/Checks/Canonicalization.h"

#include "tests/ReferenceCanonicalization.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using enum Canonicalization;
using reference::Kept;

TEST(Canonicalization, parse) {
    const std::pair<const char*, CanonicalizationPair> rows[] = {{"", {simple, simple}},
                                                                 {"Relaxed", {relaxed, simple}},
                                                                 {"simple", {simple, simple}},
                                                                 {"simple/RELAXED", {simple, relaxed}}};
    for (const auto& [value, pair] : rows) EXPECT_EQ(CanonicalizationPair::parse(value), pair) << value;
    EXPECT_EQ(CanonicalizationPair::parse(std::nullopt), (CanonicalizationPair{simple, simple}));
    for (const char* none : {"relaxed/", "/relaxed", "relaxed/relaxed/simple", "relaxed/fast", " relaxed"})
        EXPECT_EQ(CanonicalizationPair::parse(none), std::nullopt) << none;
}

TEST(Canonicalization, header) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"SUBJECT :  Hello\r\n\t World  ", "subject:Hello World"},
        {"A:a\r\nb", "a:ab"},
        {"A:a\r\n\tb", "a:a b"},
        {"A: \t\r\n ", "a:"},
        {" A\t:x", " a:x"},
        {"no colon \t", "no colon \t"},
        {"\xC3\x84: \xC3\x84", "\xC3\x84:\xC3\x84"},
    };
    for (const auto& [raw, relaxedForm] : rows) {
        SCOPED_TRACE(raw);
        Kept relaxedText, simpleText;
        canonicalizeHeader(raw, relaxed, relaxedText);
        canonicalizeHeader(raw, simple, simpleText);
        EXPECT_EQ(relaxedText.text, relaxedForm);
        EXPECT_EQ(simpleText.text, raw);
    }
}

std::string canonical(std::string_view body, Canonicalization canonicalization) {
    Kept kept;
    const auto length = canonicalizeBody(body, canonicalization, kept);
    EXPECT_EQ(length, kept.text.size());
    return kept.text;
}

TEST(Canonicalization, body) {
    const struct {
        std::string_view body, simpleForm, relaxedForm;
    } rows[] = {
        {"", "\r\n", ""},
        {"\r\n\r\n", "\r\n", ""},
        {" \t\r\n\t", " \t\r\n\t\r\n", ""},
        {"a", "a\r\n", "a\r\n"},
        {"  a  b  \r\n", "  a  b  \r\n", " a b\r\n"},
        {"a\r\n \r\nb\r\n\r\n \r\n", "a\r\n \r\nb\r\n\r\n \r\n", "a\r\n\r\nb\r\n"},
        {"a\nb \n\r\n", "a\nb \n\r\n", "a\nb \n\r\n"},  // a bare LF is a byte of its line
        {"a \r\r\n", "a \r\r\n", "a \r\r\n"},
        {"a \rb", "a \rb\r\n", "a \rb\r\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.body);
        EXPECT_EQ(canonical(row.body, simple), row.simpleForm);
        EXPECT_EQ(canonical(row.body, relaxed), row.relaxedForm);
    }
}

/// Text is looked at in blocks: a change counts wherever it lies in them.
TEST(Canonicalization, changesAnywhere) {
    for (const std::string_view change : {" \t", "\t", "  ", " \r\n"}) {
        for (std::size_t at = 0; at < 300; ++at) {
            std::string body(400, 'x');
            body.replace(at, change.size(), change);
            EXPECT_EQ(canonical(body, relaxed), reference::body(body, relaxed)) << at;
        }
    }
}

TEST(Canonicalization, stops) {
    std::stop_source stop;
    stop.request_stop();
    const std::string body(5 << 20, 'x');
    for (const auto canonicalization : {simple, relaxed}) {
        Kept kept;
        canonicalizeBody(body, canonicalization, kept, stop.get_token());
        EXPECT_LT(kept.text.size(), std::size_t{2} << 20);
    }
}

TEST(Canonicalization, emptiedSignature) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"S: a=1; b = abc; bh=xyz", "S: a=1; b =; bh=xyz"},
        {"S: b=abc", "S: b="},
        {"S: b=abc;", "S: b=;"},
        {"S:\r\n\tb\r\n =a\r\n b; c=d", "S:\r\n\tb\r\n =; c=d"},
        {"S: B=x; b=y=z; bb=1", "S: B=; b=; bb=1"},
        {"S: b; ;;", "S: b; ;;"},
        {"b=x", "b=x"},
    };
    for (const auto& [raw, emptied] : rows) EXPECT_EQ(withEmptiedSignature(raw), emptied) << raw;
}

TEST(Canonicalization, signedHeaderData) {
    const auto message = MailMessage::parse(
        "From: top\r\nS: h; b=1\r\nFrom: middle\r\nTo: x\r\nFROM: bottom\r\nS: h; b=1\r\nS: h; b=2\r\n\r\n");
    const HeaderField signature = message.headers()[1];  // the field below is the same byte for byte
    const struct {
        TextList names;
        std::string data;
    } rows[] = {
        {{"from"}, "from:bottom\r\n"},
        {{"From", "to", "FROM", "from", "from"}, "from:bottom\r\nto:x\r\nfrom:middle\r\nfrom:top\r\n"},
        {{"cc", "to", "to"}, "to:x\r\n"},
        {{"s", "s", "s"}, "s:h; b=2\r\n"},
        {{}, ""},
    };
    for (const auto& row : rows) {
        Kept kept;
        addSignedHeaderData(message, row.names, signature, relaxed, kept);
        EXPECT_EQ(kept.text, row.data + "s:h; b=");
    }
}

/// Limits that are known beforehand share one walk, and each gives what a walk of its own would.
TEST(Canonicalization, bodyHashes) {
    std::string body;
    for (int i = 0; i < 300; ++i) body += "line  " + std::to_string(i) + " \r\n" + (i % 7 == 0 ? "\r\n" : "");
    const std::vector<std::uint64_t> limits = {700, 0, 1, 701, 700, 2000, 1'000'000, 3};
    BodyHashes together(body, limits), alone(body);
    for (const auto form : {relaxed, simple}) {
        const std::string text = canonical(body, form);
        const auto found = [&](BodyHashes& hashes, std::optional<std::uint64_t> limit) {
            const auto& hash = hashes.hash(form, HashAlgorithm::sha256, limit);
            EXPECT_EQ(hash.canonicalLength, text.size());
            return hash.digest;
        };
        for (const std::uint64_t limit :
             {700u, 0u, 1u, 701u, 2000u, 1'000'000u, 3u, 5u}) {  // the last expected by nobody
            SCOPED_TRACE(limit);
            const std::string expected = hash(HashAlgorithm::sha256, text.substr(0, limit));
            EXPECT_EQ(found(together, limit), expected);
            EXPECT_EQ(found(alone, limit), expected);
        }
        EXPECT_EQ(found(together, {}), hash(HashAlgorithm::sha256, text));
        EXPECT_EQ(alone.hash(form, HashAlgorithm::sha1, {}).digest, hash(HashAlgorithm::sha1, text));
    }
    EXPECT_EQ(&alone.hash(relaxed, HashAlgorithm::sha256, {}),
              &alone.hash(relaxed, HashAlgorithm::sha256, {}));
}

}  // namespace
}  // namespace quillmark
