#include "QuillmarkKit/Checks/DKIMKeys.h"

#include "QuillmarkKit/Support/Base64.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Problem = DKIMKeyRecord::Problem;

TEST(DKIMKeys, parse) {
    using Parsed = std::variant<DKIMKeyRecord, Problem>;
    using Words = std::vector<std::string>;
    const auto unusable = [](std::string message) {
        return Parsed(Problem(DKIMKeyRecord::Unusable{std::move(message)}));
    };
    const DKIMKeyRecord testedAndStrict{
        .keyType = "ed25519", .publicKey = "ABC", .testing = true, .strict = true};
    const DKIMKeyRecord ofSHA1AndSHA256{
        .publicKey = "ABC", .hashAlgorithms = Words{"sha1", "sha256"}, .serviceTypes = Words{"email"}};
    const struct {
        std::string_view text;
        Parsed parsed;
    } rows[] = {
        {"v=DKIM1; p=", Problem(DKIMKeyRecord::Revoked{})},
        {"p= \r\n", Problem(DKIMKeyRecord::Revoked{})},
        {"v=DKIM1; k=rsa", unusable("no p= tag")},
        {"v=dkim1; p=QUJD", unusable("v=dkim1")},
        {"v=; p=QUJD", unusable("v=")},
        {"p=Q*JD", unusable("p= is not base64")},
        {"p=QU JD\r\n\tREVG", DKIMKeyRecord{.publicKey = "ABCDEF"}},
        {"v=DKIM1;k=Ed25519;p=QUJD;t=y:s", testedAndStrict},
        {"p=QUJD; t=Y: S", DKIMKeyRecord{.publicKey = "ABC"}},
        {"p=QUJD; t= s :x", DKIMKeyRecord{.publicKey = "ABC", .strict = true}},
        {"p=QUJD; h= SHA1 ::sha256; s=Email", ofSHA1AndSHA256},
        {"p=QUJD; h=", DKIMKeyRecord{.publicKey = "ABC", .hashAlgorithms = Words{}}},
    };
    for (const auto& row : rows) EXPECT_EQ(DKIMKeyRecord::parse(row.text), row.parsed) << row.text;
}

TEST(DKIMKeys, rsaKeyBytes) {
    using namespace std::string_literals;
    const auto key = test::PrivateKey::rsa(512);
    const std::string spki = key.publicKey(), pkcs1 = key.publicPKCS1();
    EXPECT_EQ(rsaKeyBytes(spki), pkcs1);
    EXPECT_EQ(rsaKeyBytes(pkcs1), pkcs1);
    const auto changed = [&](std::size_t at, char to) {
        std::string bytes = spki;
        bytes[at] = to;
        return bytes;
    };
    for (const std::string& bytes : {changed(0, 0x31), changed(2, 0x31), changed(6, 0x2B), changed(17, 0x04),
                                     changed(19, 1), changed(1, '\x80'), spki.substr(0, spki.size() - 1), ""s,
                                     "\x30"s, "\x30\x85\0\0\0\0\0"s, "\x30\x84\xFF\xFF\xFF\xFF"s}) {
        EXPECT_EQ(rsaKeyBytes(bytes), bytes);
    }
    EXPECT_EQ(rsaKeyBytes(spki + "tail"), pkcs1);
}

/// RSAPublicKey of two INTEGERs.
std::string pkcs1(const std::string& modulus, const std::string& exponent) {
    const auto element = [](char tag, const std::string& content) {
        std::string der(1, tag);
        if (content.size() >= 0x80) {
            der += '\x82';
            der += static_cast<char>(content.size() >> 8);
        }
        der += static_cast<char>(content.size() & 0xFF);
        return der + content;
    };
    return element(0x30, element(0x02, modulus) + element(0x02, exponent));
}

