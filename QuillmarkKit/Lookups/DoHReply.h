#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// What one DNS-over-HTTPS service replied, as JSON.
struct DoHReply {
    /// The members that must be what they should be; all others are passed over.
    struct Reply {
        struct RR {
            int type = 0;
            std::optional<std::string> data = {};
        };
        int status = 0;
        std::optional<std::vector<RR>> answer = {};
    };

    struct Servfail {
        bool operator==(const Servfail&) const = default;
    };
    std::variant<DNSAnswer, Servfail> value = Servfail{};
    bool operator==(const DoHReply&) const = default;

    /// A longer body, more records in it and longer data in a record are no readable answer.
    static constexpr std::size_t bodyLimit = 1 << 20, recordLimit = 1000, dataLimit = 65'535;

    /// Reads a body that answers a question for records of `type`. Throws `DNSLookupError`: "unreadable
    /// answer", or "DNS status 5" for a status (RFC 1035, section 4.1.1) that is none of 0, 2 and 3.
    static DoHReply parse(std::string_view json, DNSRecordType type);
};

constexpr auto fieldsOf(const DoHReply::Reply::RR*) {
    using T = DoHReply::Reply::RR;
    return std::tuple{Field{"type", &T::type}, Field{"data", &T::data}};
}
constexpr auto fieldsOf(const DoHReply::Reply*) {
    using T = DoHReply::Reply;
    return std::tuple{Field{"Status", &T::status}, Field{"Answer", &T::answer}};
}

/// The data of one TXT record, the presentation form (RFC 1035, section 5.1) undone: `"v=DKIM1; " "p=\059"`
/// is `v=DKIM1; p=;`. Text without a double quote stays as it is; what stands outside quotes and a string
/// that is not closed are dropped.
std::string unquotedTXT(std::string_view data);

}  // namespace quillmark
