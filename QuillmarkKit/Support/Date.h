#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace quillmark {

/// A moment in UTC, to the millisecond. (The kit reads no clock: the time of a check is an argument.)
using Date = std::chrono::sys_time<std::chrono::milliseconds>;

/// 2001-01-01T00:00:00Z, from which dates are counted in the serialized form.
constexpr Date referenceDate{std::chrono::sys_days{std::chrono::January / 1 / 2001}};

/// The Date field of a message (RFC 5322, section 3.3), comments and an outer weekday allowed:
/// "Tue, 13 Jan 2026 10:00:00 +0100 (CET)". Seconds may be missing; a year has four digits or more, or
/// exactly two (00–49 is 20xx, 50–99 is 19xx) when the seconds are there; the zone is an offset, or, behind a
/// full year and seconds, one of the North American names, GMT, UTC, UT, Z or GMT±h[:mm]. Month and zone
/// names are matched without regard to case. Nothing when it is not a date that exists.
std::optional<Date> parsedMailDate(std::string_view text);

/// The same by RFC 5322 to the letter, with the obsolete forms of its section 4.3: comments and blanks
/// between any two parts, years of two and three digits, zones of one letter and unknown names of zones
/// (which say nothing: they count as UTC), and the second 60. Nothing without a zone.
std::optional<Date> parsedObsoleteMailDate(std::string_view text);

/// An internet date-time (RFC 3339) with or without a fraction of a second; digits after the third are
/// dropped. "T" and "Z" may be lower case. Nothing when it is not one, or lies outside the years 0 to 9999.
std::optional<Date> parsedRFC3339(std::string_view text);

/// "2026-03-01T09:15:42Z": UTC, whole seconds (a fraction is dropped). A year outside 0 to 9999 is written
/// with its sign and as many digits as it has.
std::string iso8601(Date date);

/// The same with the milliseconds when there are any, "2026-03-01T09:15:42.120Z": `parsedRFC3339` gives the
/// date back.
std::string rfc3339(Date date);

}  // namespace quillmark
