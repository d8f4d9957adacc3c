#pragma once

#include <cstdint>
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

    /// From the list's own published format: a rule a line, "//" comments, "*." wildcards, "!" exceptions.
    static PublicSuffixList parse(std::string_view text);

    /// The registrable domain of a name, lower-cased: organizationalDomain("Mail.Example.CO.UK.") is
    /// "example.co.uk". A public suffix is its own organization. A name without any label comes back as
    /// given.
    std::string organizationalDomain(std::string_view name) const;

    /// Whether two names belong to one organization; false when either is empty.
    bool sameOrganization(std::string_view a, std::string_view b) const;

    /// Whether the name itself is a public suffix; false for a name that is in no rule.
    bool isPublicSuffix(std::string_view name) const;

    /// How many rules of all three kinds there are.
    std::size_t ruleCount() const;
};

}  // namespace quillmark
