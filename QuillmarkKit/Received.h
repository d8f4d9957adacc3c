#pragma once

#include <array>
#include <optional>
#include <string>
#include <tuple>
#include <variant>

#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// The address of the server that handed the message over, as the message's own lines tell it.
struct SenderIP {
    /// Which line the address was taken from.
    struct Source {
        struct ReceivedSPF {
            bool operator==(const ReceivedSPF&) const = default;
        };
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
constexpr auto fieldsOf(const SenderIP::Source::ReceivedSPF*) { return std::tuple{}; }
constexpr auto fieldsOf(const SenderIP::Source::Received*) {
    return std::tuple{Field{"by", &SenderIP::Source::Received::by}};
}
constexpr auto fieldsOf(const SenderIP*) {
    using T = SenderIP;
    return std::tuple{Field{"ip", &T::ip}, Field{"source", &T::source}, Field{"helo", &T::helo}};
}

}  // namespace quillmark
