#pragma once

#include <dlfcn.h>

namespace quillmark {

/// A library of the system that is loaded when it is first needed, since most runs of the program don't need
/// it and with all that it brings it would cost every start. Never unloaded: such libraries leave things
/// behind that run when a thread ends.
class LoadedLibrary {
public:
    /// `name`: as its package installs it, such as "libcurl.so.4".
    explicit LoadedLibrary(const char* name) : m_handle(dlopen(name, RTLD_NOW | RTLD_NODELETE)) {}

    /// An address that becomes a pointer to whichever function it is kept as.
    struct Symbol {
        void* address;
        template <class Function>
        operator Function*() const {
            return reinterpret_cast<Function*>(address);
        }
    };
    Symbol find(const char* name) {
        const Symbol symbol{m_handle ? dlsym(m_handle, name) : nullptr};
        m_isWhole = m_isWhole && symbol.address;
        return symbol;
    }

    /// Whether it is there, and every function that was looked for is in it.
    bool isWhole() const { return m_isWhole; }

private:
    void* const m_handle;
    bool m_isWhole = m_handle != nullptr;
};

}  // namespace quillmark
