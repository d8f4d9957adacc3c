#include "QuillmarkKit/Mail/PublicSuffixList.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "QuillmarkKit/Mail/SuffixTable.h"
#include "QuillmarkKit/Support/Embedded.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

QUILLMARK_EMBED(quillmarkPublicSuffixList, QUILLMARK_PUBLIC_SUFFIX_LIST);

namespace quillmark {

namespace {

#include "SuffixSlots.inc"  // made by SuffixTableMaker: ruleCount, mostLabels, slots

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
    static const PublicSuffixList list(
        std::make_shared<SuffixTable>(embedded(quillmarkPublicSuffixListBegin, quillmarkPublicSuffixListEnd),
                                      slots, quillmark::ruleCount, mostLabels));
    return list;
}

PublicSuffixList PublicSuffixList::parse(std::string_view text) {
    return PublicSuffixList(std::make_shared<SuffixTable>(unicodeLowered(text)));
}

std::size_t PublicSuffixList::ruleCount() const { return m_table->ruleCount(); }

std::string PublicSuffixList::organizationalDomain(std::string_view name) const {
    const std::string lowered = unicodeLowered(name);
    const std::string_view stripped = trimmed(lowered, ".");
    if (stripped.empty()) return std::string(name);
    const bool isJoined = stripped.find("..") == std::string_view::npos;
    const std::string joined = isJoined ? std::string() : withoutEmptyLabels(stripped);
    const std::string_view all = isJoined ? stripped : std::string_view(joined);

    // Walk from the right: the suffix of one label, of two … until none can be in the list. `ends[m]` is
    // where the suffix of m labels begins.
    const std::size_t mostLabelsOfRules = m_table->mostLabels();
    std::vector<std::size_t> ends;
    ends.reserve(mostLabelsOfRules + 3);
    ends.push_back(all.size());
    std::size_t suffixLength = 1, exceptionLength = 0;
    std::uint64_t hash = SuffixTable::emptyHash;
    bool isWhole = false;
    for (std::size_t at = all.size(); ends.size() <= mostLabelsOfRules + 2 && !isWhole;) {
        while (at > 0 && all[at - 1] != '.') hash = SuffixTable::hashWith(hash, all[--at]);
        const std::size_t labels = ends.size();
        ends.push_back(at);
        isWhole = at == 0;
        const std::uint32_t found = m_table->kinds(all.substr(at), hash);
        if ((found & SuffixTable::exception) != 0) exceptionLength = labels;
        if ((found & SuffixTable::rule) != 0) suffixLength = std::max(suffixLength, labels);
        if ((found & SuffixTable::wildcard) != 0 && !isWhole)
            suffixLength = std::max(suffixLength, labels + 1);
        if (!isWhole) hash = SuffixTable::hashWith(hash, all[--at]);  // the dot
    }
    if (exceptionLength > 0) return std::string(all.substr(ends[exceptionLength]));
    if (isWhole && suffixLength >= ends.size() - 1) return std::string(stripped);
    return std::string(all.substr(ends[suffixLength + 1]));
}

bool PublicSuffixList::hasTopLevelOf(std::string_view name) const {
    const std::string_view last = name.substr(name.rfind('.') + 1);
    return (m_table->kinds(last, SuffixTable::hashOf(last)) & SuffixTable::rule) != 0;
}

bool PublicSuffixList::sameOrganization(std::string_view a, std::string_view b) const {
    if (a.empty() || b.empty()) return false;
    if (a == b) return true;
    return organizationalDomain(comparableDomain(a)) == organizationalDomain(comparableDomain(b));
}

}  // namespace quillmark
