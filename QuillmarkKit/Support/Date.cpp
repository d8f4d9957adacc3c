#include "QuillmarkKit/Support/Date.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

using namespace std::chrono;

/// Anything longer is no date; what is shorter is read in a few steps.
constexpr std::size_t longestDate = 64;

constexpr std::array months = {"jan", "feb", "mar", "apr", "may", "jun",
                               "jul", "aug", "sep", "oct", "nov", "dec"};

/// The zone names of RFC 5322, section 4.3, in hours, and the two more that are common.
constexpr std::array zones = {std::pair{"gmt", 0},  std::pair{"utc", 0},  std::pair{"ut", 0},
                              std::pair{"z", 0},    std::pair{"est", -5}, std::pair{"edt", -4},
                              std::pair{"cst", -6}, std::pair{"cdt", -5}, std::pair{"mst", -7},
                              std::pair{"mdt", -6}, std::pair{"pst", -8}, std::pair{"pdt", -7}};

/// A number of at least `least` and at most `most` digits.
std::optional<int> number(std::string_view digits, std::size_t least, std::size_t most) {
    if (digits.size() < least || digits.size() > most) return std::nullopt;
    const auto value = decimal(digits);
    if (!value) return std::nullopt;
    return static_cast<int>(*value);
}

std::optional<unsigned> month(std::string_view name) {
    for (unsigned i = 0; i < months.size(); ++i) {
        if (equalsIgnoringCase(name, months[i])) return i + 1;
    }
    return std::nullopt;
}

/// Four digits or more as they are; two digits by the rule of RFC 5322, section 4.3.
std::optional<int> mailYear(std::string_view digits) {
    if (digits.size() == 2) {
        const auto year = number(digits, 2, 2);
        if (!year) return std::nullopt;
        return *year < 50 ? 2000 + *year : 1900 + *year;
    }
    const auto year = number(digits, 4, 5);
    return year && *year <= static_cast<int>((std::chrono::year::max)()) ? year : std::nullopt;
}

/// "hh:mm" or "hh:mm:ss"; hours and such may have one digit.
std::optional<seconds> timeOfDay(std::string_view text) {
    const auto hour = number(takePiece(text, ':'), 1, 2);
    const bool hasSeconds = text.find(':') != std::string_view::npos;
    const auto minute = number(takePiece(text, ':'), 1, 2);
    const auto second = hasSeconds ? number(text, 1, 2) : 0;
    if (!hour || !minute || !second || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
    return hours(*hour) + minutes(*minute) + seconds(*second);
}

std::optional<minutes> signedOffset(char sign, std::optional<int> hour, std::optional<int> minute) {
    if ((sign != '+' && sign != '-') || !hour || !minute || *hour > 23 || *minute > 59) return std::nullopt;
    const minutes offset = hours(*hour) + minutes(*minute);
    return sign == '-' ? -offset : offset;
}

/// "+hhmm", a zone's name, or "GMT+h" with or without ":mm".
std::optional<minutes> mailZone(std::string_view text) {
    if (text.size() == 5 && !isASCIILetter(text[0])) {
        return signedOffset(text[0], number(text.substr(1, 2), 2, 2), number(text.substr(3), 2, 2));
    }
    for (const auto& [name, offset] : zones) {
        if (equalsIgnoringCase(text, name)) return hours(offset);
    }
    if (text.size() < 5 || !startsWithIgnoringCase(text, "gmt")) return std::nullopt;
    std::string_view rest = text.substr(4);
    const bool hasMinutes = rest.find(':') != std::string_view::npos;
    const auto hour = number(takePiece(rest, ':'), 1, 2);
    return signedOffset(text[3], hour, hasMinutes ? number(rest, 2, 2) : 0);
}

std::optional<Date> moment(int year, unsigned month, unsigned day, milliseconds timeOfDay, minutes offset) {
    const year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
    if (!date.ok()) return std::nullopt;
    return Date(sys_days(date)) + timeOfDay - offset;
}

/// What follows a comma among the first five characters (a weekday), else `text`.
std::string_view withoutWeekday(std::string_view text) {
    std::string_view rest = text;
    for (int i = 0; i < 5 && !rest.empty(); ++i) {
        if (takeScalar(rest) == ',') return rest;
    }
    return text;
}

/// Takes the next word off the front of `rest`: words are separated by white space of any kind. One that is
/// too long for a date is cut.
std::string_view takeAnyWord(std::string_view& rest) {
    rest = trimmed(rest);
    std::string_view after = rest, next = rest;
    while (!after.empty() && rest.size() - after.size() <= longestDate) {
        takeScalar(next);
        if (trimmed(after.substr(0, after.size() - next.size())).empty()) break;
        after = next;
    }
    const std::string_view word = rest.substr(0, rest.size() - after.size());
    rest = after;
    return word;
}

}  // namespace

