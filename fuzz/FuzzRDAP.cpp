// A domain, a line end, and what somebody answered: read as the list of the registries' services and as a
// registry's answer about the domain.

#include <cstddef>
#include <cstdint>
#include <string>

#include "QuillmarkKit/Lookups/RDAP.h"
#include "fuzz/InputResolver.h"

namespace {

using namespace quillmark;
using fuzz::require;

/// The first service of the longest ending, from the definition.
std::optional<std::string> plainBase(const RDAPBootstrap& list, std::string_view domain) {
    domain = trimmed(domain, ".");
    std::string_view longest;
    std::optional<std::string> base;
    for (const auto& service : list.services) {
        if (service.bases.empty()) continue;
        for (const std::string& ending : service.domains) {
            if (ending.size() <= longest.size() || !domain.ends_with("." + ending)) continue;
            longest = ending;
            base = service.bases.front();
        }
    }
    if (base && !base->ends_with('/')) *base += '/';
    return base;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view json(reinterpret_cast<const char*>(data), size);
    const std::string domain = repairedUTF8(takePiece(json, '\n'));
    if (const auto list = RDAPBootstrap::parse(json)) {
        for (const auto& service : list->services) {
            for (const std::string& base : service.bases) {
                require(startsWithIgnoringCase(base, "https://"));
                require(base.find_first_of("@?#") == std::string::npos);
            }
        }
        require(list->base(domain) == plainBase(*list, domain));
    }
    if (const auto date = registrationDate(json)) require(parsedRFC3339(rfc3339(*date)) == date);
    return 0;
}
