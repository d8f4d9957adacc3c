#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace quillmark {

class SuffixTable;

/// The list of the domain endings under which anybody can register a name (publicsuffix.org), from which
/// the organization behind a host name is told.
class PublicSuffixList {
public:
    /// The list that is built into the library, as a table that is looked up where it lies. From any thread.
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
    std::size_t ruleCount() const;

private:
    explicit PublicSuffixList(std::shared_ptr<const SuffixTable> table) : m_table(std::move(table)) {}

    std::shared_ptr<const SuffixTable> m_table;  // never null
};

}  // namespace quillmark
