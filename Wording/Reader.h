#pragma once

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "QuillmarkKit/Support/Date.h"
#include "Wording/Catalogue.h"

namespace quillmark {

/// How far a clock on the wall is ahead of UTC, and what that is called: "CET", "UTC-03".
struct ZoneOffset {
    std::chrono::seconds ahead{};
    std::string name = "UTC";
};
/// The offset of this machine's time zone at a moment. From any thread.
ZoneOffset systemZone(Date date);

/// What the texts call the machine: some of them name another platform than the one they are shown on.
enum class Platform { mac, other };
#ifdef __APPLE__
constexpr Platform nativePlatform = Platform::mac;
#else
constexpr Platform nativePlatform = Platform::other;
#endif

/// Marks a text for the catalogues that is not looked up where it stands.
constexpr std::string_view toTranslate(std::string_view text) { return text; }

/// Who reads: every text that a person sees is made for one. A small value; all of it is a function of its
/// members, so that it may be used from any thread.
///
/// Texts are looked up by the English text that stands in the code. Their arguments are "%1" to "%9", the
/// count "%n"; a "%" before anything else is itself. Arguments are put in once: a "%1" inside one stays.
/// Text that somebody else wrote goes through `forDisplay` before it becomes an argument.
struct Reader {
    Language language = Language::english;
    Platform platform = nativePlatform;
    ZoneOffset (*zone)(Date) = systemZone;

    /// The reader that LC_ALL, LC_MESSAGES or LANG and the system's time zone tell of.
    static Reader ofEnvironment();

    /// `text` in the reader's language.
    std::string translate(std::string_view text,
                          std::initializer_list<std::string_view> arguments = {}) const;
    /// The form that goes with `count`; `translateCount("%n day", "%n days", 2)` is "2 days".
    std::string translateCount(std::string_view one, std::string_view many, std::int64_t count,
                               std::initializer_list<std::string_view> arguments = {}) const;

    /// Adds the next item to a list: "a, b".
    void addTo(std::string& list, std::string_view item) const;
    /// The same for items that are long or have commas themselves: "a, b; c".
    void addClauseTo(std::string& list, std::string_view item) const;

    /// "15 Jan 2026 at 12:00 CET", in the reader's zone and language.
    std::string time(Date date) const;
    /// "15 Jan 2026": the day it is in the reader's zone.
    std::string date(Date date) const;
    /// "12,345": with the separators of the reader's language.
    std::string number(std::int64_t number) const;
};

/// Sentences, one behind the other; what is empty is left out. Between two stands a blank, but behind a mark
/// that is as wide as a letter of Chinese or Japanese ("。"), which brings its own.
std::string sentences(std::initializer_list<std::string_view> each);

}  // namespace quillmark