std::optional<Date> parsedMailDate(std::string_view text) {
    const std::string uncommented = withoutComments(text);
    std::string_view rest = withoutWeekday(trimmed(uncommented));
    std::array<std::string_view, 5> words;  // day, month, year, time, zone
    std::size_t length = 0;
    for (std::string_view& word : words) {
        word = takeAnyWord(rest);
        length += word.size() + 1;
    }
    if (!trimmed(rest).empty() || length > longestDate) return std::nullopt;
    const auto day = number(words[0], 1, 2);
    const auto monthNumber = month(words[1]);
    const auto year = mailYear(words[2]);
    const auto time = timeOfDay(words[3]);
    const auto zone = mailZone(words[4]);
    // A zone's name goes with the full form only, and a short year with seconds.
    const bool shortYear = words[2].size() == 2;
    const bool hasSeconds = words[3].find(':') != words[3].rfind(':');
    const bool named = !words[4].empty() && isASCIILetter(words[4][0]);
    if ((shortYear && (named || !hasSeconds)) || (named && !hasSeconds)) return std::nullopt;
    if (!day || !monthNumber || !year || !time || !zone) return std::nullopt;
    return moment(*year, *monthNumber, static_cast<unsigned>(*day), *time, *zone);
}

namespace {

/// The words, numbers and other characters of a date; blanks between them say nothing.
std::vector<std::string_view> dateTokens(std::string_view text) {
    constexpr std::size_t mostTokens = 16;
    std::vector<std::string_view> tokens;
    while (!text.empty() && tokens.size() < mostTokens) {
        const auto isAlike = [&](char c) {
            return isDigit(text.front()) ? isDigit(c) : isASCIILetter(text.front()) && isASCIILetter(c);
        };
        std::size_t end = 1;
        while (end < text.size() && isAlike(text[end])) ++end;
        if (!isBlank(text.front())) tokens.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return tokens;
}

/// RFC 5322, section 4.3, "obs-year".
std::optional<int> obsoleteYear(std::string_view digits) {
    if (digits.size() != 3) return mailYear(digits);
    const auto year = number(digits, 3, 3);
    return year ? std::optional(1900 + *year) : std::nullopt;
}

/// An offset in two tokens, or a name; names that nobody knows, and military ones, count as UTC.
std::optional<minutes> obsoleteZone(std::span<const std::string_view> tokens) {
    if (tokens.size() == 2 && tokens[0].size() == 1) {
        return signedOffset(tokens[0].front(), number(tokens[1].substr(0, 2), 2, 2),
                            number(tokens[1].substr(std::min<std::size_t>(tokens[1].size(), 2)), 2, 2));
    }
    if (tokens.size() != 1 || !isASCIILetter(tokens[0].front()) || equalsIgnoringCase(tokens[0], "j"))
        return std::nullopt;
    return mailZone(tokens[0]).value_or(minutes(0));
}

}  // namespace

std::optional<Date> parsedObsoleteMailDate(std::string_view text) {
    constexpr std::array weekdays = {"mon", "tue", "wed", "thu", "fri", "sat", "sun"};
    const std::string uncommented = withoutComments(text);
    const auto tokens = dateTokens(uncommented);
    std::span<const std::string_view> rest = tokens;
    const auto isWeekday = [&](const char* name) { return equalsIgnoringCase(rest[0], name); };
    if (rest.size() > 1 && rest[1] == "," && std::ranges::any_of(weekdays, isWeekday)) rest = rest.subspan(2);
    // day, month, year, hour, ":", minute, and perhaps ":" and second
    if (rest.size() < 7 || rest[4] != ":") return std::nullopt;
    const bool hasSeconds = rest[6] == ":" && rest.size() > 8;
    const auto day = number(rest[0], 1, 2);
    const auto monthNumber = month(rest[1]);
    const auto year = obsoleteYear(rest[2]);
    const auto hour = number(rest[3], 2, 2), minute = number(rest[5], 2, 2),
               second = hasSeconds ? number(rest[7], 2, 2) : 0;
    const auto zone = obsoleteZone(rest.subspan(hasSeconds ? 8 : 6));
    if (!day || !monthNumber || !year || !hour || !minute || !second || !zone) return std::nullopt;
    if (*hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
    return moment(*year, *monthNumber, static_cast<unsigned>(*day),
                  hours(*hour) + minutes(*minute) + seconds(*second), *zone);
}

std::optional<Date> parsedRFC3339(std::string_view text) {
    // 2026-11-21T10:00:00 [ "." 1*digit ] ( "Z" / +hh:mm )
    if (text.size() < 20 || text.size() > longestDate) return std::nullopt;
    if (text[4] != '-' || text[7] != '-' || asciiLowered(text[10]) != 't' || text[13] != ':' ||
        text[16] != ':') {
        return std::nullopt;
    }
    const auto field = [&](std::size_t at, std::size_t size) {
        return number(text.substr(at, size), size, size);
    };
    const auto year = field(0, 4), month = field(5, 2), day = field(8, 2);
    const auto hour = field(11, 2), minute = field(14, 2), second = field(17, 2);
    if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
    if (*hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
    std::string_view rest = text.substr(19);
    milliseconds time = hours(*hour) + minutes(*minute) + seconds(*second);
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        std::size_t digits = 0;
        for (int unit = 100; digits < rest.size() && isDigit(rest[digits]); ++digits, unit /= 10) {
            time += milliseconds((rest[digits] - '0') * unit);
        }
        if (digits == 0) return std::nullopt;
        rest.remove_prefix(digits);
    }
    std::optional<minutes> offset;
    if (equalsIgnoringCase(rest, "z")) offset = minutes(0);
    if (rest.size() == 6 && rest[3] == ':') {
        offset = signedOffset(rest[0], number(rest.substr(1, 2), 2, 2), number(rest.substr(4), 2, 2));
    }
    if (!offset) return std::nullopt;
    const auto date =
        moment(*year, static_cast<unsigned>(*month), static_cast<unsigned>(*day), time, *offset);
    constexpr Date first = sys_days(std::chrono::year(0) / January / 1);
    constexpr Date end = sys_days(std::chrono::year(10'000) / January / 1);
    return date && *date >= first && *date < end ? date : std::nullopt;
}

std::string iso8601(Date date) {
    const auto days = floor<std::chrono::days>(date);
    // By hand over 64-bit days: a date may lie beyond the years that std::chrono::year holds.
    // Days are counted in eras of 400 years from 0000-03-01.
    const std::int64_t shifted = days.time_since_epoch().count() + 719'468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146'096) / 146'097;
    const std::int64_t dayOfEra = shifted - era * 146'097;
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
    const auto day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    const auto monthNumber = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    const std::int64_t year = yearOfEra + era * 400 + (monthNumber <= 2 ? 1 : 0);
    // By remainders: the midnight before the first of all dates is out of range.
    constexpr std::int64_t dayLength = milliseconds(std::chrono::days(1)).count();
    const std::int64_t sinceMidnight = (date.time_since_epoch().count() % dayLength + dayLength) % dayLength;
    const auto second = static_cast<int>(sinceMidnight / 1000);
    std::array<char, 48> text = {};
    std::snprintf(text.data(), text.size(), year >= 0 && year <= 9999 ? "%04lld" : "%+lld",
                  static_cast<long long>(year));
    std::string result = text.data();
    std::snprintf(text.data(), text.size(), "-%02d-%02dT%02d:%02d:%02dZ", monthNumber, day, second / 3600,
                  second / 60 % 60, second % 60);
    return result + text.data();
}

std::string rfc3339(Date date) {
    const auto fraction = static_cast<int>((date - floor<seconds>(date)).count());
    std::string text = iso8601(date);
    if (fraction == 0) return text;
    std::array<char, 8> digits = {};
    std::snprintf(digits.data(), digits.size(), ".%03d", fraction);
    return text.insert(text.size() - 1, digits.data());
}

}  // namespace quillmark
