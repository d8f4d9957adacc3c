#include "QuillmarkKit/Lookups/KeyBook.h"

#include <sys/stat.h>

#include <fstream>

#include "QuillmarkKit/Verifier.h"
#include "tests/Test.h"
#include "tests/TestFiles.h"
#include "tests/TestSigner.h"

namespace quillmark::test {
namespace {

namespace fs = std::filesystem;

const Date march = *parsedRFC3339("2024-03-03T10:00:00Z"), may = *parsedRFC3339("2024-05-05T10:00:00Z");

KnownKey seen(std::string name, std::string record, Date first, Date last) {
    return {std::move(name), std::move(record), first, last, "dns.example", false};
}

KnownKey imported(KnownKey key, std::string file) {
    key.file = KnownKey::File{std::move(file), may};
    return key;
}

std::vector<KnownKey> all(const KeyBook& book) {
    std::vector<KnownKey> keys;
    book.forEach("", [&](const KnownKey& key) { keys.push_back(key); });
    return keys;
}

struct KeyBookTest : ::testing::Test {
    TemporaryFolder folder;
    KeyBook book{folder / "sub/keys.db"};
};

TEST_F(KeyBookTest, keepsWhatWasSeenAndWhoSaysSo) {
    EXPECT_TRUE(book.keysOf("s._domainkey.a.example").empty());
    EXPECT_FALSE(fs::exists(book.url));
    const KnownKey own = seen("s._domainkey.a.example", "p=1", march, march);
    KnownKey again = seen("S._domainkey.A.example.", "p=1", may, may);
    again.service = "other.example";
    again.isValidated = true;
    const KnownKey told = imported(seen("s._domainkey.a.example", "p=1", may, may), "list.json");
    const KnownKey newer = imported(seen("s._domainkey.a.example", "p=2", may, may), "list.json");
    EXPECT_EQ(book.add(std::vector{newer, told, own}), 3u);
    EXPECT_EQ(book.add(std::vector{again, told, seen("not a name", "p=1", may, may),
                                   seen("s._domainkey.a.example", std::string(20'000, 'p'), may, may)}),
              0u);
    KnownKey widened = own;
    widened.lastSeen = may;
    widened.service = "other.example";
    widened.isValidated = true;
    const auto keys = book.keysOf("s._domainKEY.a.example");
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_EQ(keys[0], widened);  // before those of files
    EXPECT_TRUE(book.keysOf("other._domainkey.a.example").empty());
    struct stat status = {};
    ASSERT_EQ(::stat(book.url.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);

    EXPECT_EQ(book.remove({.name = "s._domainkey.a.example", .file = "list.json"}), 2u);
    EXPECT_EQ(all(book), std::vector{widened});
    EXPECT_EQ(contents(book.url).find("list.json"), std::string::npos);
    book.add(std::vector{told});
    book.remove(widened);
    EXPECT_EQ(all(book), std::vector{told});
}

/// Thousands under one name, as somebody's list may have them.
TEST_F(KeyBookTest, aNameHasAFewKeysAtMostThoseSeenHereFirst) {
    std::vector<KnownKey> keys;
    for (int i = 0; i < 2000; ++i)
        keys.push_back(imported(seen("s._domainkey.a.example", "p=" + std::to_string(i), may, may), "list"));
    keys.push_back(seen("s._domainkey.a.example", "p=own", march, march));
    book.add(keys);
    const auto found = book.keysOf("s._domainkey.a.example");
    EXPECT_EQ(found.size(), KeyMemory::mostKeysOfName);
    EXPECT_EQ(found.front().record, "p=own");
}

/// It is told once, costs a line, and is left as it was.
TEST_F(KeyBookTest, whatIsNoBookIsLeftAlone) {
    std::vector<KnownKey> keys;
    for (int i = 0; i < 500; ++i)
        keys.push_back(seen("s" + std::to_string(i) + "._domainkey.a.example", "p=1", march, may));
    book.add(keys);
    const std::string whole = contents(book.url);
    const auto patched = [&](std::size_t place, std::string_view bytes) {
        return std::string(whole).replace(place, bytes.size(), bytes);
    };
    using Kind = KeyBookError::Kind;
    const struct {
        const char* what;
        std::string bytes;
        Kind kind;
    } cases[] = {
        {"text", "Dear diary", Kind::foreign},
        {"of another program", patched(68, "abcd"), Kind::foreign},
        {"newer", patched(60, std::string_view("\0\0\0\7", 4)), Kind::newerVersion},
        {"another schema", replaced(whole, "imported INTEGER", "importeD INTEGER"), Kind::foreign},
        {"cut off", whole.substr(0, whole.size() / 2), Kind::damaged},
        {"overwritten", patched(4096, std::string(whole.size() - 4096, '\xFF')), Kind::damaged},
    };
    for (const auto& [what, bytes, kind] : cases) {
        SCOPED_TRACE(what);
        std::ofstream(book.url, std::ios::binary | std::ios::trunc) << bytes;
        const auto kindOf = [&](const auto& act) {
            try {
                act();
            } catch (const KeyBookError& error) {
                return std::optional(error.kind);
            }
            return std::optional<Kind>();
        };
        EXPECT_EQ(kindOf([&] { book.add(keys); }), kind);
        int told = 0;
        KeptKeys kept(book, {.now = [] { return may; }, .problem = [&](const std::exception&) { ++told; }});
        kept.saw("s._domainkey.a.example", std::vector<std::string>{"p=1"}, "", false);
        kept.keysOf("s1._domainkey.a.example");
        kept.save();
        EXPECT_EQ(told, 1);
        EXPECT_EQ(contents(book.url), bytes);
    }
    fs::remove(book.url);
    ASSERT_EQ(::mkfifo(book.url.c_str(), 0600), 0);
    EXPECT_THROW(book.keysOf("s1._domainkey.a.example"), fs::filesystem_error);
    fs::remove(book.url);
    fs::create_symlink("nowhere", book.url);
    EXPECT_THROW(book.add(keys), fs::filesystem_error);
}

/// Of each kind and size: what a check saw, a later one finds again once the key is gone.
TEST_F(KeyBookTest, aKeyThatVanishesIsRemembered) {
    const PrivateKey keys[] = {PrivateKey::rsa(1024), PrivateKey::rsa(2048), PrivateKey::rsa(4096),
                               PrivateKey::ed25519()};
    for (const PrivateKey& key : keys) {
        const std::string text =
            signedMessage("From: a@example.org\r\nSubject: Hello\r\n\r\nHi\r\n", {}, key);
        const MailMessage message = MailMessage::parse(text);
        const auto report = [&](const StaticResolver::Answers& answers, std::shared_ptr<KeyMemory> memory) {
            return Verifier(std::make_shared<StaticResolver>(answers), nullptr, PublicSuffixList::shared(),
                            {}, {}, std::move(memory))
                .verify(message, std::nullopt, may);
        };
        const auto memory = [&](bool remembers) {
            return std::make_shared<KeptKeys>(
                book, KeptKeys::Options{.remembers = remembers, .now = [] { return march; }});
        };
        fs::remove_all(book.url.parent_path());
        EXPECT_EQ(report(published(key), memory(false)).verdict.kind, VerdictKind::verified);
        EXPECT_FALSE(fs::exists(book.url));
        EXPECT_TRUE(report(published(key), memory(true)).notes.empty());
        const ProofReport later = report({}, memory(false));
        EXPECT_EQ(later.verdict.kind, VerdictKind::keyGone);
        ASSERT_EQ(later.notes.size(), 1u);
        const auto& note = std::get<ReportNote::KeyKnown>(later.notes.front().value);
        EXPECT_EQ(note.fit, ReportNote::KeyKnown::Fit::holds);
        EXPECT_EQ(note.firstSeen, march);
        EXPECT_TRUE(note.speaksForFrom);
        EXPECT_FALSE(note.file);
    }
}

/// Nobody opens a book without need.
TEST_F(KeyBookTest, isNotAskedWhereNoKeyIsGone) {
    struct Refusing : KeyMemory {
        std::vector<KnownKey> keysOf(std::string_view) override {
            ADD_FAILURE();
            return {};
        }
        void saw(std::string_view, std::span<const std::string>, const std::string&, bool) override {}
    };
    const std::string text =
        signedMessage("From: a@example.org\r\nSubject: Hello\r\n\r\nHi\r\n", {}, ed25519Key());
    for (const std::string& each : {text, replaced(text, "Hello", "Bye"), replaced(text, "a=ed", "a=x")}) {
        Verifier(std::make_shared<StaticResolver>(published(ed25519Key())), nullptr,
                 PublicSuffixList::shared(), {}, {}, std::make_shared<Refusing>())
            .verify(MailMessage::parse(each), std::nullopt, may);
    }
}

}  // namespace
}  // namespace quillmark::test
