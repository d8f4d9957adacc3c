#include "Wording/Reader.h"

#include <cstdlib>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Direction.h"
#include "WordingSupport.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using namespace std::chrono_literals;

ZoneOffset newYork(Date) { return {-5h, "EST"}; }

TEST(Reader, datesAndTimes) {
    const struct {
        const char* rfc3339;
        Reader reader;
        std::string time, date;
    } rows[] = {
        {"2026-01-15T11:00:59Z", english, "15 Jan 2026 at 12:00 CET", "15 Jan 2026"},
        {"2026-03-05T08:07:00Z", german, "5. März 2026 um 09:07 Uhr CET", "5. März 2026"},
        {"2026-01-01T02:30:00Z", {.zone = newYork}, "31 Dec 2025 at 21:30 EST", "31 Dec 2025"},
        {"1969-12-31T22:59:59Z", english, "31 Dec 1969 at 23:59 CET", "31 Dec 1969"},
        {"0026-01-15T11:00:00Z", english, "15 Jan 0026 at 12:00 CET", "15 Jan 0026"},
        {"0000-01-01T00:00:00Z", english, "a date that makes no sense", "a date that makes no sense"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rfc3339);
        const Date date = parsedRFC3339(row.rfc3339).value();
        EXPECT_EQ(row.reader.time(date), row.time);
        EXPECT_EQ(row.reader.date(date), row.date);
    }
    EXPECT_EQ(german.time(Date::max()), "ein unsinniges Datum");
    EXPECT_EQ(english.date(Date::min()), "a date that makes no sense");
}

TEST(Reader, argumentsArePutInOnce) {
    EXPECT_EQ(english.translate("%2, %1 and 100% of %3 %", {"%2", "%n", "a%"}), "%n, %2 and 100% of a% %");
    EXPECT_EQ(english.translate("%1 %2", {"a"}), "a %2");
    EXPECT_EQ(german.translate("Signed by %1, not by %2", {"a", "%1"}), "Signiert von a, nicht von %1");
    EXPECT_EQ(german.translate("no such text"), "no such text");
}

TEST(Reader, sentencesAreJoinedAsTheLanguageWants) {
    EXPECT_EQ(sentences({"", "One.", "", "Two (2).", "Three"}), "One. Two (2). Three");
    EXPECT_EQ(sentences({"一。", "二（2）", "三", "four."}), "一。二（2）三 four.");
}

TEST(Reader, numbers) {
    EXPECT_EQ(english.translateCount("%n test of %1", "%n tests of %1", 1, {"%n"}), "1 test of %n");
    EXPECT_EQ(english.translateCount("%n test", "%n tests", 0), "0 tests");
    EXPECT_EQ(english.translateCount("%n test", "%n tests", -1234), "-1,234 tests");
    EXPECT_EQ(english.number(999), "999");
    EXPECT_EQ(german.number(1234567), "1.234.567");
    EXPECT_EQ(english.number(-123), "-123");
}

TEST(Reader, language) {
    const struct {
        const char *all, *messages, *lang;
        Language language;
    } rows[] = {
        {"", "", "de_AT.UTF-8", Language::german},  {"", "de", "en_US", Language::german},
        {"C", "de", "de", Language::english},       {"", "", "", Language::english},
        {"den_XX", "", "de_DE", Language::english},  // another language
        {"zh_TW.UTF-8", "", "", Language::english},  // of traditional letters there are none
        {"zh-Hant-CN", "", "", Language::english},
    };
    for (const auto& row : rows) {
        setenv("LC_ALL", row.all, 1);
        setenv("LC_MESSAGES", row.messages, 1);
        setenv("LANG", row.lang, 1);
        EXPECT_EQ(Reader::ofEnvironment().language, row.language) << row.lang;
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
    const std::pair<const char*, const char*> codes[] = {{"zh_CN.UTF-8", "zh"}, {"zh-Hans-TW", "zh"},
                                                         {"zh", "zh"},          {"pt_PT", "pt"},
                                                         {"iw_IL", "he"},       {"FR", "fr"}};
    for (const auto& [name, code] : codes) EXPECT_EQ(factsOf(languageOf(name)).code, code) << name;
}

TEST(Reader, countsInEachLanguage) {
    const struct {
        const char* language;
        std::vector<std::int64_t> firstOfEachForm;
        const char* number;  // 1234567
    } rows[] = {
        {"fr", {0, 2}, "1\u202F234\u202F567"},
        {"es", {1, 1'000'000}, "1.234.567"},
        {"pl", {1, 22, 112}, "1\u00A0234\u00A0567"},
        {"cs", {1, 4, 5}, "1\u00A0234\u00A0567"},
        {"uk", {21, 23, 11}, "1\u00A0234\u00A0567"},
        {"ja", {7}, "1,234,567"},
        {"he", {1, 2, 20}, "1,234,567"},
        {"ar", {0, 1, 2, 103, 99, 100}, "1,234,567"},  // with the digits of domains and dates
    };
    for (const auto& [code, counts, number] : rows) {
        const Language language = languageOf(code);
        ASSERT_EQ(factsOf(language).code, code);
        for (std::size_t form = 0; form < counts.size(); ++form)
            EXPECT_EQ(pluralForm(language, counts[form]), form) << code << ' ' << counts[form];
        EXPECT_EQ(Reader{.language = language}.number(1'234'567), number) << code;
    }
}

/// The "%1", "%n" and the like of a text.
std::multiset<std::string> placeholders(std::string_view text) {
    std::multiset<std::string> found;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] == '%' && (text[i + 1] == 'n' || (text[i + 1] >= '1' && text[i + 1] <= '9')))
            found.emplace(text.substr(i, 2));
    }
    return found;
}

