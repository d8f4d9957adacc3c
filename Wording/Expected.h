#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/DomainIdentity.h"
#include "Wording/Reader.h"

/// Whether a message is from whom a person believes it is from.
namespace quillmark {

struct ExpectedAnswer {
    enum class Kind {
        yes,       ///< it is proven to be from there
        no,        ///< it is proven to be from elsewhere, or doesn't even claim to be from there
        unproven,  ///< it may be, and that isn't proven, or not of all of it
        unread,    ///< what was typed is no domain
    };
    /// Letters of a domain in which it differs from another are odd.
    using Letters = std::vector<DomainIdentity::Letters>;

    Kind kind = Kind::unread;
    Tone tone = Tone::unknown;
    std::string text = {};              ///< the answer, in one or two sentences
    std::string whatToDo = {};          ///< in place of the banner's; empty where that holds
    Letters expected = {}, found = {};  ///< one above the other, where they are nearly alike; else empty
    bool operator==(const ExpectedAnswer&) const = default;
};

/// `typed`: a domain or an address, as people type or copy them: with a name or "https://", in any case,
/// international or in A-labels. Of a yes, the verdict is `verified`, and its domain is of the organization.
ExpectedAnswer expectedAnswer(const ProofReport& report, std::string_view typed, const Reader& reader);

}  // namespace quillmark
