#pragma once

// Private to the kit: what PublicSuffixList looks up, and what is made of the built-in list when the library
// is built (SuffixTableMaker.cpp). Neither needs another file of the kit.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillmark {

/// The rules of a list as a hash table with open addressing, whose names lie in the list's text.
class SuffixTable {
public:
    /// What the list says of a name, as bits.
    enum Kind : std::uint32_t { rule = 1, wildcard = 2, exception = 4 };
    /// A name and what is said of it.
    struct Slot {
        std::uint32_t begin = 0;  ///< of the name, in the text
        std::uint32_t length : 29 = 0;
        std::uint32_t kinds : 3 = 0;  ///< 0: the slot is free
    };

    /// Reads a list that is in lower case already: `PublicSuffixList::parse` says in which format.
    explicit SuffixTable(std::string text);
    /// One that was read before, of the same text. Both outlive the table.
    SuffixTable(std::string_view text, std::span<const Slot> slots, std::size_t ruleCount,
                std::size_t mostLabels)
        : m_text(text), m_slots(slots), m_ruleCount(ruleCount), m_mostLabels(mostLabels) {}
    SuffixTable(const SuffixTable&) = delete;
    SuffixTable& operator=(const SuffixTable&) = delete;

    /// FNV-1a over the bytes from the last to the first, so that one walk from the right has the hashes of
    /// all suffixes.
    static constexpr std::uint64_t emptyHash = 0xCBF29CE484222325;
    static constexpr std::uint64_t hashWith(std::uint64_t hash, char byte) {
        return (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    }
    static std::uint64_t hashOf(std::string_view name);

    /// What is said of a name, of which this is the hash.
    std::uint32_t kinds(std::string_view name, std::uint64_t hash) const {
        return m_slots[slotOf(name, hash)].kinds;
    }
    std::span<const Slot> slots() const { return m_slots; }  ///< their number is a power of two
    std::size_t ruleCount() const { return m_ruleCount; }    ///< of all kinds
    std::size_t mostLabels() const { return m_mostLabels; }  ///< of any rule, its wildcard counted

private:
    void add(std::string_view name, Kind kind);
    std::string_view nameOf(const Slot& slot) const { return m_text.substr(slot.begin, slot.length); }
    /// The slot of this name, or the free one where it belongs.
    std::size_t slotOf(std::string_view name, std::uint64_t hash) const;

    std::string m_ownText = {};  // of a list that is read here, as are its slots
    std::vector<Slot> m_ownSlots = {};
    std::string_view m_text;
    std::span<const Slot> m_slots;
    std::size_t m_ruleCount = 0;
    std::size_t m_mostLabels = 1;
};

}  // namespace quillmark
