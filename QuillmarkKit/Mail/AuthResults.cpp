#include "QuillmarkKit/Mail/AuthResults.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

/// Takes the next piece that holds more than white space off the front of `rest`; empty when there is none.
std::string_view takeStatement(std::string_view& rest) {
    while (!rest.empty()) {
        const std::string_view piece = trimmed(takePiece(rest, ';'));
        if (!piece.empty()) return piece;
    }
    return {};
}

/// Whether a statement names the instance of an ARC set, blanks around its "=" allowed (RFC 8617,
/// section 4.1.1).
bool isInstance(std::string_view statement) {
    const auto equals = statement.find('=');
    return equals != std::string_view::npos && equalsIgnoringCase(trimmed(statement.substr(0, equals)), "i");
}

/// A property as it stands in its statement: views of the text.
struct Property {
    std::string_view name, value;
};

/// Of several properties with one name the last one stays.
TextMap sortedMap(std::vector<Property> properties) {
    const auto before = [](const Property& a, const Property& b) {
        const int order = compareIgnoringCase(a.name, b.name);
        return order != 0 ? order < 0 : a.name.data() < b.name.data();  // of equal names the earlier first
    };
    if (!std::ranges::is_sorted(properties, before)) std::ranges::sort(properties, before);
    TextMap map;
    for (const Property& property : properties) {
        std::string name = asciiLowered(property.name);
        if (!map.empty() && map.back().first == name) {
            map.back().second = property.value;
        } else {
            map.emplace_back(std::move(name), property.value);
        }
    }
    return map;
}

/// method [ "/" version ] "=" result *( blank name "=" value )
std::optional<AuthResults::Method> parsedMethod(std::string_view statement) {
    const std::string_view outcome = takeWord(statement, " \t");
    const auto equals = outcome.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    std::string_view name = outcome.substr(0, equals);
    AuthResults::Method method;
    method.method = asciiLowered(takePiece(name, '/'));
    if (method.method.empty() || method.method == "none") return std::nullopt;
    method.result = asciiLowered(outcome.substr(equals + 1));
    std::vector<Property> properties;
    for (std::string_view word = takeWord(statement, " \t"); !word.empty();
         word = takeWord(statement, " \t")) {
        const auto cut = word.find('=');
        if (cut == std::string_view::npos) continue;
        properties.push_back({word.substr(0, cut), trimmed(word.substr(cut + 1), "\"")});
    }
    method.properties = sortedMap(std::move(properties));
    return method;
}

}  // namespace

AuthResults AuthResults::parse(std::string_view value, Kind kind) {
    const std::string text = withoutComments(value);
    std::string_view rest = text;
    std::string_view server = takeStatement(rest);
    if (kind == Kind::arc && isInstance(server)) server = takeStatement(rest);
    AuthResults results;
    results.server = takeWord(server, " \t");
    // Growing would hold a hostile list twice; room for more than there can be might not be granted.
    results.methods.reserve(
        static_cast<std::size_t>(std::min(std::ranges::count(rest, ';') + 1, std::ranges::count(rest, '='))));
    for (std::string_view piece = takeStatement(rest); !piece.empty(); piece = takeStatement(rest)) {
        if (auto method = parsedMethod(piece)) results.methods.push_back(std::move(*method));
    }
    return results;
}

}  // namespace quillmark
