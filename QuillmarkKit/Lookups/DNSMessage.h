#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/DoHReply.h"

/// The wire format of DNS (RFC 1035, section 4.1).
namespace quillmark {

/// A question for the records of one type of a name that `mayBeQueried`, as a message. It asks for recursion,
/// for answers of up to 1,232 bytes over UDP (RFC 6891) and whether they were validated (RFC 6840, section
/// 5.7).
std::string dnsQuestion(std::string_view name, DNSRecordType type, std::uint16_t id);

/// Reads a message that answers that question; what its records say is written as `DNSAnswer` has it. Throws
/// `DNSLookupError`: "unreadable answer", which one to another question is, too; or "DNS status 5".
DoHReply parseDNSMessage(std::string_view message, std::string_view name, DNSRecordType type);

}  // namespace quillmark
