// Writing down what was read and reading it again gives the same, however odd the field was.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Mail/AuthResults.h"
#include "QuillmarkKit/Support/Text.h"

namespace {

using namespace quillmark;

std::string written(const AuthResults& results) {
    std::string text = results.server;
    for (const AuthResults::Method& method : results.methods) {
        text += ";" + method.method + "=" + method.result;
        for (const NamedText& each : method.properties)
            text.append(" ").append(each.name).append("=").append(each.text);
    }
    return text;
}

/// Whether nothing in `text` needed quotes, or was white space that separates in one place and not in
/// another.
bool isPlain(std::string_view text) {
    const auto blanks = static_cast<std::size_t>(std::ranges::count(text, ' '));
    return text.find_first_of("()\"") == std::string_view::npos &&
           withoutWhitespace(text).size() + blanks == text.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string value = decodedText(std::string_view(reinterpret_cast<const char*>(data), size));
    for (const auto kind : {AuthResults::Kind::authenticationResults, AuthResults::Kind::arc}) {
        const AuthResults results = AuthResults::parse(value, kind);
        if (!isUTF8(written(results))) std::abort();
        for (const AuthResults::Method& method : results.methods) {
            if (method.method.empty() || method.method == "none") std::abort();
            std::optional<std::string_view> before;
            for (const NamedText& each : method.properties) {
                if (before && *before >= each.name) std::abort();
                before = each.name;
            }
        }
        // What stood in quotes cannot be written again, nor a server that looks like an instance.
        const std::string again = written(results);
        const bool hasInstance = startsWithIgnoringCase(results.server, "i=");
        if (results.server.empty() || hasInstance || !isPlain(again)) continue;
        if (AuthResults::parse(again, kind) != results) std::abort();
    }
    return 0;
}
