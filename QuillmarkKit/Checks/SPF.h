#pragma once

#include <array>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Mail/Received.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// The outcome of an SPF check (RFC 7208, section 2.6).
enum class SPFResult { pass, fail, softfail, neutral, none, permerror, temperror };
constexpr auto namesOf(SPFResult) {
    return enumTable<SPFResult>(EnumStyle::word,
                                {"pass", "fail", "softfail", "neutral", "none", "permerror", "temperror"});
}

/// Whether the server that handed the message over may send for the envelope's domain (RFC 7208).
struct SPFFinding {
    struct Status {
        struct Judged {
            SPFResult result = SPFResult::none;
            bool operator==(const Judged&) const = default;
        };
        struct NoEnvelopeSender : Unit {};
        struct NoSenderIP : Unit {};
        std::variant<Judged, NoEnvelopeSender, NoSenderIP> value = NoSenderIP{};
        bool operator==(const Status&) const = default;
    };
    Status status = {};
    std::optional<std::string> domain = {};   ///< the envelope domain that was checked
    std::optional<SenderIP> ip = {};          ///< the address that was judged, and where it came from
    std::optional<std::string> matched = {};  ///< the term that decided
    std::optional<std::string> detail = {};   ///< why no term decided
    bool operator==(const SPFFinding&) const = default;
};
constexpr auto casesOf(const SPFFinding::Status*) {
    return std::array{"judged", "noEnvelopeSender", "noSenderIP"};
}
constexpr auto fieldsOf(const SPFFinding::Status::Judged*) {
    return std::tuple{Field{"_0", &SPFFinding::Status::Judged::result}};
}
constexpr auto fieldsOf(const SPFFinding*) {
    using T = SPFFinding;
    return std::tuple{Field{"status", &T::status}, Field{"domain", &T::domain}, Field{"ip", &T::ip},
                      Field{"matched", &T::matched}, Field{"detail", &T::detail}};
}

/// Asks a domain's published record whether a server may send its mail (RFC 7208, section 4). Not as there:
/// `ptr` never matches, the macro `p` is an error, errors behind the term that decides aren't seen, and the
/// last of several `redirect` counts. For any number of evaluations; it must not outlive its resolver.
struct SPFEvaluator {
    /// The term that decided, in the record to which include and redirect led.
    struct Decider {
        std::string term = {};       ///< "ip4:192.0.2.0/24 in spf.example.net"
        bool fitsAlmostAny = false;  ///< `all`, or servers of more than a /8 (IPv4) or a /16 (IPv6)
        bool operator==(const Decider&) const = default;
    };
    /// Exactly one of `matched` and `detail` is there.
    struct Outcome {
        SPFResult result = SPFResult::none;
        std::optional<std::string> matched = {};  ///< the term that decided: "-all in example.org"
        std::optional<std::string> detail = {};   ///< why no term decided
        std::optional<Decider> decider = {};      ///< there with `matched`
        bool operator==(const Outcome&) const = default;
    };

    DNSResolver& resolver;

    /// Judges the server at `address` that announced itself as `helo` for mail of `sender` (the envelope's
    /// address), whose domain is `domain`. Blocks for at most 11 records, 10 terms and 10 hosts for each `mx`
    /// term. Never throws but for want of memory: an error of the resolver, and a stop, is a `temperror`.
    Outcome evaluate(const IPAddress& address, std::string_view domain, std::string_view sender,
                     std::optional<std::string_view> helo = {}, std::stop_token stop = {}) const;
};

}  // namespace quillmark
