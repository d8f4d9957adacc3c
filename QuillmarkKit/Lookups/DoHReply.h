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
    struct Servfail : Unit {};
    std::variant<DNSAnswer, Servfail> value = Servfail{};
    bool operator==(const DoHReply&) const = default;

    /// A longer body, more records in it and longer data in a record are no readable answer.
    static constexpr std::size_t bodyLimit = 1 << 20, recordLimit = 1000, dataLimit = 65'535;

    /// Reads a body that answers a question for records of `type`. Throws `DNSLookupError`: "unreadable
    /// answer", or "DNS status 5" for a status (RFC 1035, section 4.1.1) that is none of 0, 2 and 3.
    static DoHReply parse(std::string_view json, DNSRecordType type);
};

/// The data of one TXT record, the presentation form (RFC 1035, section 5.1) undone: `"v=DKIM1; " "p=\059"`
/// is `v=DKIM1; p=;`. Text without a double quote stays as it is; what stands outside quotes and a string
/// that is not closed are dropped.
std::string unquotedTXT(std::string_view data);

}  // namespace quillmark
