#pragma once

#include <optional>
#include <string>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

namespace quillmark {

/// A sentence that stands alone, on one line.
struct Remark {
    std::optional<Tone> tone = {};  ///< of the marker before it; none for what is only good to know
    std::string text = {};
    bool operator==(const Remark&) const = default;
};

}  // namespace quillmark
