#pragma once

#include <cstddef>
#include <vector>

#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Lookups/KeyMemory.h"
#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// What a signature whose key DNS doesn't have comes to under a key that the name is known to have had.
struct GoneKey {
    enum class Fit {
        holds,  ///< it would have passed
        /// This key made it, but over another message. Told only of keys that this computer saw.
        changed,
    };
    std::size_t signature = 0;  ///< its place among the results, from 0
    KnownKey key = {};
    Fit fit = Fit::holds;
    DKIMResult result = {};  ///< as it would have been
};

constexpr auto namesOf(GoneKey::Fit) {
    return EnumTable<GoneKey::Fit, 2>{EnumStyle::word, {"holds", "changed"}};
}

/// Tries the known keys for each signature of the message whose key isn't published, by the ordinary checker;
/// of a key that somebody withdrew in DNS nothing is to be proven any more. `results`: of its first
/// signatures, in their order. At most one finding for each.
std::vector<GoneKey> goneKeys(const SignatureChecker& checker, const std::vector<DKIMResult>& results,
                              KeyMemory& memory);

}  // namespace quillmark
