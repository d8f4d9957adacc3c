#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Support/Date.h"

/// Time stamps (RFC 3161): an authority signs that a digest existed at a time. With `Crypto`, the home of
/// OpenSSL.
namespace quillmark {

/// The request for a SHA-256 digest (32 bytes), DER. It holds nothing else, no nonce either: an old stamp of
/// the same digest is as good.
std::string timeStampRequest(std::string_view digest);

/// What an authority's reply says.
struct TimeStamp {
    Date at = {};
    std::string authority = {};  ///< its name in its certificate; somebody else's text
    /// Its certificate leads to one that is trusted, and held at that time. Without that a stamp proves
    /// nothing: anybody can make an authority.
    bool isTrusted = false;
};

/// Reads a reply (DER), without asking anybody. Nothing unless it is a granted stamp of this digest whose
/// signature fits the certificate in it. `trusted`: certificates of authorities, PEM, beside those of the
/// system.
std::optional<TimeStamp> timeStamp(std::string_view reply, std::string_view digest,
                                   const std::optional<std::string>& trusted = {});

}  // namespace quillmark
