#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"

/// Lists of keys, as people hand them to each other (docs/formats.md).
namespace quillmark {

/// What a file says of keys.
struct KeyList {
    std::vector<KnownKey> keys = {};  ///< each from a file, and a key by its record
    std::size_t passedOver = 0;       ///< entries that are no keys, or have no name that DNS can hold
};

/// Reads a list: one that `keyListJSON` wrote; a recording or another file with answers; a JSON list of
/// objects with `domain`, `selector`, `value` and perhaps `firstSeenAt` and `lastSeenAt`; or TXT records as
/// they stand in a zone file (RFC 1035, section 5). `file` says so, and was added at `now`; without times a
/// key counts as seen then. Throws `DecodingError` when it is none of these.
KeyList readKeyList(std::string_view bytes, const std::string& file, Date now);

/// An export: all that a book knows of these keys, as JSON with a line end.
std::string keyListJSON(std::span<const KnownKey> keys);

/// What tells a key apart from others, as other programs print it: the SHA-256, in hexadecimal, of its DER
/// form (SubjectPublicKeyInfo, RFC 5280, section 4.1.2.7; RFC 8410 for Ed25519).
std::string fingerprint(const DKIMKeyRecord& key);
/// How long an RSA key's modulus is, in bits; nothing for another key, or what is none.
std::optional<int> rsaBits(const DKIMKeyRecord& key);

}  // namespace quillmark
