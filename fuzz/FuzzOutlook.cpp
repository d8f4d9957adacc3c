// Input: a compound file. What comes of it is no more than was in it, and can be checked.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Intake/OutlookMessage.h"
#include "QuillmarkKit/Mail/Message.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    using fuzz::require;
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    const auto message = outlookMessage(file);
    if (!message) return 0;
    require(beginsCompoundFile(file));
    // A character of two bytes becomes three at most.
    std::size_t sum = message->bytes.size();
    require(message->hasBody == MailMessage::parse(message->bytes.view()).body().has_value());
    require(message->attached.size() <= AttachedMessages::mostOf);
    for (const auto& each : message->attached) {
        require(!each.position.empty() && each.position.size() <= AttachedMessages::deepest);
        require(each.isOutlooks || !each.hasBody);
        sum += each.bytes.size();
    }
    require(sum <= 2 * size);
    return 0;
}
