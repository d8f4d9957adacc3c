#include "QuillmarkKit/Mail/IPAddress.h"

#include <arpa/inet.h>

#include <algorithm>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestAddressText = 64;
constexpr std::array<std::uint8_t, 12> mappedPrefix = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

bool isPublicIPv4(std::uint8_t a, std::uint8_t b) {
    if (a == 0 || a == 10 || a == 127) return false;
    if (a == 100 && b >= 64 && b <= 127) return false;
    if (a == 169 && b == 254) return false;
    if (a == 172 && b >= 16 && b <= 31) return false;
    if (a == 192 && b == 168) return false;
    return a < 224;
}

bool isPublicIPv6(std::span<const std::uint8_t> bytes) {
    const auto isZero = [](std::uint8_t byte) { return byte == 0; };
    if (std::ranges::all_of(bytes.first(15), isZero)) return bytes[15] > 1;
    if ((bytes[0] & 0xFE) == 0xFC || bytes[0] == 0xFF) return false;
    return !(bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80);
}

}  // namespace

std::optional<IPAddress> IPAddress::parse(std::string_view text) {
    text = trimmedBlanks(text);
    if (text.size() > longestAddressText) return std::nullopt;
    if (startsWithIgnoringCase(text, "ipv6:")) text.remove_prefix(5);
    text = takePiece(text, '%');
    if (text.find('\0') != std::string_view::npos) return std::nullopt;  // would end the C string early

    const std::string terminated(text);
    IPAddress address;
    if (inet_pton(AF_INET, terminated.c_str(), address.m_bytes.data()) == 1) {
        address.m_size = 4;
        return address;
    }
    address.m_bytes = {};
    if (inet_pton(AF_INET6, terminated.c_str(), address.m_bytes.data()) != 1) return std::nullopt;
    address.m_size = 16;
    if (std::ranges::equal(address.bytes().first(mappedPrefix.size()), mappedPrefix)) {
        const auto low = address.m_bytes;
        address.m_bytes = {low[12], low[13], low[14], low[15]};
        address.m_size = 4;
    }
    return address;
}

std::string IPAddress::description() const {
    if (m_size == 0) return {};
    std::array<char, INET6_ADDRSTRLEN> text = {};
    inet_ntop(isIPv4() ? AF_INET : AF_INET6, m_bytes.data(), text.data(), text.size());
    return text.data();
}

std::string IPAddress::dottedNibbles() const {
    if (m_size != 16) return description();
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes()) {
        text += digits[byte >> 4];
        text += '.';
        text += digits[byte & 0xF];
        text += '.';
    }
    text.pop_back();
    return text;
}

bool IPAddress::isPublic() const {
    if (m_size == 0) return false;
    return isIPv4() ? isPublicIPv4(m_bytes[0], m_bytes[1]) : isPublicIPv6(bytes());
}

bool IPAddress::matches(const IPAddress& network, int prefixLength) const {
    if (m_size != network.m_size) return false;
    const auto bits = static_cast<std::size_t>(std::clamp(prefixLength, 0, static_cast<int>(m_size) * 8));
    const std::size_t whole = bits / 8, rest = bits % 8;
    if (!std::equal(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(whole),
                    network.m_bytes.begin())) {
        return false;
    }
    return rest == 0 || (m_bytes[whole] ^ network.m_bytes[whole]) >> (8 - rest) == 0;
}

}  // namespace quillmark
