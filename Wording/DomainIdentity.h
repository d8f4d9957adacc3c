#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Wording/Reader.h"

/// A domain as one object that cannot be mistaken. Its texts are inert.
namespace quillmark {

struct DomainIdentity {
    /// Some of the letters of its Unicode form.
    struct Letters {
        std::string text = {};
        bool areOdd = false;  ///< not the ones they look like
        bool operator==(const Letters&) const = default;
    };
    std::string before = {};       ///< what stands before the registrable part, with its dot; may be empty
    std::string registrable = {};  ///< as DNS has it, "xn--" and all; a long one is `cutInside`
    std::vector<Letters> letters = {};  ///< of an international domain, as some programs show it
    bool operator==(const DomainIdentity&) const = default;
};

DomainIdentity identityOf(std::string_view domain);

/// The domain of ASCII letters alone that an international one is easily taken for: "sparbank.example" for
/// "xn--sprbank-3fg.example". Only where each letter beyond ASCII looks like one of ASCII.
std::optional<std::string> lookAlikeOf(std::string_view domain);

/// What the letters of an international domain come to, without a full stop: that it isn't the one it looks
/// like, and by which letter, or else how programs show it.
std::string lettersInWords(std::string_view domain, const Reader& reader);

}  // namespace quillmark
