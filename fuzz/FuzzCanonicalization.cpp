// The streamed canonical forms against the plain reference, for the input as it is and for its cuts.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "QuillmarkKit/Checks/Canonicalization.h"
#include "tests/ReferenceCanonicalization.h"

using namespace quillmark;

namespace {

void compare(std::string_view body, Canonicalization canonicalization) {
    const std::string expected = reference::body(body, canonicalization);
    reference::Kept kept;
    const auto length = canonicalizeBody(body, canonicalization, kept);
    if (kept.text != expected || length != expected.size()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    for (const auto canonicalization : {Canonicalization::simple, Canonicalization::relaxed}) {
        compare(body, canonicalization);
        // A few cuts; the next input of the same length has others.
        const std::size_t first = size > 0 ? data[0] % 8 : 0;
        for (std::size_t cut = 1 + first; cut < size; cut += 8 + size / 4) {
            compare(body.substr(0, cut), canonicalization);
            compare(body.substr(cut), canonicalization);
        }
        const std::uint64_t limit = size / 2;
        BodyHashes hashes(body);
        const std::string expected = reference::body(body, canonicalization);
        if (hashes.hash(canonicalization, HashAlgorithm::sha256, limit).digest !=
            hash(HashAlgorithm::sha256, std::string_view(expected).substr(0, limit))) {
            std::abort();
        }
    }
    reference::Kept field;
    canonicalizeHeader(body, Canonicalization::relaxed, field);
    if (field.text != reference::header(body)) std::abort();
    // A body of several blocks, in which the input stands at a changing place.
    const std::string padded =
        std::string(size % 257 + 200, 'x') + std::string(body) + std::string(300, 'y') + "\r\n";
    compare(padded, Canonicalization::relaxed);
    return 0;
}
