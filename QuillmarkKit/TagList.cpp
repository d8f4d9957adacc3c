#include "QuillmarkKit/TagList.h"

#include <algorithm>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

TagList TagList::parse(std::string_view text) {
    TagList list;
    while (!text.empty()) {
        const std::string_view piece = takePiece(text, ';');
        const auto equals = piece.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view name = trimmed(piece.substr(0, equals));
        if (!name.empty()) list.tags.push_back({name, trimmed(piece.substr(equals + 1))});
    }
    std::ranges::sort(list.tags, [](const Tag& a, const Tag& b) {
        const int order = compareIgnoringCase(a.name, b.name);
        return order != 0 ? order < 0 : a.name.data() < b.name.data();  // of equal names the earlier first
    });
    const char* firstSecond = nullptr;  // where in the text the first repetition stands
    const auto repeated = [&](const Tag& earlier, const Tag& later) {
        if (compareIgnoringCase(earlier.name, later.name) != 0) return false;
        if (!firstSecond || later.name.data() < firstSecond) {
            firstSecond = later.name.data();
            list.duplicateTag = asciiLowered(later.name);
        }
        return true;
    };
    list.tags.erase(std::unique(list.tags.begin(), list.tags.end(), repeated), list.tags.end());
    return list;
}

std::optional<std::string_view> TagList::value(std::string_view name) const {
    const auto tag = std::ranges::lower_bound(
        tags, 0, {}, [&](const Tag& t) { return compareIgnoringCase(t.name, name); });
    if (tag == tags.end() || compareIgnoringCase(tag->name, name) != 0) return std::nullopt;
    return tag->value;
}

std::optional<std::string> TagList::compactValue(std::string_view name) const {
    const auto found = value(name);
    if (!found) return std::nullopt;
    return withoutWhitespace(*found);
}

}  // namespace quillmark
