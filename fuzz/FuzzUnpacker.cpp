// Input: one byte for the pieces in which it comes, then a packed file. What is unpacked does not depend on
// the pieces, and names of files are texts.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Intake/Unpacker.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/Require.h"

namespace {

using namespace quillmark;
using fuzz::require;

constexpr std::size_t mostOut = 1'000'000;  // bytes that are looked at

/// Everything in it, as one text; nothing when it is faulty or too much.
std::optional<std::string> unpacked(std::string_view file, PackedForm form, std::size_t pieceSize) {
    UnpackedSize size;
    Unpacker unpacker(
        form,
        [&] {
            const std::string_view piece = file.substr(0, pieceSize);
            file.remove_prefix(piece.size());
            return piece;
        },
        size);
    std::string text;
    std::size_t last = 0, given = 0;
    while (const auto next = unpacker.next()) {
        require(next->number > last || next->refusal);
        require(isUTF8(next->name) && next->name.find('\n') == std::string::npos);
        last = next->number;
        text += next->name + '\n';
        if (next->refusal) return std::nullopt;
        ByteBuffer bytes(100);
        while (!unpacker.isAtEnd()) {
            if (unpacker.readOn(bytes, mostOut)) return std::nullopt;
            require(bytes.size() <= mostOut);
            if (bytes.size() == mostOut || text.size() > mostOut) return std::nullopt;
        }
        text += bytes.view();
        given += bytes.size();
    }
    require(given <= size.unpacked);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::string_view file(reinterpret_cast<const char*>(data + 1), size - 1);
    const auto form = packedForm(file);
    if (!form || !Unpacker::canUnpack(*form)) return 0;
    const auto whole = unpacked(file, *form, file.size());
    const auto inPieces = unpacked(file, *form, data[0] % 64 + std::size_t{1});
    require(!whole || !inPieces || *whole == *inPieces);
    return 0;
}
