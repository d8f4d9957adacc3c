#include "Wording/Glossary.h"

#include "QuillmarkKit/Support/Unicode.h"
#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

TEST(Glossary, findsAWordByEachOfItsNamesInBothLanguages) {
    const std::pair<const char*, const char*> rows[] = {
        {"dkim", "DKIM"},     {" SELECTOR ", "Selector"},
        {"s=", "Selector"},   {"signing domain", "Signing domain"},
        {"Punycode", "xn--"}, {"relaxed", "Canonicalization"},
    };
    for (const auto& [word, found] : rows) {
        const GlossaryEntry* entry = glossaryEntry(word, english);
        ASSERT_TRUE(entry) << word;
        EXPECT_EQ(entry->word, found);
    }
    EXPECT_EQ(glossaryEntry("s\u00FC\u00DF", german), nullptr);
    EXPECT_EQ(glossaryEntry("", english), nullptr);
    std::map<std::string, std::string> owners;  // no name is of two words
    for (const GlossaryEntry& each : glossary()) {
        for (const Reader& reader : {english, german}) {
            EXPECT_EQ(glossaryEntry(unicodeUppered(each.wordIn(reader)), reader), &each)
                << each.wordIn(reader);
            EXPECT_TRUE(each.textIn(reader).ends_with('.')) << each.textIn(reader);
        }
        EXPECT_TRUE(each.source.starts_with("RFC ")) << each.word;
        for (std::string_view names = each.names; !names.empty();) {
            const std::string name(takePiece(names, ','));
            EXPECT_TRUE(owners.emplace(name, each.word).second) << name;
            EXPECT_EQ(glossaryEntry(name), &each) << name;
        }
    }
}

TEST(Glossary, rawValuesAreInertAndFew) {
    const std::string bad = "x\n[OK] \u202E" + std::string(10'000, 'y');
    ProofReport report;
    report.dkim.assign(100, DKIMResult{.domain = bad, .selector = bad, .algorithm = bad});
    report.dkim[0].signedHeaders = {1'000, bad};
    report.dmarc.record = bad;
    report.spf.domain = report.spf.matched = bad;
    for (const GlossaryEntry& each : glossary()) {
        const auto lines = rawValues(each, report);
        EXPECT_LE(lines.size(), 20u);
        for (const std::string& line : lines) {
            EXPECT_LT(line.size(), 600u);
            EXPECT_EQ(line.find_first_of("\n"), std::string::npos);
            EXPECT_EQ(line.find("\u202E"), std::string::npos);
        }
    }
    report.dkim = {{.domain = "a.example", .selector = "k1", .algorithm = "rsa-sha256"}};
    EXPECT_TRUE(
        rawValues(*glossaryEntry("DKIM"), report).at(0).starts_with("d=a.example; s=k1; a=rsa-sha256;"));
}

}  // namespace
}  // namespace quillmark
