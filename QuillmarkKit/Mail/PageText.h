#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillmark {

/// What a page of a message (HTML) says, to be read: nothing is rendered, loaded or run.
struct PageText {
    struct Line {
        enum class Kind {
            text,
            hidden,  ///< that its own attributes, or those of what it stands in, keep from being seen
            link,    ///< where the text in front of it leads
            image,   ///< what stands in place of one
        };
        Kind kind = Kind::text;
        std::string text = {};   ///< of a link its target, as it is written
        std::string label = {};  ///< of a link: the text that it stands behind
        bool operator==(const Line&) const = default;
    };
    std::vector<Line> lines = {};  ///< an empty one between paragraphs
    bool isCut = false;            ///< it holds more than is read
    bool operator==(const PageText&) const = default;
};

/// `page`: UTF-8. Hidden is what bears `hidden`, or a style of its own with display:none, visibility:hidden,
/// a size or an opacity of zero, or the colour of its ground; rules that stand elsewhere in the page are not
/// looked at. Texts hold any character. Linear; elements inside 100 others are read as if they stood beside
/// each other; of the page the first five million bytes, of its text the first 200,000.
PageText pageText(std::string_view page);

}  // namespace quillmark
