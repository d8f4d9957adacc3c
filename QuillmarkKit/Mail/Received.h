#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// The address of the server that handed the message over, as the message's own lines tell it.
struct SenderIP {
    /// Which line the address was taken from.
    struct Source {
        struct ReceivedSPF : Unit {};
        struct Received {
            std::optional<std::string> by = {};  ///< the host that wrote the line
            bool operator==(const Received&) const = default;
        };
        std::variant<ReceivedSPF, Received> value = ReceivedSPF{};
        bool operator==(const Source&) const = default;
    };
    std::string ip = {};
    Source source = {};
    std::optional<std::string> helo = {};  ///< the name that server announced
    bool operator==(const SenderIP&) const = default;
};
constexpr auto casesOf(const SenderIP::Source*) { return std::array{"receivedSPF", "received"}; }
constexpr auto fieldsOf(const SenderIP::Source::Received*) {
    return std::tuple{Field{"by", &SenderIP::Source::Received::by}};
}
constexpr auto fieldsOf(const SenderIP*) {
    using T = SenderIP;
    return std::tuple{Field{"ip", &T::ip}, Field{"source", &T::source}, Field{"helo", &T::helo}};
}

/// What one Received field (RFC 5321, section 4.4) says about its hop, read forgivingly.
struct ReceivedHop {
    std::optional<std::string> fromName = {};  ///< who handed the message over, by its own word
    std::optional<std::string> fromIP = {};    ///< its address, as written
    std::optional<std::string> by = {};        ///< who took it and wrote the field
    bool operator==(const ReceivedHop&) const = default;

    /// From the unfolded value of a field. Never fails: what cannot be found is absent. An address in square
    /// brackets goes before one alone in parentheses, and that before a bare one.
    static ReceivedHop parse(std::string_view value);
};
constexpr auto fieldsOf(const ReceivedHop*) {
    using T = ReceivedHop;
    return std::tuple{Field{"fromName", &T::fromName}, Field{"fromIP", &T::fromIP}, Field{"by", &T::by}};
}

/// The address at which the server that wrote a Received field, of which this is the unfolded value, saw its
/// client: not the one by which the client announced itself, if the field holds another. Servers write the
/// announced name behind "helo=", "HELO" or "EHLO", or else first, and the address behind that. Unlike
/// `ReceivedHop::parse` it finds one of either family alone in parentheses.
std::optional<IPAddress> seenClient(std::string_view value);

/// The server that SPF is judged for: the client of the topmost Received-SPF field, else the topmost public
/// address that a Received field came from. Nothing when no field names one. These lines are part of the
/// message, so that only those which the reader's own provider added can be trusted.
std::optional<SenderIP> senderIP(const MailMessage& message);

/// When the server that wrote a Received field took the message, by its own clock.
std::optional<Date> arrivalDate(std::string_view value);

/// One step on the message's way.
struct PathStep {
    ReceivedHop hop = {};
    std::optional<Date> date = {};  ///< when it arrived there, by that server's clock
    std::optional<std::chrono::milliseconds> delay =
        {};  ///< since the nearest earlier step with a date; negative when clocks disagree
    bool operator==(const PathStep&) const = default;
};

/// All steps that the Received fields tell of, oldest first.
std::vector<PathStep> receivedPath(const MailMessage& message);

}  // namespace quillmark
