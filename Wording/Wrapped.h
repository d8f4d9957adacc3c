#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillmark {

/// A line of ours as it is shown on a terminal so many columns wide, which would otherwise break it anywhere:
/// at blanks, in lines of which the first begins at the column `indent` and the others two further in, and
/// none with somebody else's bracket, as a marker has one. A run of blanks is one blank, so that nothing can
/// be pushed to where the eye takes it for a line of its own. A host's name that is longer than a line is cut
/// before the name that was registered, so that this can be read in one piece. A width of 0 leaves the line
/// whole, behind its indent.
std::string wrapped(std::string_view line, std::size_t indent, std::size_t width);

}  // namespace quillmark
