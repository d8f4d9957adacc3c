// What a process sends that checks for the window, and that somebody may have taken over: the first byte says
// what for. What can be read is written as it came, so nothing is read in two ways; a report can be kept.
// Questions are answered within their bounds. Everything else ends in a DecodingError.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Apart/CheckProtocol.h"
#include "Apart/CheckQuestions.h"
#include "QuillmarkKit/History.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/Require.h"

namespace {

using namespace quillmark;

/// Which names leave the computer.
class Names : public DNSResolver, public RegistrationLookup {
public:
    DNSAnswer lookup(std::string_view name, DNSRecordType, const Patience&) override {
        m_asked.emplace(name);
        return DNSAnswer::records({std::string(name)});
    }
    std::optional<Date> registrationDate(std::string_view domain, const Patience&) override {
        m_asked.emplace(domain);
        return std::nullopt;
    }
    bool areFew(std::size_t messages) const {
        std::size_t bytes = 0;
        for (const auto& each : m_asked) bytes += each.size();
        return m_asked.size() <= NameBounds::most + messages * NameBounds::mostAttached &&
               bytes <= NameBounds::bytes + messages * NameBounds::bytesAttached;
    }

private:
    std::set<std::string, std::less<>> m_asked = {};
};

template <typename... Values>
std::tuple<Values...> readAs(std::string_view bytes) {
    auto values = unpacked<Values...>(bytes);
    fuzz::require(std::apply([](const auto&... each) { return packed(each...); }, values) == bytes);
    return values;
}

/// Pieces, each behind its kind and its length.
void ask(std::string_view bytes) {
    const auto names = std::make_shared<Names>();
    CheckQuestions questions(
        {.resolver = names, .registry = names, .mayAskRegistry = std::make_shared<RegistrySwitch>(true)}, {});
    std::size_t messages = 0;
    while (bytes.size() >= 2) {
        const auto kind = static_cast<TalkKind>(bytes[0]);
        const std::string_view piece = bytes.substr(2, static_cast<unsigned char>(bytes[1]));
        bytes.remove_prefix(2 + piece.size());
        try {
            if (kind == TalkKind::begin) {
                questions.begin();
                ++messages;
            } else if (kind == TalkKind::saw) {
                questions.saw(piece);
            } else {
                questions.answer(kind, piece);
            }
        } catch (const DecodingError&) {
        }
    }
    fuzz::require(names->areFew(messages));
}

void read(unsigned char what, std::string_view bytes) {
    using Position = std::vector<std::size_t>;
    switch (what) {
        case 0: {
            const auto values = readAs<Position, bool, ProofReport, SentMessage>(bytes);
            static_cast<void>(HistoryChange().add(std::get<ProofReport>(values)));
            const FoundMessage found = foundMessage(std::get<SentMessage>(values), {});
            return fuzz::require(packed(sent(found)) == packed(std::get<SentMessage>(values)));
        }
        case 1:
            return static_cast<void>(readAs<Position, bool, Refusal>(bytes));
        case 2:
            return static_cast<void>(readAs<SentMessage, std::uint64_t>(bytes));
        case 3:
            return static_cast<void>(readAs<SentMessage, Refusal, std::uint64_t>(bytes));
        case 4:
            return static_cast<void>(readAs<std::vector<PathStep>>(bytes));
        case 5:
            return static_cast<void>(readAs<MessageText>(bytes));
        case 6:
            return static_cast<void>(readAs<std::vector<SignedText>>(bytes));
        case 7:
            return static_cast<void>(
                readAs<ByteBuffer, std::optional<DroppedLines>, std::optional<Refusal>>(bytes));
        default:
            return ask(bytes);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    try {
        read(data[0], {reinterpret_cast<const char*>(data) + 1, size - 1});
    } catch (const DecodingError&) {
    }
    return 0;
}
