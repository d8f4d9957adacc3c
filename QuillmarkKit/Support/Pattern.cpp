#include "QuillmarkKit/Support/Pattern.h"

#include <re2/re2.h>

#include <algorithm>
#include <array>

namespace quillmark {

namespace {

constexpr std::size_t mostGroups = 4;

RE2::Options options(Pattern::Units units) {
    RE2::Options options;
    options.set_log_errors(false);
    if (units == Pattern::Units::bytes) options.set_encoding(RE2::Options::EncodingLatin1);
    return options;
}

}  // namespace

Pattern::Pattern(std::string_view expression, Units units)
    : m_expression(std::make_unique<const RE2>(re2::StringPiece(expression.data(), expression.size()),
                                               options(units))) {}

Pattern::~Pattern() = default;

bool Pattern::find(std::string_view text, std::size_t position, std::span<std::string_view> groups) const {
    std::array<re2::StringPiece, mostGroups> found;
    const std::size_t count = std::min(groups.size(), found.size());
    const re2::StringPiece all(text.data(), text.size());
    if (!m_expression->Match(all, position, all.size(), RE2::UNANCHORED, found.data(),
                             static_cast<int>(count)))
        return false;
    std::transform(found.begin(), found.begin() + count, groups.begin(), [](const re2::StringPiece& piece) {
        return std::string_view(piece.data(), piece.size());
    });
    return true;
}

}  // namespace quillmark
