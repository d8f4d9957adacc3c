// A tag list against the plainest reading of it: one map, first come first served.

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Text.h"

using namespace quillmark;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::map<std::string, std::string_view> expected;
    std::optional<std::string> duplicate;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view piece = takePiece(rest, ';');
        const auto equals = piece.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string name = asciiLowered(trimmed(piece.substr(0, equals)));
        if (name.empty()) continue;
        if (!expected.emplace(name, trimmed(piece.substr(equals + 1))).second && !duplicate) duplicate = name;
    }
    const TagList list = TagList::parse(text);
    if (list.tags.size() != expected.size() || list.duplicateTag != duplicate) std::abort();
    for (const auto& [name, value] : expected) {
        if (list.value(name) != value || list.compactValue(name) != withoutWhitespace(value)) std::abort();
    }
    return 0;
}
