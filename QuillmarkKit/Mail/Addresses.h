#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/PackedList.h"

namespace quillmark {

/// RFC 2047 encoded words: =?charset?B or Q?text?=
namespace EncodedWords {

/// `text` with every encoded word decoded; one that cannot be decoded stays as written. White space
/// between two encoded words goes. The result may hold any character, line ends and controls included.
std::string decode(std::string_view text);

}  // namespace EncodedWords

/// What the first address of a field, or the field around its addresses, holds besides: what somebody could
/// take for the sender though `MailAddress` says nothing of it. Views of the field's value; empty where there
/// is no such thing, else the first.
struct AddressExtras {
    std::string_view text;   ///< behind an address, or beside it where "<" and ">" are missing
    std::string_view part;   ///< an entry without an address, or the name of a group
    std::string_view route;  ///< "@a,@b" of <@a,@b:user@c>, "user@a" of user@a@b
};

/// One address of an address field (RFC 5322, section 3.4), read forgivingly.
struct MailAddress {
    std::optional<std::string> displayName = {};  ///< decoded and unquoted; never empty
    std::string address = {};  ///< as written, trimmed of blanks; in the form <…> it may be anything
    bool operator==(const MailAddress&) const = default;

    /// The addresses of an unfolded field value, in order; entries that hold none are passed over.
    static PackedList<MailAddress> parseList(std::string_view value);
    /// One entry: "Name <address>", "address (Name)" or "address"; nothing when it holds no address.
    static std::optional<MailAddress> parse(std::string_view entry);
    /// What `parseList` leaves out of account.
    static AddressExtras extras(std::string_view value);
    /// The domain of an address: what follows the last "@", lower-cased, without "." and ">" at both ends.
    /// Empty without "@". domainPart("User@Example.ORG>") is "example.org".
    static std::string domainPart(std::string_view address);
};
constexpr auto fieldsOf(const MailAddress*) {
    using T = MailAddress;
    return std::tuple{Field{"displayName", &T::displayName}, Field{"address", &T::address}};
}

}  // namespace quillmark
