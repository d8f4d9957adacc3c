#include "QuillmarkKit/Support/Date.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

std::string shown(const std::optional<Date>& date) { return date ? iso8601(*date) : ""; }

TEST(Date, mailDates) {
    const std::pair<std::string, std::string> rows[] = {
        {"Tue, 13 Jan 2026 10:00:00 +0100 (CET)", "2026-01-13T09:00:00Z"},
        {"13 Jan 2026 10:00 +0100", "2026-01-13T09:00:00Z"},
        {"Tue, 13 Jan 26 10:00:00 -0230", "2026-01-13T12:30:00Z"},
        {"13 JAN 1999 1:2:3 gmt", "1999-01-13T01:02:03Z"},
        {"1 Feb 49 00:00:00 +0000", "2049-02-01T00:00:00Z"},
        {"1 Feb 50 00:00:00 +0000", "1950-02-01T00:00:00Z"},
        {"13 Jan 2026 10:00:00 PDT", "2026-01-13T17:00:00Z"},
        {"13 Jan 2026 10:00:00 GMT+5:30", "2026-01-13T04:30:00Z"},
        {"13 Jan 2026 10:00:00 GMT-3", "2026-01-13T13:00:00Z"},
        {" (a (b) c)\tTue ,\r\n 29 Feb 2024\t23:59:59 -0000", "2024-02-29T23:59:59Z"},
        {"Втн, 13\u00A0Jan\u20032026\u202810:00:00 +0000", "2026-01-13T10:00:00Z"},
        {std::string(100, ' ') + "13 Jan 2026 10:00:00 +0000", "2026-01-13T10:00:00Z"},
    };
    for (const auto& [text, iso] : rows) EXPECT_EQ(shown(parsedMailDate(text)), iso) << text;
    for (const char* none :
         {"1 Feb 50 00:00:00 GMT", "1 Feb 50 00:00 +0000", "1 Feb 1950 00:00 Z", "1 Feb 32768 00:00:00 Z",
          "29 Feb 2023 10:00:00 +0000", "31 Apr 2026 10:00:00 +0000", "13 Jan 2026 24:00:00 +0000",
          "13 Jan 2026 23:59:60 +0000", "13 Jan 2026 10:00:00 +2460", "13 Jan 2026 10:00:00 CEST",
          "13 Jan 2026 10:00:00", "13 Jan 026 10:00:00 +0000", "13 Foo 2026 10:00:00 +0000",
          "0 Jan 2026 10:00:00 +0000", "13 Jan 2026 10:00:00 +0000 extra",
          "Tuesday, 13 Jan 2026 10:00:00 +0000", ""})  // the comma stands too far in
        EXPECT_EQ(parsedMailDate(none), std::nullopt) << none;
    EXPECT_EQ(parsedMailDate("13 Jan 2026 10:00:00 " + std::string(1'000'000, 'x')), std::nullopt);
}

TEST(Date, rfc3339) {
    const struct {
        std::string text, iso;
        int milliseconds = 0;
    } rows[] = {
        {"2024-05-01T12:34:56Z", "2024-05-01T12:34:56Z"},
        {"2024-05-01t12:34:56.789z", "2024-05-01T12:34:56Z", 789},
        {"2024-05-01T12:34:56.7894999-01:30", "2024-05-01T14:04:56Z", 789},
        {"0000-01-01T00:00:00Z", "0000-01-01T00:00:00Z"},
        {"9999-12-31T23:59:59+00:00", "9999-12-31T23:59:59Z"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto date = parsedRFC3339(row.text);
        EXPECT_EQ(shown(date), row.iso);
        EXPECT_EQ((date->time_since_epoch().count() % 1000 + 1000) % 1000, row.milliseconds);
        EXPECT_EQ(parsedRFC3339(rfc3339(*date)), date) << rfc3339(*date);
    }
    for (const char* none : {"9999-12-31T23:59:59-00:01", "0000-01-01T00:00:00+00:01", "2024-02-30T00:00:00Z",
                             "2024-05-01T12:34:56", "2024-05-01T12:34:56.Z", "2024-05-01T12:34:56+0100",
                             "2024-05-01 12:34:56Z", "2024-05-01T24:00:00Z", "2024-05-01"})
        EXPECT_EQ(parsedRFC3339(none), std::nullopt) << none;
}

TEST(Date, iso8601BeyondTheCalendar) {
    EXPECT_EQ(iso8601(Date()), "1970-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(Date(std::chrono::milliseconds(-1))), "1969-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(referenceDate), "2001-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(Date(std::chrono::seconds(999'999'999'999'999))), "+31690708-07-05T01:46:39Z");
    EXPECT_EQ(iso8601(Date::min()), "-292275055-05-16T16:47:04Z");
    EXPECT_EQ(iso8601(Date::max()), "+292278994-08-17T07:12:55Z");
}

}  // namespace
}  // namespace quillmark