std::set<std::string> names(std::string_view text) {
    const auto all = placeholders(text);
    return {all.begin(), all.end()};
}

TEST(Reader, catalogueFitsTheCode) {  // that it is complete is what scripts/update-translations --check tells
    const Catalogue catalogue = catalogueOf(Language::german);
    ASSERT_GT(catalogue.size(), 30u);
    for (std::size_t i = 1; i < catalogue.size(); ++i) {
        const auto [original, translation] = catalogue.entry(i);
        SCOPED_TRACE(original);
        const std::string text(original.substr(0, original.find('\0')));
        const std::string shown = Reader{.platform = Platform::other}.translate(text);
        // Each text that names a platform has its twin; what a program is called is none.
        EXPECT_EQ(shown.find("Mac"), shown.find("Mac (olm)"));
        EXPECT_EQ(shown.find("Finder"), std::string::npos);
        EXPECT_TRUE(shown == text || catalogue.find(shown));
    }
}

TEST(Reader, everyFormKeepsWhatIsPutIn) {
    for (const Language language : allLanguages()) {
        const Catalogue catalogue = catalogueOf(language);
        const auto forms = 1 + std::ranges::count(factsOf(language).plurals, ' ');
        for (std::size_t i = 1; i < catalogue.size(); ++i) {
            const auto [original, translation] = catalogue.entry(i);
            SCOPED_TRACE(std::string(factsOf(language).code) + ": " + std::string(original));
            const bool isCounted = original.find('\0') != std::string_view::npos;
            EXPECT_EQ(1 + std::ranges::count(translation, '\0'), isCounted ? forms : 1);
            for (std::string_view rest = translation; !rest.empty();) {
                auto found = names(takePiece(rest, '\0')), wanted = names(original);
                for (auto* each : {&found, &wanted}) {
                    if (isCounted) each->erase("%n");  // a form for one number need not tell it
                }
                EXPECT_EQ(found, wanted);
            }
        }
    }
}

TEST(Direction, whatIsPutInIsAnIsland) {
    const Language arabic = languageOf("ar");
    ASSERT_TRUE(factsOf(arabic).isRightToLeft);
    const std::pair<const char*, const char*> rows[] = {
        {"a.example", "\u2066a.example\u2069"},
        {"12,345", "12,345"},
        {"[!]", "\u2066[!]\u2069"},
        {"ינואר", "ינואר"},
        {"שלום עולם", "\u2067שלום עולם\u2069"},
        {"אבג.דהו.evil.example", "\u2066\u2067אבג\u2069.\u2067דהו\u2069.evil.example\u2069"},
        {"בנק <x@אבג.example>", "\u2067בנק \u2066<x@\u2067אבג\u2069.example>\u2069\u2069"},
        {"מ-\u2066a.example\u2069", "\u2067מ-\u2066a.example\u2069\u2069"},
        {"\u2066a.example\u2069", "\u2066a.example\u2069"},
        {"a\u2069b", "\u2066a‹U+2069›b\u2069"},
    };
    for (const auto& [text, island] : rows) EXPECT_EQ(isolated(text, arabic), island) << text;
    EXPECT_EQ(isolated("אבג.example", Language::german), "אבג.example");
    const std::string said =
        Reader{.language = arabic}.translate("Signed by %1, unchanged since sent", {"a.example"});
    EXPECT_NE(said.find("\u2066a.example\u2069"), std::string::npos) << said;
    const std::string line = "מ-\u2066a.example\u2069\u202E";
    EXPECT_EQ(inertLine(line, arabic), "מ-\u2066a.example\u2069‹U+202E›");
    EXPECT_EQ(inertLine(line, Language::english), forDisplay(line));
}

TEST(Reader, damagedCatalogues) {
    const Catalogue whole = catalogueOf(Language::german);
    EXPECT_EQ(Catalogue("").size(), 0u);
    EXPECT_EQ(Catalogue("no catalogue at all, but long enough").find("Valid"), std::nullopt);
    EXPECT_EQ(whole.find("Valid", 7), std::nullopt);
    EXPECT_EQ(whole.find("Valid"), "Gültig");
}

}  // namespace
}  // namespace quillmark
