#include "QuillmarkKit/AuthResults.h"

#include <algorithm>
#include <iterator>
#include <optional>

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

/// Of several properties with one name the last one stays.
void sortAndKeepLast(TextMap& properties) {
    std::ranges::stable_sort(properties, {},
                             [](const auto& property) -> const std::string& { return property.first; });
    const auto sameName = [](const auto& a, const auto& b) { return a.first == b.first; };
    const auto kept = std::unique(properties.rbegin(), properties.rend(), sameName);
    properties.erase(properties.begin(), kept.base());
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
    for (std::string_view word = takeWord(statement, " \t"); !word.empty();
         word = takeWord(statement, " \t")) {
        const auto cut = word.find('=');
        if (cut == std::string_view::npos) continue;
        method.properties.emplace_back(asciiLowered(word.substr(0, cut)),
                                       trimmed(word.substr(cut + 1), "\""));
    }
    sortAndKeepLast(method.properties);
    return method;
}

}  // namespace

AuthResults AuthResults::parse(std::string_view value, Kind kind) {
    const std::string text = withoutComments(value);
    std::string_view rest = text;
    std::string_view server = takeStatement(rest);
    if (kind == Kind::arc && startsWithIgnoringCase(server, "i=")) server = takeStatement(rest);
    AuthResults results;
    results.server = takeWord(server, " \t");
    for (std::string_view piece = takeStatement(rest); !piece.empty(); piece = takeStatement(rest)) {
        if (auto method = parsedMethod(piece)) results.methods.push_back(std::move(*method));
    }
    return results;
}

}  // namespace quillmark
