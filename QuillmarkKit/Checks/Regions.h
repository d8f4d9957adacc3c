#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Mail/Message.h"

namespace quillmark {

/// A piece of a text that becomes another.
struct Edit {
    std::size_t from = 0, to = 0;
    std::string replacement = {};
};
/// One of them or none, in the order of their beginnings.
using EditGroup = std::vector<Edit>;

/// Where gateways put text of their own.
enum class RegionEnds { bottoms, tops, both };

/// The text that a gateway may have put into each text part: in front of it or behind it, line by line; in
/// HTML behind `<body>` and before `</body>`, by tags as well; and the same inside base64. A group for each
/// end of each of the first parts, in the order of the text, so small that their combinations are no more
/// than `mostTests`. Places are those of the message's body. Linear in the body but for base64, where an edit
/// in front writes the part anew.
std::vector<EditGroup> regionsOfParts(const MailMessage& message, RegionEnds ends, std::size_t mostTests);

}  // namespace quillmark
