#include "QuillmarkKit/Mail/SuffixTable.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace quillmark {

namespace {

constexpr std::uint32_t longestName = (1u << 29) - 1, allKinds = 7;  // as a slot has room for

/// Takes the line at the front: LF, VT, FF, CR, U+0085, U+2028 and U+2029 end one.
std::string_view takeLine(std::string_view& rest) {
    std::size_t end = std::min(rest.find('\n'), rest.size()), length = 1;
    // Whether any of the others may stand in it, without a branch: nearly all lines have plain letters.
    unsigned char other = 0;
    for (const char c : rest.substr(0, end))
        other = static_cast<unsigned char>(other | (c < 0) | (c >= '\v' && c <= '\r'));
    for (std::size_t i = 0; other != 0 && i < end; ++i) {
        const std::string_view from = rest.substr(i);
        const bool isThree = from.starts_with("\u2028") || from.starts_with("\u2029");
        if (!isThree && !from.starts_with("\u0085") && !(rest[i] >= '\v' && rest[i] <= '\r')) continue;
        length = isThree ? 3 : from.starts_with("\u0085") ? 2 : 1;
        end = i;
    }
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + length, rest.size()));
    return line;
}

}  // namespace

SuffixTable::SuffixTable(std::string text) : m_ownText(std::move(text)), m_text(m_ownText) {
    // A guess, for `add` makes room when it must: a line of the real list has some fifteen bytes.
    m_ownSlots.resize(std::bit_ceil(std::max<std::size_t>(m_text.size() / 8, 8)));
    m_slots = m_ownSlots;
    for (std::string_view rest = m_text; !rest.empty();) {
        std::string_view line = takeLine(rest);
        line = line.substr(0, line.find(' '));
        if (line.empty()) continue;
        const char front = line.front();
        if (front == '/' && line.starts_with("//")) continue;
        if (front == '!') {
            add(line.substr(1), exception);
        } else if (front == '*' && line.starts_with("*.")) {
            add(line.substr(2), wildcard);
        } else {
            add(line, rule);
        }
    }
}

void SuffixTable::add(std::string_view name, Kind kind) {
    if (m_ruleCount >= m_ownSlots.size() / 2) {
        const std::vector<Slot> old = std::exchange(m_ownSlots, std::vector<Slot>(m_ownSlots.size() * 2));
        m_slots = m_ownSlots;
        for (const Slot& slot : old) {
            if (slot.kinds != 0) m_ownSlots[slotOf(nameOf(slot), hashOf(nameOf(slot)))] = slot;
        }
    }
    Slot& slot = m_ownSlots[slotOf(name, hashOf(name))];
    if ((slot.kinds & kind) == 0) ++m_ruleCount;
    slot = {static_cast<std::uint32_t>(name.data() - m_text.data()),
            static_cast<std::uint32_t>(name.size()) & longestName, (slot.kinds | kind) & allKinds};
    const auto labels = static_cast<std::size_t>(std::ranges::count(name, '.')) + (kind == wildcard ? 2 : 1);
    m_mostLabels = std::max(m_mostLabels, labels);
}

std::uint64_t SuffixTable::hashOf(std::string_view name) {
    std::uint64_t hash = emptyHash;
    for (auto byte = name.rbegin(); byte != name.rend(); ++byte) hash = hashWith(hash, *byte);
    return hash;
}

std::size_t SuffixTable::slotOf(std::string_view name, std::uint64_t hash) const {
    std::size_t at = hash & (m_slots.size() - 1);
    while (m_slots[at].kinds != 0 && nameOf(m_slots[at]) != name) at = (at + 1) & (m_slots.size() - 1);
    return at;
}

}  // namespace quillmark
