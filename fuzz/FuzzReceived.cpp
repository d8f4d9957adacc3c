// Received and Received-SPF values: what is found stands in the value, an address is an address, and the
// sender of a whole message is one that can be judged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Mail/Received.h"
#include "QuillmarkKit/Support/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::string value = decodedText(input);
    const auto hop = ReceivedHop::parse(value);
    for (const auto& piece : {hop.fromName, hop.fromIP, hop.by}) {
        if (piece && value.find(*piece) == std::string::npos) std::abort();
    }
    if (hop.fromIP && !IPAddress::parse(*hop.fromIP)) std::abort();

    const MailMessage message = MailMessage::parse("Received: " + std::string(input));
    if (const auto sender = senderIP(message)) {
        const auto address = IPAddress::parse(sender->ip);
        const bool isFromHop = std::holds_alternative<SenderIP::Source::Received>(sender->source.value);
        if (!address || (isFromHop && !address->isPublic())) std::abort();
    }
    if (receivedPath(message).size() != message.positions("Received").size()) std::abort();
    return 0;
}
