#include "QuillmarkKit/Lookups/DNSMessage.h"

#include <arpa/inet.h>

#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::uint16_t classIN = 1, typeOPT = 41, udpPayload = 1232;
// Bits of the second pair of bytes.
constexpr unsigned isResponse = 0x8000, isTruncated = 0x0200, recursionDesired = 0x0100, authenticData = 0x20,
                   statusBits = 0x0F;
constexpr unsigned noError = 0, serverFailure = 2, nameError = 3;
constexpr std::size_t longestName = 255, longestLabel = 63;
constexpr unsigned pointerMark = 0xC0;  // RFC 1035, section 4.1.4

unsigned byteAt(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes[at]); }

void append(std::string& bytes, unsigned value) {
    bytes += static_cast<char>(value >> 8);
    bytes += static_cast<char>(value & 0xFF);
}

/// What stands in a message about the question itself.
std::string question(std::string_view name, DNSRecordType type) {
    std::string bytes;
    for (std::string_view rest = name; !rest.empty();) {
        const std::string_view label = takePiece(rest, '.');
        bytes += static_cast<char>(label.size());
        bytes += label;
    }
    bytes += '\0';
    append(bytes, static_cast<unsigned>(type));
    append(bytes, classIN);
    return bytes;
}

/// Reads a message from front to back. What isn't there throws.
class MessageReader {
public:
    explicit MessageReader(std::string_view message) : m_message(message) {}

    std::string_view take(std::size_t size) {
        if (size > m_message.size() - m_at) throw DNSLookupError("unreadable answer");
        return m_message.substr(std::exchange(m_at, m_at + size), size);
    }
    unsigned take16() {
        const std::string_view two = take(2);
        return byteAt(two, 0) << 8 | byteAt(two, 1);
    }
    std::size_t at() const { return m_at; }

    /// A name in its presentation form with a dot at the end (RFC 1035, section 5.1). Pointers lead towards
    /// the front only, so that they come to an end.
    std::string takeName() {
        std::string name;
        std::size_t size = 1, next = m_at;
        std::optional<std::size_t> end;  // behind the first pointer
        for (std::size_t lowest = m_at;;) {
            if (next >= m_message.size()) throw DNSLookupError("unreadable answer");
            const unsigned length = byteAt(m_message, next);
            if (length >= pointerMark) {
                if (next + 1 >= m_message.size()) throw DNSLookupError("unreadable answer");
                if (!end) end = next + 2;
                next = (length & ~pointerMark) << 8 | byteAt(m_message, next + 1);
                if (next >= lowest) throw DNSLookupError("unreadable answer");
                lowest = next;
                continue;
            }
            if (length == 0) break;
            size += length + 1;
            if (length > longestLabel || size > longestName || length >= m_message.size() - next)
                throw DNSLookupError("unreadable answer");
            appendLabel(name, m_message.substr(next + 1, length));
            next += length + 1;
        }
        m_at = end.value_or(next + 1);
        return name.empty() ? "." : name;
    }

private:
    static void appendLabel(std::string& name, std::string_view label) {
        for (const char c : label) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte > ' ' && byte < 0x7F) {
                if (c == '.' || c == '\\') name += '\\';
                name += c;
            } else {
                const auto digit = [](unsigned value) { return static_cast<char>('0' + value % 10); };
                name += {'\\', digit(byte / 100), digit(byte / 10), digit(byte)};
            }
        }
        name += '.';
    }

    const std::string_view m_message;
    std::size_t m_at = 0;
};

/// The data of a record as `DNSAnswer` has it. The reader stands before it.
std::string recordData(MessageReader& reader, DNSRecordType type, std::size_t size) {
    const std::size_t end = reader.at() + size;
    std::string text;
    switch (type) {
        case DNSRecordType::a:
        case DNSRecordType::aaaa: {
            const bool isV4 = type == DNSRecordType::a;
            const std::string_view bytes = reader.take(isV4 ? sizeof(in_addr) : sizeof(in6_addr));
            std::array<char, INET6_ADDRSTRLEN> address = {};
            inet_ntop(isV4 ? AF_INET : AF_INET6, bytes.data(), address.data(), address.size());
            text = address.data();
            break;
        }
        case DNSRecordType::mx:
            text = std::to_string(reader.take16()) + " ";
            text += reader.takeName();
            break;
        case DNSRecordType::txt:
            while (reader.at() < end) text += repairedUTF8(reader.take(byteAt(reader.take(1), 0)));
            break;
    }
    if (reader.at() != end) throw DNSLookupError("unreadable answer");
    return text;
}

}  // namespace

std::string dnsQuestion(std::string_view name, DNSRecordType type, std::uint16_t id) {
    std::string message;
    append(message, id);
    append(message, recursionDesired | authenticData);
    for (const unsigned count : {1u, 0u, 0u, 1u}) append(message, count);
    message += question(name, type);
    message += '\0';  // the root, whose OPT record says how much we take
    append(message, typeOPT);
    append(message, udpPayload);
    message.append(6, '\0');
    return message;
}

DoHReply parseDNSMessage(std::string_view message, std::string_view name, DNSRecordType type) {
    MessageReader reader(message);
    reader.take(2);
    const unsigned flags = reader.take16(), questions = reader.take16(), answers = reader.take16();
    reader.take(4);  // the counts of records that nobody asked for
    if (!(flags & isResponse) || (flags & isTruncated) || questions > 1 || answers > DoHReply::recordLimit)
        throw DNSLookupError("unreadable answer");
    if (questions == 1) {
        const std::string asked = question(name, type);
        if (!equalsIgnoringCase(reader.take(asked.size()), asked)) throw DNSLookupError("unreadable answer");
    }
    const unsigned status = flags & statusBits;
    if (status == serverFailure) return {DoHReply::Servfail{}};
    const auto answered = [&](DNSAnswer answer) {
        answer.isValidated = (flags & authenticData) != 0;
        return DoHReply{std::move(answer)};
    };
    if (status == nameError) return answered(DNSAnswer::nxdomain());
    if (status != noError) throw DNSLookupError("DNS status " + std::to_string(status));

    std::vector<std::string> records;
    for (unsigned i = 0; i < answers; ++i) {
        reader.takeName();
        const unsigned recordType = reader.take16(), recordClass = reader.take16();
        reader.take(4);  // how long it may be kept
        const std::size_t size = reader.take16();
        if (recordType == static_cast<unsigned>(type) && recordClass == classIN)
            records.push_back(recordData(reader, type, size));
        else
            reader.take(size);
    }
    if (records.empty()) return answered(DNSAnswer::noData());
    return answered(DNSAnswer::records(std::move(records)));
}

}  // namespace quillmark
