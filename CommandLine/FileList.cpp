#include "CommandLine/FileList.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace quillmark {

std::optional<std::string> FileList::next() {
    const auto fail = [this] {
        m_hasEnded = true;
        throw std::system_error(errno, std::generic_category());
    };
    if (m_hasEnded) return std::nullopt;
    if (!m_file) {
        m_file.reset(m_path == "-" ? fdopen(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0), "rb")
                                   : std::fopen(m_path.c_str(), "rbe"));
    }
    if (!m_file) fail();
    const char end = m_ends == Ends::lines ? '\n' : '\0';
    char* line = nullptr;
    std::size_t room = 0;
    errno = 0;
    ssize_t length = 0;
    while ((length = getdelim(&line, &room, end, m_file.get())) > 0) {
        if (line[length - 1] == end) --length;
        if (length > 0) break;
    }
    const std::unique_ptr<char, void (*)(void*)> owned(line, std::free);
    if (length <= 0) {
        if (std::ferror(m_file.get()) != 0 || errno == ENOMEM) fail();
        m_hasEnded = true;
        return std::nullopt;
    }
    return std::string(line, static_cast<std::size_t>(length));
}

}  // namespace quillmark
