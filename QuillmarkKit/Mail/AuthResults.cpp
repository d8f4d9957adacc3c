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

std::string_view nameOfProperty(std::string_view property) { return property.substr(0, property.find('=')); }

/// The properties of one statement, as they stand in it. Of several with one name the last one stays.
TextMap sortedMap(std::vector<std::string_view> properties) {
    const auto before = [](std::string_view a, std::string_view b) {
        const int order = compareIgnoringCase(nameOfProperty(a), nameOfProperty(b));
        return order != 0 ? order < 0 : a.data() < b.data();  // of equal names the earlier first
    };
    if (!std::ranges::is_sorted(properties, before)) std::ranges::sort(properties, before);
    TextMap map;
    for (std::size_t i = 0; i < properties.size(); ++i) {
        const std::string_view name = nameOfProperty(properties[i]);
        if (i + 1 < properties.size() && equalsIgnoringCase(name, nameOfProperty(properties[i + 1])))
            continue;
        map.push_back({asciiLowered(name), trimmed(properties[i].substr(name.size() + 1), "\"")});
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
    std::vector<std::string_view> properties;
    for (std::string_view word = takeWord(statement, " \t"); !word.empty();
         word = takeWord(statement, " \t")) {
        if (word.find('=') != std::string_view::npos) properties.push_back(word);
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
    for (std::string_view piece = takeStatement(rest); !piece.empty(); piece = takeStatement(rest)) {
        if (const auto method = parsedMethod(piece)) results.methods.push_back(*method);
    }
    return results;
}

}  // namespace quillmark
