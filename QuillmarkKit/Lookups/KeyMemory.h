#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Support/Date.h"

/// Public keys that DNS no longer has, for messages that are older than their keys. What is known of a key
/// never changes a finding.
namespace quillmark {

/// A key record that stood in DNS under a name, and who says so.
struct KnownKey {
    /// That this is so is said by a file, which can say anything.
    struct File {
        std::string name = {};
        Date addedAt = {};
        bool operator==(const File&) const = default;
    };
    std::string name = {};    ///< "s1._domainkey.example.org": in lower case, as DNS has it
    std::string record = {};  ///< the TXT text
    Date firstSeen = {}, lastSeen = {};
    std::string service = {};       ///< that answered, by its host; may be empty
    bool isValidated = false;       ///< it said at least once that it validated the answer
    std::optional<File> file = {};  ///< nothing: this computer saw the key in DNS itself
    bool operator==(const KnownKey&) const = default;
};

/// What a check asks where a key is gone, and tells of those that it saw.
class KeyMemory {
public:
    KeyMemory() = default;
    KeyMemory(const KeyMemory&) = delete;
    KeyMemory& operator=(const KeyMemory&) = delete;
    virtual ~KeyMemory() = default;

    /// The keys that a name is known to have had, at most `mostKeysOfName`: those that this computer saw come
    /// first, the one seen last before the others. Never throws; nor does the other. Safe from many threads
    /// at once.
    virtual std::vector<KnownKey> keysOf(std::string_view name) = 0;
    /// DNS was just asked for a name, and these are key records of it.
    virtual void saw(std::string_view name, std::span<const std::string> records, const std::string& service,
                     bool isValidated) = 0;

    static constexpr std::size_t mostKeysOfName = 16;
};

}  // namespace quillmark
