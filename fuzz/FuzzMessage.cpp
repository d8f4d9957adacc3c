// Input: one byte for the mode, then a message. Its fields lie in order in its own text and are found again
// by name, and the message written out parses to the same fields and body.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Checks/Damage.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/Require.h"

namespace {

using namespace quillmark;
using fuzz::require;

std::string normalized(std::string_view bytes) {
    std::string text;
    char previous = '\0';
    for (const char c : bytes) {
        if (c == '\r' || (c == '\n' && previous != '\r')) text += "\r\n";
        if (c != '\r' && c != '\n') text += c;
        previous = c;
    }
    return text;
}

void checkFields(const MailMessage& message, std::string_view text) {
    std::size_t at = 0;
    for (const HeaderField& field : message.headers()) {
        at = text.find(field.raw, at);
        require(at != std::string_view::npos);
        at += field.raw.size();
        require(!field.name.empty() && field.raw.starts_with(field.name));
        require(field.raw.size() == field.raw.find(':') + 1 + field.valueBytes().size());
        require(std::ranges::all_of(field.name, [](char c) { return c >= 33 && c <= 126 && c != ':'; }));
        require(isUTF8(field.value()));
    }
    if (message.body()) require(text.ends_with("\r\n" + std::string(*message.body())));
}

void checkLookups(const MailMessage& message) {
    const auto& fields = message.headers();
    if (fields.size() > 200) return;  // the plain search is quadratic
    for (const HeaderField& field : fields) {
        std::vector<std::uint32_t> expected;
        for (std::uint32_t i = 0; i < fields.size(); ++i) {
            if (equalsIgnoringCase(fields[i].name, field.name)) expected.push_back(i);
        }
        require(std::ranges::equal(message.positions(field.name), expected));
        require(message.first(field.name) == &fields[expected.front()]);
        require(message.positions(std::string(field.name) + ":").empty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
    const ParseMode mode = data[0] % 2 == 0 ? ParseMode::strict : ParseMode::lenient;
    const std::string text = normalized(input);
    ByteBuffer bytes{std::string(input) + '\n'};
    bytes.setSize(input.size());  // what lies behind the bytes is none of them
    require(Bytes::normalizedLineEnds(std::move(bytes)).view() == text);

    const auto message = MailMessage::parse(input, mode);
    checkFields(message, text);
    checkLookups(message);
    // What isn't read as a message may have been one: then a line still names a field that each of them has.
    if (damageOfUnread(message)) {
        const std::string lower = asciiLowered(text);
        require(std::ranges::any_of(std::array{"from", "received", "dkim-signature"},
                                    [&](const char* name) { return lower.find(name) != std::string::npos; }));
    }
    if (message.headers().empty()) return 0;  // then a body may look like fields
    // The line of a separator is passed over, so a first field "From : x" does not come again.
    if (message.headers()[0].raw.starts_with("From ")) return 0;
    const auto again = MailMessage::parse(message.bytes(), mode);
    require(again.headers().size() == message.headers().size());
    for (std::size_t i = 0; i < again.headers().size(); ++i) {
        require(again.headers()[i] == message.headers()[i]);
    }
    require(again.body() == message.body());
    return 0;
}
