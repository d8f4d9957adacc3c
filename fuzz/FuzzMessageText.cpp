// What is made of a message to be read: valid, inert, one line each, and bounded; a message beside itself
// differs in nothing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "QuillmarkKit/MessageText.h"
#include "QuillmarkKit/SignedText.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quillmark;
    using fuzz::require;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    // Inert, and broken into lines without losing anything.
    const auto isInert = [](const std::string& text) {
        std::string pieces;
        for (const std::string_view piece : piecesOf(text)) pieces += piece;
        return isUTF8(text) && forDisplay(text) == text && pieces == text && columnsOf(text) <= text.size();
    };
    const MailMessage message = MailMessage::parse(input);
    const MessageText text = messageText(message);
    std::size_t lines = 0;
    for (const MessageText::Text& each : text.texts) {
        lines += each.lines.size();
        for (const PageText::Line& line : each.lines) require(isInert(line.text) && isInert(line.label));
    }
    for (const SignedText::Part& part : text.attachments) require(isInert(part.name) && isInert(part.type));
    require(lines <= 1'000);

    const SignedText same = signedText(message, message, {});
    for (const SignedText::Block& block : same.blocks) {
        require(block.kind == SignedText::Block::Kind::same || block.kind == SignedText::Block::Kind::folded);
        for (const SignedText::Line& line : block.lines) require(isInert(line.text));
    }
    require(!same.hasMoreChanges);
    // The first half of the input beside all of it: nothing may be passed over in silence.
    const SignedText half = signedText(message, MailMessage::parse(input.substr(0, size / 2)), {});
    for (const SignedText::Block& block : half.blocks) {
        const auto texts = std::ranges::count_if(
            block.lines, [](const SignedText::Line& line) { return !line.part && !line.text.empty(); });
        require(block.count >= texts);
    }
    return 0;
}
