// Input: one byte for the form, one for where it is cut, then a file of that form. What comes of it does not
// depend on the cuts, lies within the input, and keeps its bounds.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Intake/PastedText.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/Require.h"

namespace {

using namespace quillmark;
using fuzz::require;

std::vector<std::string> messages(std::string_view mbox, MailboxForm form, std::size_t pieceSize) {
    std::vector<std::string> list;
    MailboxSplitter splitter(form);
    for (bool isLast = false;;) {
        while (const auto message = splitter.next())
            list.push_back(std::to_string(message->number) + " " + std::string(message->bytes));
        if (isLast) return list;
        splitter.add(mbox.substr(0, pieceSize));
        mbox.remove_prefix(std::min(pieceSize, mbox.size()));
        isLast = mbox.empty();
        if (isLast) splitter.end();
    }
}

void checkMbox(std::string_view file, std::size_t cut) {
    const auto begin = mailboxBegin(file);
    if (!begin) return;
    require(begin->offset <= file.size());
    file.remove_prefix(begin->offset);
    const auto whole = messages(file, begin->form, file.size() + 1);
    require(messages(file, begin->form, cut) == whole);
    std::size_t at = 0;  // each message lies behind the one before
    for (const std::string& message : whole) {
        const std::string_view bytes = std::string_view(message).substr(message.find(' ') + 1);
        at = file.find(bytes, at);
        require(at != std::string_view::npos);
        at += bytes.size();
        require(!isInternalData(bytes) || bytes.find("INTERNAL DATA") != std::string_view::npos);
    }
}

void checkUTF16(std::string_view bytes, std::size_t cut) {
    const ByteOrder order = utf16Order(bytes).value_or(ByteOrder::big);
    UTF16Decoder whole(order), inPieces(order);
    std::string expected = whole.decode(bytes), text;
    expected += whole.end();
    for (; !bytes.empty(); bytes.remove_prefix(std::min(cut, bytes.size())))
        text += inPieces.decode(bytes.substr(0, cut));
    text += inPieces.end();
    require(text == expected && isUTF8(text));
}

void checkAttached(std::string_view bytes) {
    AttachedMessages attached(MailMessage::parse(bytes));
    std::vector<std::size_t> last;
    std::size_t count = 0;
    while (const auto next = attached.next()) {
        require(++count <= AttachedMessages::mostOf);
        require(!next->position.empty() && next->position.size() <= AttachedMessages::deepest);
        require(last < next->position && next->bytes.size() <= 2 * bytes.size());
        last = next->position;
    }
}

void checkQuoted(std::string_view bytes) {
    const auto quoted = withoutFromQuoting(bytes);
    if (!quoted) return;
    const FromLines& lines = quoted->fromLines;
    require(lines.lines > 0);
    require(quoted->bytes.has_value() == (lines.isLossy || lines.reading != FromQuoting::none));
    if (!quoted->bytes) return;
    const auto taken = static_cast<std::int64_t>(bytes.size() - quoted->bytes->size());
    require(taken > 0 && taken <= lines.lines);
}

void checkPasted(std::string_view text) {
    const PastedText pasted = pastedText(text);
    require(pasted.source.size() <= text.size());
    if (pasted.withoutLinesBefore) require(pasted.source.ends_with(*pasted.withoutLinesBefore));
    if (pasted.dropped) require(pasted.dropped->count > 0 && !pasted.dropped->first.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data + 2), size - 2);
    const std::size_t cut = data[1] % 32 + std::size_t{1};
    switch (data[0] % 6) {
        case 0:
            checkMbox(input, cut);
            break;
        case 1:
            checkUTF16(input, cut);
            break;
        case 2:
            if (const auto message = countedMessage(input)) {
                require(beginsWithCount(input) && message->data() > input.data());
                require(message->data() + message->size() <= input.data() + input.size());
            }
            if (const auto message = storedMessage(input)) {
                require(beginsStore(input) && message->data() > input.data());
                require(message->data() + message->size() < input.data() + input.size());
            }
            break;
        case 3:
            checkAttached(input);
            break;
        case 4:
            checkQuoted(input);
            break;
        default:
            checkPasted(input);
    }
    return 0;
}
