#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "QuillmarkKit/HistoryFile.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Support/Files.h"
#include "Sandbox/Sandbox.h"
#include "tests/TestFiles.h"

namespace quillmark::test {

/// What a process finds that is restricted, and begins in.
struct Place {
    TemporaryFolder folder{};
    pid_t other = 0;  // a process
    int pipe = -1;

    std::string operator/(std::string_view name) const { return folder / name; }
};

inline int errorOf(std::int64_t result) { return result < 0 ? errno : 0; }

inline int opened(const std::string& path, int flags) { return errorOf(open(path.c_str(), flags, 0600)); }

inline int connected(int family) {
    const int descriptor = socket(family, SOCK_STREAM, 0);
    if (descriptor < 0) return errno;
    sockaddr_in6 six = {};
    six.sin6_addr = in6addr_loopback;
    sockaddr_in four = {};
    four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_un local = {.sun_family = AF_UNIX, .sun_path = "missing"};
    six.sin6_family = AF_INET6, four.sin_family = AF_INET;
    four.sin_port = six.sin6_port = htons(1);
    const auto* address = family == AF_INET    ? reinterpret_cast<const sockaddr*>(&four)
                          : family == AF_INET6 ? reinterpret_cast<const sockaddr*>(&six)
                                               : reinterpret_cast<const sockaddr*>(&local);
    const socklen_t size = family == AF_INET ? sizeof four : family == AF_INET6 ? sizeof six : sizeof local;
    return errorOf(connect(descriptor, address, size));
}

inline int bound() {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in any = {};
    any.sin_family = AF_INET;
    return descriptor < 0 ? errno
                          : errorOf(bind(descriptor, reinterpret_cast<const sockaddr*>(&any), sizeof any));
}

/// What the function throws, or 0.
template <typename Action>
int thrown(Action action) {
    try {
        action();
    } catch (const std::filesystem::filesystem_error& error) {
        return error.code().value();
    } catch (const std::exception&) {
        return EIO;
    }
    return 0;
}

enum class Rights { none, files, network };  // beside reading "in"; "out" to write in, or connections
constexpr int never = SandboxLimits::newestLandlock + 1;

struct Attempt {
    const char* name;
    Rights rights;
    bool isCall;   // refused by the filter of system calls, whatever the version of Landlock
    int landlock;  // the first version that refuses it without that
    int (*make)(const Place& place);
};

inline const Attempt attempts[] = {
    // What it is there for.
    {"read", Rights::none, false, never, [](const Place& p) { return opened(p / "in/message", O_RDONLY); }},
    {"list", Rights::none, false, never,
     [](const Place& p) { return opened(p / "in", O_RDONLY | O_DIRECTORY); }},
    {"read of the system", Rights::none, false, never,
     [](const Place&) { return opened("/etc/localtime", O_RDONLY); }},
    {"start a thread", Rights::none, false, never,
     [](const Place&) {
         std::thread([] {}).join();
         return 0;
     }},
    {"replace in its folder", Rights::files, false, never,
     [](const Place& p) { return thrown([&] { replaceFile(p / "out/file", "new"); }); }},
    {"save a history", Rights::files, false, never,
     [](const Place& p) { return thrown([&] { HistoryFile{p / "out/history.json"}.save({}); }); }},
    {"save a key", Rights::files, false, never,
     [](const Place& p) {
         const KnownKey keys[] = {
             {.name = "k._domainkey.example.org", .record = "v=DKIM1; p=MCowBQYDK2VwAyEA"}};
         return thrown([&] { KeyBook{p / "out/keys.db"}.add(keys); });
     }},
    {"shorten in its folder", Rights::files, false, never,
     [](const Place& p) { return errorOf(ftruncate(open((p / "out/file").c_str(), O_RDWR), 0)); }},
    {"ask somebody", Rights::network, false, never, [](const Place&) { return connected(AF_INET); }},
    // Files
    {"read another", Rights::files, false, 1, [](const Place& p) { return opened(p / "beside", O_RDONLY); }},
    {"read through a link", Rights::files, false, 1,
     [](const Place& p) { return opened(p / "in/link", O_RDONLY); }},
    {"list another", Rights::files, false, 1,
     [](const Place& p) { return opened(p / ".", O_RDONLY | O_DIRECTORY); }},
    {"write into what is read", Rights::files, false, 1,
     [](const Place& p) { return opened(p / "in/message", O_WRONLY); }},
    {"write into what is read, with nothing to write", Rights::none, true, 1,
     [](const Place& p) { return opened(p / "in/message", O_RDWR); }},
    {"write beside", Rights::files, false, 1, [](const Place& p) { return opened(p / "beside", O_WRONLY); }},
    {"make a file", Rights::files, false, 1,
     [](const Place& p) { return opened(p / "new", O_WRONLY | O_CREAT); }},
    {"remove", Rights::files, false, 1,
     [](const Place& p) { return errorOf(unlink((p / "beside").c_str())); }},
    {"name a file of elsewhere", Rights::files, false, 1,
     [](const Place& p) { return errorOf(link((p / "in/message").c_str(), (p / "out/new").c_str())); }},
    {"make a folder", Rights::files, false, 1,
     [](const Place& p) { return errorOf(mkdir((p / "new").c_str(), 0700)); }},
    {"make a link", Rights::files, true, 1,
     [](const Place& p) { return errorOf(symlink("a", (p / "new").c_str())); }},
    {"empty by opening", Rights::files, true, 3,
     [](const Place& p) { return opened(p / "in/message", O_RDONLY | O_TRUNC); }},
    {"truncate", Rights::files, true, 3,
     [](const Place& p) { return errorOf(truncate((p / "in/message").c_str(), 0)); }},
    {"chmod", Rights::files, true, never,
     [](const Place& p) { return errorOf(chmod((p / "in/message").c_str(), 0640)); }},
    {"chown", Rights::files, true, never,
     [](const Place& p) { return errorOf(chown((p / "in/message").c_str(), getuid(), getgid())); }},
    {"touch", Rights::files, true, never,
     [](const Place& p) { return errorOf(utimensat(AT_FDCWD, (p / "in/message").c_str(), nullptr, 0)); }},
    {"a device's own commands", Rights::files, true, never,
     [](const Place& p) {
         int on = 0;
         return errorOf(ioctl(p.pipe, FIOASYNC, &on));
     }},
    // Processes
    {"execute", Rights::files, true, 1,
     [](const Place&) { return errorOf(execl("/bin/true", "true", static_cast<char*>(nullptr))); }},
    {"start a program", Rights::network, true, 1,
     [](const Place&) {
         char name[] = "true";
         char* arguments[] = {name, nullptr};
         return posix_spawn(nullptr, "/bin/true", nullptr, nullptr, arguments, environ);
     }},
    {"fork", Rights::files, true, never,
     [](const Place&) {
         const pid_t child = fork();
         if (child == 0) _exit(0);
         return errorOf(child);
     }},
    {"kill", Rights::files, true, 6, [](const Place& p) { return errorOf(kill(p.other, SIGCONT)); }},
    {"have a signal sent", Rights::files, true, never,
     [](const Place& p) { return errorOf(fcntl(p.pipe, F_SETOWN, p.other)); }},
    {"ptrace", Rights::files, true, 1,
     [](const Place& p) { return errorOf(ptrace(PTRACE_SEIZE, p.other, nullptr, nullptr)); }},
    {"read another's memory", Rights::files, true, 1,
     [](const Place& p) {
         char byte = 0;
         iovec here = {&byte, 1}, there = {const_cast<Place*>(&p), 1};
         return errorOf(process_vm_readv(p.other, &here, 1, &there, 1, 0));
     }},
    {"read another's environment", Rights::files, false, 1,
     [](const Place& p) { return opened("/proc/" + std::to_string(p.other) + "/environ", O_RDONLY); }},
    // Connections
    {"IPv4", Rights::files, true, 4, [](const Place&) { return connected(AF_INET); }},
    {"IPv6", Rights::files, true, 4, [](const Place&) { return connected(AF_INET6); }},
    {"a datagram", Rights::files, true, never,
     [](const Place&) { return errorOf(socket(AF_INET, SOCK_DGRAM, 0)); }},
    {"a program's socket", Rights::files, true, never, [](const Place&) { return connected(AF_UNIX); }},
    {"the same, where somebody may be asked", Rights::network, true, never,
     [](const Place&) { return connected(AF_UNIX); }},
    {"a datagram to a program's socket", Rights::network, true, never,
     [](const Place&) {
         int ends[2] = {};
         return errorOf(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends));
     }},
    {"be asked", Rights::network, true, 4, [](const Place&) { return bound(); }},
    {"a raw socket, where somebody may be asked", Rights::network, true, never,
     [](const Place&) { return errorOf(socket(AF_NETLINK, SOCK_RAW, 0)); }},
};

}  // namespace quillmark::test
