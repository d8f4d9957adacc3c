#include "QuillmarkKit/Mail/PublicSuffixList.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "QuillmarkKit/Support/Embedded.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

QUILLMARK_EMBED(quillmarkPublicSuffixList, QUILLMARK_PUBLIC_SUFFIX_LIST);

namespace quillmark {

namespace {

/// FNV-1a over the bytes from the last to the first, so that one walk from the right has the hashes of all
/// suffixes.
constexpr std::uint64_t emptyHash = 0xCBF29CE484222325;
constexpr std::uint64_t hashWith(std::uint64_t hash, char byte) {
    return (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
}
std::uint64_t hashOf(std::string_view name) {
    std::uint64_t hash = emptyHash;
    for (auto byte = name.rbegin(); byte != name.rend(); ++byte) hash = hashWith(hash, *byte);
    return hash;
}

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

constexpr std::uint32_t longestName = (1u << 29) - 1, allKinds = 7;  // as a slot has room for

/// The labels of a name joined with single dots.
std::string withoutEmptyLabels(std::string_view name) {
    std::string joined;
    joined.reserve(name.size());
    for (const char c : name) {
        if (c != '.' || (!joined.empty() && joined.back() != '.')) joined += c;
    }
    return joined;
}

}  // namespace

const PublicSuffixList& PublicSuffixList::shared() {
    static const PublicSuffixList list = [] {
        const auto text = embedded(quillmarkPublicSuffixListBegin, quillmarkPublicSuffixListEnd);
        PublicSuffixList read;
        read.read(text.empty() ? "com\nnet\norg" : text);
        return read;
    }();
    return list;
}

PublicSuffixList PublicSuffixList::parse(std::string_view text) {
    PublicSuffixList list;
    list.m_text = std::make_shared<const std::string>(unicodeLowered(text));
    list.read(*list.m_text);
    return list;
}

void PublicSuffixList::read(std::string_view text) {
    m_rules = text;
    // A guess, for `add` makes room when it must: a line of the real list has some fifteen bytes.
    m_slots.resize(std::bit_ceil(std::max<std::size_t>(text.size() / 8, 8)));
    while (!text.empty()) {
        std::string_view line = takeLine(text);
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

void PublicSuffixList::add(std::string_view name, Kind kind) {
    if (m_ruleCount >= m_slots.size() / 2) {
        std::vector<Slot> old = std::exchange(m_slots, std::vector<Slot>(m_slots.size() * 2));
        for (const Slot& slot : old) {
            if (slot.kinds != 0) m_slots[slotOf(nameOf(slot), hashOf(nameOf(slot)))] = slot;
        }
    }
    Slot& slot = m_slots[slotOf(name, hashOf(name))];
    if ((slot.kinds & kind) == 0) ++m_ruleCount;
    slot = {static_cast<std::uint32_t>(name.data() - m_rules.data()),
            static_cast<std::uint32_t>(name.size()) & longestName, (slot.kinds | kind) & allKinds};
    const auto labels = static_cast<std::size_t>(std::ranges::count(name, '.')) + (kind == wildcard ? 2 : 1);
    m_mostLabels = std::max(m_mostLabels, labels);
}

std::size_t PublicSuffixList::slotOf(std::string_view name, std::uint64_t hash) const {
    std::size_t at = hash & (m_slots.size() - 1);
    while (m_slots[at].kinds != 0 && nameOf(m_slots[at]) != name) at = (at + 1) & (m_slots.size() - 1);
    return at;
}

std::uint32_t PublicSuffixList::kinds(std::string_view name, std::uint64_t hash) const {
    return m_slots.empty() ? 0 : m_slots[slotOf(name, hash)].kinds;
}

std::string PublicSuffixList::organizationalDomain(std::string_view name) const {
    const std::string lowered = unicodeLowered(name);
    const std::string_view stripped = trimmed(lowered, ".");
    if (stripped.empty()) return std::string(name);
    const bool isJoined = stripped.find("..") == std::string_view::npos;
    const std::string joined = isJoined ? std::string() : withoutEmptyLabels(stripped);
    const std::string_view all = isJoined ? stripped : std::string_view(joined);

    // Walk from the right: the suffix of one label, of two … until none can be in the list. `ends[m]` is
    // where the suffix of m labels begins.
    std::vector<std::size_t> ends;
    ends.reserve(m_mostLabels + 3);
    ends.push_back(all.size());
    std::size_t suffixLength = 1, exceptionLength = 0;
    std::uint64_t hash = emptyHash;
    bool isWhole = false;
    for (std::size_t at = all.size(); ends.size() <= m_mostLabels + 2 && !isWhole;) {
        while (at > 0 && all[at - 1] != '.') hash = hashWith(hash, all[--at]);
        const std::size_t labels = ends.size();
        ends.push_back(at);
        isWhole = at == 0;
        const std::uint32_t found = kinds(all.substr(at), hash);
        if ((found & exception) != 0) exceptionLength = labels;
        if ((found & rule) != 0) suffixLength = std::max(suffixLength, labels);
        if ((found & wildcard) != 0 && !isWhole) suffixLength = std::max(suffixLength, labels + 1);
        if (!isWhole) hash = hashWith(hash, all[--at]);  // the dot
    }
    if (exceptionLength > 0) return std::string(all.substr(ends[exceptionLength]));
    if (isWhole && suffixLength >= ends.size() - 1) return std::string(stripped);
    return std::string(all.substr(ends[suffixLength + 1]));
}

bool PublicSuffixList::hasTopLevelOf(std::string_view name) const {
    const std::string_view last = name.substr(name.rfind('.') + 1);
    return (kinds(last, hashOf(last)) & rule) != 0;
}

bool PublicSuffixList::sameOrganization(std::string_view a, std::string_view b) const {
    if (a.empty() || b.empty()) return false;
    if (a == b) return true;
    return organizationalDomain(comparableDomain(a)) == organizationalDomain(comparableDomain(b));
}

}  // namespace quillmark
