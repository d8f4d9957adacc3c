#pragma once

#include <cstddef>
#include <string_view>

/// A file as it lies in the program: declares `name##Begin` and `name##End`, between which its bytes are. To
/// stand outside of namespaces.
#define QUILLMARK_EMBED(name, file)                                                               \
    __asm__(                                                                                      \
        ".section .rodata\n"                                                                      \
        ".hidden " #name "Begin\n.hidden " #name                                                  \
        "End\n"                                                                                   \
        ".global " #name "Begin\n.global " #name "End\n" #name                                    \
        "Begin:\n"                                                                                \
        ".incbin \"" file "\"\n" #name                                                            \
        "End:\n"                                                                                  \
        ".byte 0\n"                                                                               \
        ".previous\n");                                                                           \
    extern "C" const char name##Begin[]; /* NOLINT: their ends are known to the assembler only */ \
    extern "C" const char name##End[]

namespace quillmark {

/// The bytes between the two.
inline std::string_view embedded(const char* begin, const char* end) {
    // cppcheck-suppress comparePointers; both ends of one object, which the assembler made
    return {begin, static_cast<std::size_t>(end - begin)};
}

}  // namespace quillmark
