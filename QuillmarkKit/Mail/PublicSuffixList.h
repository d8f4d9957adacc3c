#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quillmark {

/// The list of the domain endings under which anybody can register a name (publicsuffix.org), from which
/// the organization behind a host name is told.
class PublicSuffixList {
public:
    /// The list that is built into the library; parsed at the first call, from any thread.
    static const PublicSuffixList& shared();

    /// From the list's own published format: a rule a line, "//" comments, "*." wildcards, "!" exceptions. Of
    /// less than 512 MB.
    static PublicSuffixList parse(std::string_view text);

    /// The registrable domain of a name, lower-cased: organizationalDomain("Mail.Example.CO.UK.") is
    /// "example.co.uk". A public suffix is its own organization. A name without any label comes back as
    /// given.
    std::string organizationalDomain(std::string_view name) const;

    /// Whether two names belong to one organization; false when either is empty. International names are
    /// compared as DNS has them (the built-in list has its rules in that form, too).
    bool sameOrganization(std::string_view a, std::string_view b) const;

    /// Whether the last label of a name, which is in lower case, is a top-level domain of the list.
    bool hasTopLevelOf(std::string_view name) const;

    /// How many rules of all three kinds there are.
    std::size_t ruleCount() const { return m_ruleCount; }

private:
    /// A name and what the list says of it: bits of Kind. Small, since the table is filled at each start.
    struct Slot {
        std::uint32_t begin = 0;  // of the name, in the text
        std::uint32_t length : 29 = 0;
        std::uint32_t kinds : 3 = 0;  // 0: the slot is free
    };
    enum Kind : std::uint32_t { rule = 1, wildcard = 2, exception = 4 };

    /// Reads a text that is in lower case already and outlives the list, or is owned by it.
    void read(std::string_view text);
    void add(std::string_view name, Kind kind);
    std::string_view nameOf(const Slot& slot) const { return m_rules.substr(slot.begin, slot.length); }
    /// The slot of this name, or the free one where it belongs.
    std::size_t slotOf(std::string_view name, std::uint64_t hash) const;
    std::uint32_t kinds(std::string_view name, std::uint64_t hash) const;

    std::shared_ptr<const std::string> m_text = {};  // null when the text is not ours
    std::string_view m_rules = {};                   // the text
    std::vector<Slot> m_slots = {};  // a hash table with open addressing; its size is a power of two
    std::size_t m_ruleCount = 0;
    std::size_t m_mostLabels = 1;  // of any rule, its wildcard counted
};

}  // namespace quillmark
