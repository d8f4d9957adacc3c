#include "Wording/Reader.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <utility>

#include "Wording/Direction.h"

namespace quillmark {

namespace {

/// What is said where the machine is no Mac.
constexpr std::pair<std::string_view, std::string_view> elsewhere[] = {
    {"Checked on this Mac by Quillmark. Only DNS and registry (RDAP) lookups of the domains named in the "
     "message left the Mac.",
     toTranslate("Checked on this computer by Quillmark. Only DNS and registry (RDAP) lookups of the domains "
                 "named in the message left the computer.")},
    {"The history keeps the findings, From and Subject lines and file names on this Mac, never the message "
     "text. Nothing is uploaded.",
     toTranslate("The history keeps the findings, From and Subject lines and file names on this computer, "
                 "never the message text. Nothing is uploaded.")},
    {"Show Data Folder in Finder", toTranslate("Show Data Folder")},
    {"This removes every saved check from this Mac. It can’t be undone.",
     toTranslate("This removes every saved check from this computer. It can’t be undone.")},
};

/// `pattern` with its arguments put in.
std::string filled(std::string_view pattern, std::initializer_list<std::string_view> arguments,
                   Language language, std::string_view count = {}) {
    std::string text;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char next = pattern[i] == '%' && i + 1 < pattern.size() ? pattern[i + 1] : '\0';
        const auto number = static_cast<std::size_t>(next - '1');
        if (next == 'n' && !count.empty()) {
            text += count;
            ++i;
        } else if (next >= '1' && next <= '9' && number < arguments.size()) {
            text += isolated(arguments.begin()[number], language);
            ++i;
        } else {
            text += pattern[i];
        }
    }
    return text;
}

std::string_view onPlatform(Platform platform, std::string_view text) {
    if (platform == Platform::mac) return text;
    for (const auto& [mac, other] : elsewhere) {
        if (text == mac) return other;
    }
    return text;
}

std::string digits(std::int64_t value, std::size_t atLeast) {
    const std::string text = std::to_string(value);
    return std::string(atLeast - std::min(atLeast, text.size()), '0') + text;
}

using Days = std::chrono::sys_days;

/// Beyond the years that people write, a date in a message is a mistake or a trick.
bool isPlausible(Date date) {
    using namespace std::chrono;
    return date >= Days{January / 2 / 1} && date < Days{December / 31 / 9999};
}

std::string monthName(const Reader& reader, unsigned month) {
    constexpr std::array names = {toTranslate("Jan"), toTranslate("Feb"), toTranslate("Mar"),
                                  toTranslate("Apr"), toTranslate("May"), toTranslate("Jun"),
                                  toTranslate("Jul"), toTranslate("Aug"), toTranslate("Sep"),
                                  toTranslate("Oct"), toTranslate("Nov"), toTranslate("Dec")};
    return reader.translate(names[month - 1]);
}

std::string dayText(const Reader& reader, Days days) {
    const std::chrono::year_month_day day(days);
    // For translators: a date: day of the month, month's name, year.
    return reader.translate("%1 %2 %3", {std::to_string(static_cast<unsigned>(day.day())),
                                         monthName(reader, static_cast<unsigned>(day.month())),
                                         digits(static_cast<int>(day.year()), 4)});
}

}  // namespace

ZoneOffset systemZone(Date date) {
    static const bool isReady = (tzset(), true);
    std::tm local = {};
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
    if (!isReady || !localtime_r(&seconds, &local)) return {};
    const std::string name = local.tm_zone ? local.tm_zone : "";
    // A TZ that nobody knows counts as UTC under a name made from its beginning, or none.
    if (local.tm_gmtoff == 0 && name != "GMT" && name != "WET") return {};
    const bool isNumber = name.empty() || name.starts_with('+') || name.starts_with('-');
    return {std::chrono::seconds(local.tm_gmtoff), isNumber ? "UTC" + name : name};
}

Reader Reader::ofEnvironment() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value && *value) return {.language = languageOf(value)};
    }
    return {};
}

std::string Reader::translate(std::string_view text,
                              std::initializer_list<std::string_view> arguments) const {
    const std::string_view here = onPlatform(platform, text);
    return filled(catalogueOf(language).find(here).value_or(here), arguments, language);
}

std::string Reader::translateCount(std::string_view one, std::string_view many, std::int64_t count,
                                   std::initializer_list<std::string_view> arguments) const {
    const auto translation = catalogueOf(language).find(one, pluralForm(language, count));
    const std::string_view english = pluralForm(Language::english, count) == 0 ? one : many;
    return filled(translation.value_or(english), arguments, language, number(count));
}

void Reader::addTo(std::string& list, std::string_view item) const {
    if (!list.empty()) list += translate(", ");
    list += item;
}

void Reader::addClauseTo(std::string& list, std::string_view item) const {
    if (!list.empty()) list += translate("; ");
    list += item;
}

std::string Reader::time(Date date) const {
    if (!isPlausible(date)) return translate("a date that makes no sense");
    const ZoneOffset offset = zone(date);
    const auto local = std::chrono::floor<std::chrono::minutes>(date + offset.ahead);
    const auto day = std::chrono::floor<std::chrono::days>(local);
    const auto minutes = (local - day).count();
    const std::string clock = digits(minutes / 60, 2) + ":" + digits(minutes % 60, 2);
    // For translators: a date, a time of day and the name of its time zone.
    return translate("%1 at %2 %3", {dayText(*this, day), clock, offset.name});
}

std::string Reader::date(Date date) const {
    if (!isPlausible(date)) return translate("a date that makes no sense");
    return dayText(*this, std::chrono::floor<std::chrono::days>(date + zone(date).ahead));
}

std::string Reader::number(std::int64_t number) const { return numberIn(language, number); }

std::string sentences(std::initializer_list<std::string_view> each) {
    constexpr std::array<std::string_view, 6> wide = {"。", "！", "？", "：", "）", "」"};
    std::string text;
    for (const std::string_view sentence : each) {
        const bool isWide = std::ranges::any_of(wide, [&](auto mark) { return text.ends_with(mark); });
        if (!text.empty() && !sentence.empty() && !isWide) text += ' ';
        text += sentence;
    }
    return text;
}

}  // namespace quillmark