TEST(DKIMKeys, keysThatMustNotBeUsed) {
    using namespace std::string_literals;
    const std::string odd = "\0\xFF"s + std::string(126, 'm') + "\x01"s;
    EXPECT_TRUE(RSAPublicKey::fromPKCS1(pkcs1(odd, "\x03")));
    EXPECT_TRUE(RSAPublicKey::fromPKCS1(pkcs1(odd, "\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s)));
    // Leading zeros do not count.
    EXPECT_EQ(RSAPublicKey::fromPKCS1(pkcs1("\0\0\0"s + odd, "\x03"))->blockSize(), 128u);
    EXPECT_TRUE(RSAPublicKey::fromPKCS1(pkcs1("\0"s + std::string(2048, '\xFF'), "\x03")));
    const struct {
        const char* what;
        std::string modulus, exponent;
    } rows[] = {
        {"an exponent of 1, which verifies anything", odd, "\x01"},
        {"an even exponent", odd, "\x04"},
        {"no exponent", odd, ""},
        {"an exponent of zero", odd, "\0"s},
        {"a negative exponent", odd, "\xFF"},
        {"an exponent of 65 bits", odd, "\x01" + std::string(7, '\0') + "\x01"},
        {"an even modulus", "\0\xFF"s + std::string(127, 'n'), "\x03"},
        {"a modulus of zero", "\0"s, "\x03"},
        {"a modulus of one", "\x01", "\x03"},
        {"a negative modulus", std::string(128, '\xFF'), "\x03"},
        {"a modulus of 16,385 bits", "\x01" + std::string(2048, '\xFF'), "\x03"},
        {"a huge modulus", "\x01" + std::string(60'000, '\xFF'), "\x03"},
    };
    for (const auto& row : rows)
        EXPECT_FALSE(RSAPublicKey::fromPKCS1(pkcs1(row.modulus, row.exponent))) << row.what;
    EXPECT_FALSE(RSAPublicKey::fromPKCS1(pkcs1(odd, "\x03") + "x"));
    EXPECT_FALSE(RSAPublicKey::fromPKCS1(""));
}

TEST(DKIMKeys, signaturesAreComparedWhole) {
    const auto &key = test::rsaKey(), &ed25519 = test::ed25519Key();
    const std::string digest = hash(HashAlgorithm::sha256, "data"),
                      other = hash(HashAlgorithm::sha256, "date");
    const std::string signature = key.signature(SignatureAlgorithm::rsaSHA256, digest);
    const auto rsa = RSAPublicKey::fromPKCS1(key.publicPKCS1());
    ASSERT_TRUE(rsa);
    EXPECT_TRUE(rsa->verify(HashAlgorithm::sha256, digest, signature));
    EXPECT_FALSE(rsa->verify(HashAlgorithm::sha1, digest, signature));
    EXPECT_FALSE(rsa->verify(HashAlgorithm::sha256, other, signature));
    // Of a wrong length, empty, and not below the modulus.
    for (const std::string& bad :
         {'\0' + signature, signature.substr(1), std::string(), std::string(128, '\xFF')})
        EXPECT_FALSE(rsa->verify(HashAlgorithm::sha256, digest, bad));
    const std::string shorter = ed25519.signature(SignatureAlgorithm::ed25519SHA256, digest);
    EXPECT_EQ(verifyEd25519(ed25519.publicKey(), digest, shorter), true);
    EXPECT_EQ(verifyEd25519(ed25519.publicKey(), digest, shorter + 'x'), false);
    EXPECT_EQ(verifyEd25519(ed25519.publicKey(), "", shorter), false);
    EXPECT_EQ(verifyEd25519(ed25519.publicKey() + 'x', digest, shorter), std::nullopt);
}

TEST(DKIMKeys, exponents) {
    const std::string digest = hash(HashAlgorithm::sha256, "data");
    for (const char* exponent : {"3", "65537", "65543", "18446744073709551557"}) {
        const auto key = test::PrivateKey::rsa(1024, exponent);
        const std::string signature = key.signature(SignatureAlgorithm::rsaSHA256, digest);
        EXPECT_EQ(RSAPublicKey::fromPKCS1(key.publicPKCS1())
                      .value()
                      .recoverDigest(HashAlgorithm::sha256, signature),
                  digest)
            << exponent;
    }
}

TEST(DKIMKeys, keysThatAreKept) {
    ParsedKeys keys;
    const auto ask = [&](std::size_t number, std::size_t bytes = 64) {
        std::string modulus(bytes, 'm');
        for (std::size_t i = 0; i < 4; ++i) modulus[i + 1] = static_cast<char>(number >> 8 * i);
        modulus.back() = '\x01';
        EXPECT_EQ(keys.rsa(pkcs1(modulus, "\x03")).value().blockSize(), bytes);
    };
    for (const std::size_t number : {1u, 2u, 1u}) ask(number);
    ask(3, ParsedKeys::mostBits / 8 + 1);
    EXPECT_FALSE(keys.rsa("no key"));
    EXPECT_EQ(keys.size(), 2u);
    for (std::size_t i = 0; i < 2 * ParsedKeys::mostKeys; ++i) {
        ask(i);
        ASSERT_LE(keys.size(), ParsedKeys::mostKeys);
    }
    EXPECT_GE(keys.size(), ParsedKeys::mostKeys / 2);
}

TEST(Crypto, digestsOfPrefixes) {
    Hasher first(HashAlgorithm::sha256);
    first.add("ab");
    Hasher second = first;
    first.add("c");
    second.add("d");
    EXPECT_EQ(first.digest(), hash(HashAlgorithm::sha256, "abc"));
    EXPECT_EQ(second.digest(), hash(HashAlgorithm::sha256, "abd"));
    EXPECT_EQ(encodedBase64(hash(HashAlgorithm::sha1, "abc")), "qZk+NkcGgWq6PiVxeFDCbJzQ2J0=");
}

}  // namespace
}  // namespace quillmark
