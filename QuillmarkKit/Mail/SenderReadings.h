#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Mail/PublicSuffixList.h"

/// How programs that read an address field by other rules than `MailAddress` understand it.
namespace quillmark {

/// The addresses of an unfolded field value by RFC 5322, section 3.4, with the obsolete syntax of
/// section 4.4, in order: without comments, quotation marks, blanks and routes. Where an entry breaks the
/// grammar, each address in it as far as it goes. Linear in the value.
std::vector<std::string> readableAddresses(std::string_view value);

/// What stands behind the first "<" up to the next angle bracket, wherever it is, and holds an at-sign,
/// trimmed; nothing when there is none.
std::optional<std::string> firstBracketed(std::string_view value);

/// An address up to the first byte behind its last at-sign that cannot stand in a domain, as many programs
/// take it: a blank of any script, a control character, one of ()<>[]:;@\,". The whole one when there is
/// none.
std::string upToEndOfDomain(std::string_view address);

/// A display name as mail programs come to show it, in letters that it looks like: without the backslashes of
/// quoted pairs, the blanks around an at-sign, and what cannot be seen; encoded words are decoded that stood
/// in quotation marks, behind backslashes, or hold blanks.
std::string shownName(std::string_view displayName);

/// The domains that a name shows, in order: those of addresses, and bare ones under a top-level domain that
/// exists. In lower case, of each organization the first, at most eight. Linear in the name.
std::vector<std::string> domainsIn(std::string_view name, const PublicSuffixList& suffixes);

}  // namespace quillmark
