#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quillmark {

/// An IPv4 or IPv6 address. An IPv4-mapped IPv6 address (::ffff:192.0.2.1) is read as the IPv4 address, so
/// that the two are one value.
class IPAddress {
public:
    /// No bytes: an address of neither family, which is not public and matches only itself.
    IPAddress() = default;

    /// Blanks around the text, the tag "IPv6:" of an address literal (RFC 5321, section 4.1.3) and a zone
    /// index behind "%" are passed over; brackets are not. Otherwise strictly four decimal numbers, or any
    /// form of RFC 4291, section 2.2. Nothing when it is neither, or longer than 64 bytes.
    static std::optional<IPAddress> parse(std::string_view text);

    /// 4 or 16 bytes in network order; valid while the address lives.
    std::span<const std::uint8_t> bytes() const { return {m_bytes.data(), m_size}; }
    bool isIPv4() const { return m_size == 4; }

    /// "192.0.2.1", or the canonical form of RFC 5952: "2001:db8::1".
    std::string description() const;

    /// The form that SPF macros use (RFC 7208, section 7.3): the 32 hexadecimal digits in address order,
    /// joined with "."; the usual form for IPv4.
    std::string dottedNibbles() const;

    /// Whether the address can be reached from anywhere: not private, shared, local to a host or link,
    /// unspecified, multicast or reserved. The ranges for documentation count as public.
    bool isPublic() const;

    /// Whether the first `prefixLength` bits are those of `network`; false for the other family. A length
    /// out of range is taken as the nearest possible.
    bool matches(const IPAddress& network, int prefixLength) const;

    auto operator<=>(const IPAddress&) const = default;

private:
    std::array<std::uint8_t, 16> m_bytes = {};
    std::size_t m_size = 0;
};

}  // namespace quillmark
