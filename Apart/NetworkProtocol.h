#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Apart/Wire.h"
#include "QuillmarkKit/Lookups/DNS.h"

/// What the window and the process that asks the network for it (`NetworkProcess`) tell each other: questions
/// from any thread, and their answers as they come. Whoever took that process over may send anything.
namespace quillmark {

enum class NetworkKind : std::uint32_t {
    lookup,        ///< DNS: `SentQuestion` → `SentAnswer`, `AskerNotes`, whether a service rests
    registration,  ///< a domain, until when → `SentRegistration`
    stop,          ///< that nobody waits for the answer to this question, if any → nothing, but at once
    answer,
};

/// Before each piece.
struct NetworkHead {
    std::uint64_t number = 0;  ///< of the question
    NetworkKind kind = NetworkKind::answer;
    std::uint32_t size = 0;  ///< bytes that follow
};

/// Of a piece, in bytes: more than any answer of DNS that is taken (`DoHReply::bodyLimit`).
constexpr std::size_t largestNetworkPiece = 4 << 20;

/// What `DNSAsker` knows, on its way to and fro.
struct AskerNotes {
    std::vector<std::string> failed = {}, slow = {};
};
struct SentQuestion {
    std::string_view choice = {};  ///< who is asked (`chosenResolver`)
    std::string_view name = {};
    int type = 0;
    std::int64_t deadline = 0;  ///< `sentTime`
    AskerNotes asker = {};
};

/// What came of a question to DNS: the data of records, or that there are none; or why nobody knows.
struct SentAnswer {
    std::optional<std::string> failure = {};
    bool hasRecords = false, nameExists = false, isValidated = false;
    std::vector<std::string_view> data = {};
    std::string source = {};
};
/// The answer must live longer.
inline SentAnswer sentAnswer(const DNSAnswer& answer, std::string source) {
    return {.hasRecords = std::holds_alternative<DNSAnswer::Records>(answer.value),
            .nameExists = !std::holds_alternative<DNSAnswer::NXDomain>(answer.value),
            .isValidated = answer.isValidated,
            .data = {answer.data().begin(), answer.data().end()},
            .source = std::move(source)};
}
/// Of one that is no failure.
inline DNSAnswer receivedAnswer(const SentAnswer& sent) {
    DNSAnswer answer = sent.nameExists ? DNSAnswer::noData() : DNSAnswer::nxdomain();
    if (sent.hasRecords) answer = DNSAnswer::records({sent.data.begin(), sent.data.end()});
    answer.isValidated = sent.isValidated;
    return answer;
}

struct SentRegistration {
    std::optional<std::string> failure = {};
    std::optional<Date> date = {};
    std::string source = {};
    std::string_view ignored = {};  ///< the file that `RDAPOptions::ignored` was told
};

/// A time of `Patience::Clock`, which all processes share, in nanoseconds.
inline std::int64_t sentTime(Patience::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}
inline Patience::Clock::time_point receivedTime(std::int64_t nanoseconds) {
    return Patience::Clock::time_point(
        std::chrono::duration_cast<Patience::Clock::duration>(std::chrono::nanoseconds(nanoseconds)));
}

// How it is packed.

constexpr auto fieldsOf(const AskerNotes*) { return packedFields(&AskerNotes::failed, &AskerNotes::slow); }
constexpr auto fieldsOf(const SentQuestion*) {
    using T = SentQuestion;
    return packedFields(&T::choice, &T::name, &T::type, &T::deadline, &T::asker);
}
constexpr auto fieldsOf(const SentAnswer*) {
    using T = SentAnswer;
    return packedFields(&T::failure, &T::hasRecords, &T::nameExists, &T::isValidated, &T::data, &T::source);
}
constexpr auto fieldsOf(const SentRegistration*) {
    using T = SentRegistration;
    return packedFields(&T::failure, &T::date, &T::source, &T::ignored);
}

}  // namespace quillmark
