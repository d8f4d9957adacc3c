#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Mail/PublicSuffixList.h"

/// How programs that read an address field by other rules than `MailAddress` understand it.
namespace quillmark {

/// The addresses of an unfolded field value by RFC 5322, section 3.4, with the obsolete syntax of
/// section 4.4, in order: without comments, quotation marks, blanks and routes. Entries that break the
/// grammar are passed over. Linear in the value.
std::vector<std::string> strictAddresses(std::string_view value);

/// What stands in the first pair of angle brackets that holds an at-sign, wherever it is, trimmed; nothing
/// when there is none.
std::optional<std::string> firstBracketed(std::string_view value);

/// A display name as mail programs come to show it: without the backslashes of quoted pairs, the blanks
/// around an at-sign, and what cannot be seen; encoded words that stood in quotation marks are decoded.
std::string shownName(std::string_view displayName);

/// The domains that a name shows, in order: those of addresses, and bare ones under a top-level domain that
/// exists. In lower case, each once, at most eight. Linear in the name.
std::vector<std::string> domainsIn(std::string_view name, const PublicSuffixList& suffixes);

}  // namespace quillmark
