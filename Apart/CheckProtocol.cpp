#include "Apart/CheckProtocol.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace quillmark {

namespace {

struct Head {
    std::uint32_t kind = 0, hasFile = 0;
    std::uint64_t size = 0;
};
constexpr std::size_t sentTogether = 32'768;  // bytes of a piece that are copied, to be sent with its head
constexpr std::size_t firstRoom = 65'536;     // for what comes
constexpr std::size_t roomAtOnce = 16'384;    // for small pieces

}  // namespace

SentMessage sent(const FoundMessage& found) {
    SentMessage message{.bytes = found.bytes.view(),
                        .mode = found.mode,
                        .facts = found.facts,
                        .inside = found.place.inside,
                        .number = found.place.number,
                        .attached = found.place.attached};
    if (!found.apart) return message;
    for (const auto& each : found.apart->attached)
        message.apart.push_back({each.bytes.view(), each.isOutlooks, each.hasBody, each.position});
    message.isAnyApartLeftOut = found.apart->isAnyLeftOut;
    return message;
}

FoundMessage foundMessage(const SentMessage& sent, const MessagePlace& file) {
    FoundMessage found{ByteBuffer(sent.bytes), file, sent.mode, sent.facts};
    found.place.inside = sent.inside;
    found.place.number = sent.number;
    found.place.attached = sent.attached;
    if (sent.apart.empty() && !sent.isAnyApartLeftOut) return found;
    const auto apart = std::make_shared<OutlookMessage>();
    for (const auto& each : sent.apart)
        apart->attached.push_back({ByteBuffer(each.bytes), each.isOutlooks, each.hasBody, each.position});
    apart->isAnyLeftOut = sent.isAnyApartLeftOut;
    found.apart = apart;
    return found;
}

bool Talk::tell(TalkKind kind, std::string_view bytes, int file) const {
    std::string together = std::exchange(m_held, {});
    const Head head{static_cast<std::uint32_t>(kind), file >= 0 ? 1U : 0U, bytes.size()};
    if (file >= 0) {
        return m_channel.send(together.data(), together.size(), m_goesOn) &&
               m_channel.sendWith(file, &head, sizeof head) &&
               m_channel.send(bytes.data(), bytes.size(), m_goesOn);
    }
    together.append(reinterpret_cast<const char*>(&head), sizeof head);
    const bool isSmall = bytes.size() <= sentTogether;
    if (isSmall) together += bytes;
    return m_channel.send(together.data(), together.size(), m_goesOn) &&
           (isSmall || m_channel.send(bytes.data(), bytes.size(), m_goesOn));
}

void Talk::tellWithNext(TalkKind kind, std::string_view bytes) const {
    if (bytes.size() > sentTogether) {  // which isn't held twice
        tell(kind, bytes);
        return;
    }
    const Head head{static_cast<std::uint32_t>(kind), 0, bytes.size()};
    m_held.append(reinterpret_cast<const char*>(&head), sizeof head);
    m_held += bytes;
}

bool Talk::receive(void* bytes, std::size_t size, Files files) const {
    if (files == Files::taken) return m_channel.receive(bytes, size);  // a file stands where it came
    // Several small pieces are taken at once.
    for (auto* rest = static_cast<char*>(bytes);;) {
        const std::string_view came = m_came.view().substr(m_taken, size);
        rest = std::ranges::copy(came, rest).out;
        m_taken += came.size();
        size -= came.size();
        if (size == 0) return true;
        if (m_goesOn && !m_goesOn()) return false;  // however little comes at a time
        if (size >= roomAtOnce) return m_channel.receive(rest, size, m_goesOn);
        m_came.grow(roomAtOnce);
        m_came.setSize(m_channel.receiveSome(m_came.data(), roomAtOnce, m_goesOn));
        m_taken = 0;
        if (m_came.size() == 0) return false;
    }
}

std::optional<TalkPiece> Talk::hear(Files files) const {
    TalkPiece piece;
    Head head;
    const bool isHere = files == Files::taken ? m_channel.receiveWith(piece.file, &head, sizeof head)
                                              : receive(&head, sizeof head, files);
    if (!isHere || head.size > largestPiece || head.kind > static_cast<std::uint32_t>(TalkKind::answer))
        return std::nullopt;
    piece.kind = static_cast<TalkKind>(head.kind);
    // What is announced need not come.
    for (std::size_t size = 0, room = firstRoom; size < head.size; room *= 2) {
        const std::size_t more = std::min<std::size_t>(head.size, room);
        piece.bytes.resize(more);
        if (!receive(piece.bytes.data() + size, more - size, files)) return std::nullopt;
        size = more;
    }
    return piece;
}

}  // namespace quillmark
