// Records, hosts and senders from the input. However they refer to each other, the number of lookups is
// bounded and exactly one reason is given.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "QuillmarkKit/Checks/SPF.h"
#include "fuzz/InputResolver.h"

namespace {

using namespace quillmark;

struct ShortNames : fuzz::InputResolver {
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override {
        fuzz::require(name.size() <= 4096);
        return InputResolver::lookup(name, type, patience);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ShortNames resolver;
    resolver.rest = {reinterpret_cast<const char*>(data), size};
    const auto address =
        IPAddress::parse(takePiece(resolver.rest, '\n')).value_or(*IPAddress::parse("192.0.2.7"));
    const std::string sender = repairedUTF8(takePiece(resolver.rest, '\n'));
    const auto outcome = SPFEvaluator{resolver}.evaluate(address, "d.example", sender, "helo.example");
    if (outcome.matched.has_value() == outcome.detail.has_value()) std::abort();
    if (!isUTF8(outcome.matched.value_or("") + outcome.detail.value_or(""))) std::abort();
    // A record at the top and at each counted term, or ten hosts and their MX answer in place of it.
    if (resolver.questions > 1 + 10 * 11) std::abort();
    return 0;
}
