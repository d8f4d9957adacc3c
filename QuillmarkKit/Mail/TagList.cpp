#include "QuillmarkKit/Mail/TagList.h"

#include <algorithm>
#include <cstdint>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

/// The first eight bytes of a name, in lower case, as a number that sorts as they do; zero behind its end.
std::uint64_t sortKey(std::string_view name) {
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < sizeof key; ++i) {
        key = key << 8 | static_cast<unsigned char>(i < name.size() ? asciiLowered(name[i]) : '\0');
    }
    return key;
}

/// A tag to be sorted. The key settles most comparisons without a look at the text, which for millions of
/// names lies in no cache.
struct Entry {
    std::uint64_t key;
    std::size_t position;  // in the text's order
};

}  // namespace

TagList TagList::parse(std::string_view text) {
    constexpr std::size_t usualTags = 16;
    std::vector<Tag> written;  // in the text's order, repetitions included
    written.reserve(usualTags);
    while (!text.empty()) {
        const std::string_view piece = takePiece(text, ';');
        const auto equals = piece.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view name = trimmed(piece.substr(0, equals));
        if (!name.empty()) written.push_back({name, trimmed(piece.substr(equals + 1))});
    }
    std::vector<Entry> order;
    order.reserve(written.size());
    for (const Tag& tag : written) order.push_back({sortKey(tag.name), order.size()});
    const auto before = [&](const Entry& a, const Entry& b) {
        if (a.key != b.key) return a.key < b.key;
        const int names = compareIgnoringCase(written[a.position].name, written[b.position].name);
        return names != 0 ? names < 0 : a.position < b.position;  // of equal names the earlier first
    };
    if (!std::ranges::is_sorted(order, before)) std::ranges::sort(order, before);

    TagList list;
    list.tags.reserve(written.size());
    std::size_t firstRepetition = written.size();
    for (const auto& [key, position] : order) {
        if (!list.tags.empty() && equalsIgnoringCase(list.tags.back().name, written[position].name)) {
            firstRepetition = std::min(firstRepetition, position);
        } else {
            list.tags.push_back(written[position]);
        }
    }
    if (firstRepetition < written.size()) list.duplicateTag = asciiLowered(written[firstRepetition].name);
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
