#include "Sandbox/Sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace quillmark {

namespace {

namespace fs = std::filesystem;

// Landlock, as in <linux/landlock.h>; those of older systems lack what came later.

enum FileRight : std::uint64_t {
    execute = 1 << 0,
    writeFile = 1 << 1,
    readFile = 1 << 2,
    readFolder = 1 << 3,
    removeFile = 1 << 5,
    makeFile = 1 << 8,
    ofVersion1 = (1 << 13) - 1,  // all that it knows
    moveToFolder = 1 << 13,      // from version 2 on; before, it is always refused
    truncate = 1 << 14,          // from version 3 on
    deviceCommands = 1 << 15,    // from version 5 on
};
constexpr std::uint64_t connections = 0b11;    // over TCP, those that are made and taken; from version 4 on
constexpr std::uint64_t otherPrograms = 0b11;  // by abstract sockets and signals; from version 6 on

/// What of a file's rights can't be had of a folder.
constexpr std::uint64_t ofFiles = execute | writeFile | readFile | truncate | deviceCommands;
constexpr std::uint64_t reading = readFile | readFolder;
constexpr std::uint64_t writing = reading | writeFile | truncate | makeFile | removeFile;

struct Ruleset {
    std::uint64_t files = 0, network = 0, scope = 0;
};
struct [[gnu::packed]] PathRule {
    std::uint64_t allowed = 0;
    std::int32_t folder = -1;
};
constexpr std::uint32_t versionFlag = 1;
constexpr int pathRule = 1;

Ruleset rulesetOf(int version) {
    Ruleset rules{.files = ofVersion1};
    if (version >= 2) rules.files |= moveToFolder;
    if (version >= 3) rules.files |= truncate;
    if (version >= 4) rules.network = connections;
    if (version >= 5) rules.files |= deviceCommands;
    if (version >= 6) rules.scope = otherPrograms;
    return rules;
}

class OpenFile {
public:
    explicit OpenFile(int descriptor) : m_descriptor(descriptor) {}
    ~OpenFile() {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    int operator*() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }

private:
    const int m_descriptor;
};

/// The rights of what lies there, and of all below it. What it leads to counts, as it does when it is opened.
void allow(const OpenFile& ruleset, const fs::path& path, std::uint64_t rights) {
    const OpenFile file(::open(path.c_str(), O_PATH | O_CLOEXEC));
    struct stat status = {};
    if (!file || ::fstat(*file, &status) != 0) return;
    if (!S_ISDIR(status.st_mode)) rights &= ofFiles;
    // Of a pipe without a name there is nothing to allow: it may be opened in any case.
    const PathRule rule{rights, *file};
    ::syscall(SYS_landlock_add_rule, *ruleset, pathRule, &rule, 0U);
}

/// What any program reads of the system, wherever a distribution has it; nothing of it is anybody's own.
constexpr std::array systemPaths = {
    "/usr",           "/lib",         "/lib64",         "/etc/crypto-policies", "/etc/ld.so.cache",
    "/etc/localtime", "/etc/pki/tls", "/etc/ssl/certs", "/etc/ssl/openssl.cnf", "/sys/devices/system/cpu",
    "/dev/null",      "/dev/urandom"};
/// How names of hosts are resolved.
constexpr std::array namePaths = {"/etc/hosts",         "/etc/host.conf", "/etc/gai.conf",
                                  "/etc/nsswitch.conf", "/etc/protocols", "/etc/services"};
/// And by whom: other programs put a new file in its place when the network changes, so that its folder
/// counts.
constexpr const char* resolverFile = "/etc/resolv.conf";
/// Certificates, where libcurl and OpenSSL look for them. On many systems they are links to where another
/// program puts new ones, so that the folder there counts.
constexpr std::array certificateFiles = {"/etc/ssl/certs/ca-certificates.crt",
                                         "/etc/pki/tls/certs/ca-bundle.crt", "/etc/pki/tls/cert.pem",
                                         "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"};
/// By which the person has said that it lies elsewhere; several with colons between them.
constexpr std::array pathVariables = {"LD_LIBRARY_PATH", "OPENSSL_CONF", "SSL_CERT_DIR",
                                      "SSL_CERT_FILE",   "TZ",           "TZDIR"};

/// The version that is in force, or 0, and then `error` says why.
int restrictFiles(const Sandbox& sandbox, int mostVersion, int& error) {
    const auto known = ::syscall(SYS_landlock_create_ruleset, nullptr, 0U, versionFlag);
    if (known < 0) error = errno;
    if (mostVersion == 0) error = ENOSYS;
    if (error != 0) return 0;
    const int version = std::min(static_cast<int>(known), mostVersion);
    Ruleset rules = rulesetOf(version);
    // A service may be asked at any port.
    if (sandbox.isNetworked) rules.network &= 1;  // that connections are taken
    const OpenFile ruleset(
        static_cast<int>(::syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0U)));
    const auto allowAll = [&](const auto& paths, std::uint64_t rights) {
        for (const auto& path : paths) allow(ruleset, path, rights & rules.files);
    };
    if (ruleset) {
        std::error_code none;
        allowAll(systemPaths, reading);
        for (const char* file : certificateFiles) {
            const fs::path target = fs::canonical(file, none);
            allow(ruleset, target == file ? target : target.parent_path(), reading);
        }
        for (const char* variable : pathVariables) {
            const char* value = std::getenv(variable);
            const bool isOfZone = std::string_view(variable) == "TZ";
            for (std::string_view rest = value ? value : ""; !rest.empty();) {
                const auto end = rest.find(':');
                // A zone that is named by less than a path is the system's.
                if (!isOfZone || rest.starts_with('/')) allow(ruleset, rest.substr(0, end), reading);
                rest = end == std::string_view::npos ? "" : rest.substr(end + 1);
            }
        }
        if (sandbox.isNetworked) {
            allowAll(namePaths, reading);
            allow(ruleset, fs::canonical(resolverFile, none).parent_path(), reading);
        }
        allowAll(sandbox.read, reading);
        allowAll(sandbox.write, writing | deviceCommands);
    }
    if (!ruleset || ::syscall(SYS_landlock_restrict_self, *ruleset, 0U) != 0) {
        error = errno;
        return 0;
    }
    return version;
}

// System calls

/// Of memory, threads, time, and of what is open.
constexpr std::initializer_list<int> always = {SCMP_SYS(brk),
                                               SCMP_SYS(mmap),
                                               SCMP_SYS(munmap),
                                               SCMP_SYS(mprotect),
                                               SCMP_SYS(mremap),
                                               SCMP_SYS(madvise),
                                               SCMP_SYS(futex),
                                               SCMP_SYS(set_robust_list),
                                               SCMP_SYS(set_tid_address),
                                               SCMP_SYS(rseq),
                                               SCMP_SYS(membarrier),
                                               SCMP_SYS(sched_yield),
                                               SCMP_SYS(sched_getaffinity),
                                               SCMP_SYS(getcpu),
                                               SCMP_SYS(exit),
                                               SCMP_SYS(exit_group),
                                               SCMP_SYS(rt_sigaction),
                                               SCMP_SYS(rt_sigprocmask),
                                               SCMP_SYS(rt_sigreturn),
                                               SCMP_SYS(rt_sigtimedwait),
                                               SCMP_SYS(sigaltstack),
                                               SCMP_SYS(restart_syscall),
                                               SCMP_SYS(gettid),
                                               SCMP_SYS(getpid),
                                               SCMP_SYS(getppid),
                                               SCMP_SYS(getuid),
                                               SCMP_SYS(geteuid),
                                               SCMP_SYS(getgid),
                                               SCMP_SYS(getegid),
                                               SCMP_SYS(getrusage),
                                               SCMP_SYS(times),
                                               SCMP_SYS(sysinfo),
                                               SCMP_SYS(uname),
                                               SCMP_SYS(getrandom),
                                               SCMP_SYS(clock_gettime),
                                               SCMP_SYS(clock_getres),
                                               SCMP_SYS(gettimeofday),
                                               SCMP_SYS(time),
                                               SCMP_SYS(nanosleep),
                                               SCMP_SYS(clock_nanosleep),
                                               SCMP_SYS(read),
                                               SCMP_SYS(pread64),
                                               SCMP_SYS(readv),
                                               SCMP_SYS(preadv),
                                               SCMP_SYS(write),
                                               SCMP_SYS(pwrite64),
                                               SCMP_SYS(writev),
                                               SCMP_SYS(pwritev),
                                               SCMP_SYS(lseek),
                                               SCMP_SYS(close),
                                               SCMP_SYS(close_range),
                                               SCMP_SYS(dup),
                                               SCMP_SYS(dup2),
                                               SCMP_SYS(dup3),
                                               SCMP_SYS(fsync),
                                               SCMP_SYS(fdatasync),
                                               SCMP_SYS(fadvise64),
                                               SCMP_SYS(fstat),
                                               SCMP_SYS(fstatfs),
                                               SCMP_SYS(getdents64),
                                               SCMP_SYS(poll),
                                               SCMP_SYS(ppoll),
                                               SCMP_SYS(select),
                                               SCMP_SYS(pselect6),
                                               SCMP_SYS(epoll_create1),
                                               SCMP_SYS(epoll_ctl),
                                               SCMP_SYS(epoll_wait),
                                               SCMP_SYS(epoll_pwait),
                                               SCMP_SYS(epoll_pwait2),
                                               SCMP_SYS(eventfd2),
                                               SCMP_SYS(pipe),
                                               SCMP_SYS(pipe2)};
/// Of names, whose contents Landlock decides on.
constexpr std::initializer_list<int> ofNames = {
    SCMP_SYS(stat),     SCMP_SYS(lstat),      SCMP_SYS(newfstatat), SCMP_SYS(statx),
    SCMP_SYS(statfs),   SCMP_SYS(access),     SCMP_SYS(faccessat),  SCMP_SYS(faccessat2),
    SCMP_SYS(readlink), SCMP_SYS(readlinkat), SCMP_SYS(getcwd)};
/// No folder is made, but where one should be, something else may lie, and that is said.
constexpr std::initializer_list<int> ofWriting = {
    SCMP_SYS(link),      SCMP_SYS(linkat), SCMP_SYS(mkdir),    SCMP_SYS(mkdirat),    SCMP_SYS(unlink),
    SCMP_SYS(unlinkat),  SCMP_SYS(rename), SCMP_SYS(renameat), SCMP_SYS(renameat2),  SCMP_SYS(ftruncate),
    SCMP_SYS(fallocate), SCMP_SYS(flock),  SCMP_SYS(umask),    SCMP_SYS(ftruncate64)};
/// The same as all of these on machines of 32 bits, where they have other names; elsewhere there are none.
constexpr std::initializer_list<int> ofNarrowMachines = {SCMP_SYS(mmap2),
                                                         SCMP_SYS(_llseek),
                                                         SCMP_SYS(stat64),
                                                         SCMP_SYS(lstat64),
                                                         SCMP_SYS(fstat64),
                                                         SCMP_SYS(fstatat64),
                                                         SCMP_SYS(statfs64),
                                                         SCMP_SYS(fstatfs64),
                                                         SCMP_SYS(fadvise64_64),
                                                         SCMP_SYS(arm_fadvise64_64),
                                                         SCMP_SYS(_newselect),
                                                         SCMP_SYS(getuid32),
                                                         SCMP_SYS(geteuid32),
                                                         SCMP_SYS(getgid32),
                                                         SCMP_SYS(getegid32),
                                                         SCMP_SYS(ugetrlimit),
                                                         SCMP_SYS(set_thread_area),
                                                         SCMP_SYS(set_tls),
                                                         SCMP_SYS(cacheflush),
                                                         SCMP_SYS(sigreturn),
                                                         SCMP_SYS(clock_gettime64),
                                                         SCMP_SYS(clock_getres_time64),
                                                         SCMP_SYS(clock_nanosleep_time64),
                                                         SCMP_SYS(futex_time64),
                                                         SCMP_SYS(ppoll_time64),
                                                         SCMP_SYS(pselect6_time64),
                                                         SCMP_SYS(rt_sigtimedwait_time64)};
constexpr std::initializer_list<int> ofNetwork = {
    SCMP_SYS(connect),    SCMP_SYS(sendto),      SCMP_SYS(sendmsg),     SCMP_SYS(sendmmsg),
    SCMP_SYS(recvfrom),   SCMP_SYS(recvmsg),     SCMP_SYS(recvmmsg),    SCMP_SYS(getsockopt),
    SCMP_SYS(setsockopt), SCMP_SYS(getsockname), SCMP_SYS(getpeername), SCMP_SYS(shutdown)};
constexpr std::initializer_list<int> ofChannels = {SCMP_SYS(recvfrom), SCMP_SYS(sendto), SCMP_SYS(setsockopt),
                                                   SCMP_SYS(shutdown)};
constexpr std::uint64_t socketKind = 0xF;  // of a socket's type; the rest are flags
/// Of what is open, a terminal among it; others put what they like into its input.
constexpr std::initializer_list<std::uint64_t> deviceRequests = {TCGETS,   TCSETS,  TCSETSW,   TCSETSF,
                                                                 FIONREAD, FIONBIO, TIOCGWINSZ};

/// The same of its flags and of locks; others have a signal sent to any program when something comes in.
constexpr std::initializer_list<std::uint64_t> fileRequests = {F_DUPFD, F_DUPFD_CLOEXEC, F_GETFD, F_SETFD,
                                                               F_GETFL, F_GETLK,         F_SETLK, F_SETLKW};

/// What may be asked of the kernel, and "not permitted" for all else: what a library tries in vain becomes an
/// ordinary error there, and a line for the person, where a process that is ended would lose what it has
/// done.
class CallFilter {
public:
    explicit CallFilter(const Sandbox& sandbox) {
        if (!m_filter) return;
        seccomp_attr_set(m_filter.get(), SCMP_FLTATR_API_SYSRAWRC, 1);  // errors as they are
        seccomp_attr_set(m_filter.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2);  // as a tree
        add(always);
        add(ofNames);
        add(ofNarrowMachines);
        const bool mayWrite = !sandbox.write.empty();
        if (mayWrite) add(ofWriting);
        addOpening(mayWrite);
        addThreads();
        for (const std::uint64_t request : deviceRequests) add(SCMP_SYS(ioctl), {is(1, request)});
        for (const int call : {SCMP_SYS(fcntl), SCMP_SYS(fcntl64)}) {
            for (const std::uint64_t request : fileRequests) add(call, {is(1, request)});
            add(call, {is(1, F_SETFL), has(2, O_ASYNC, 0)});
        }
        // Of the process itself: `abort`, and how large a stack is.
        add(SCMP_SYS(tgkill), {is(0, static_cast<std::uint64_t>(::getpid()))});
        add(SCMP_SYS(prlimit64), {is(0, 0), is(2, 0)});
        add(SCMP_SYS(prctl), {is(0, PR_SET_NAME)});
        if (sandbox.takesFiles || sandbox.usesChannels) add(SCMP_SYS(recvmsg));
        if (sandbox.usesChannels) add(ofChannels);
        if (!sandbox.isNetworked) return;
        add(ofNetwork);
        for (const std::uint64_t family : std::initializer_list<std::uint64_t>{AF_INET, AF_INET6})
            add(SCMP_SYS(socket), {is(0, family)});
        // libcurl wakes its threads by one. A socket for datagrams would reach any program's.
        add(SCMP_SYS(socketpair), {is(0, AF_UNIX), has(1, socketKind, SOCK_STREAM)});
    }

    /// Puts it in force. The error, or 0.
    int load() {
        if (!m_filter) return ENOMEM;
        if (m_error == 0) m_error = seccomp_load(m_filter.get());
        return -m_error;
    }

private:
    void add(std::initializer_list<int> calls) {
        for (const int call : calls) add(call);
    }
    void add(int call, std::initializer_list<scmp_arg_cmp> conditions = {},
             std::uint32_t action = SCMP_ACT_ALLOW) {
        const int error = seccomp_rule_add_array(
            m_filter.get(), action, call, static_cast<unsigned>(conditions.size()), conditions.begin());
        if (error != 0 && m_error == 0) m_error = error;
    }

    /// That an argument has this value; that these bits of it have.
    static scmp_arg_cmp is(unsigned argument, std::uint64_t value) {
        return {argument, SCMP_CMP_EQ, value, 0};
    }
    static scmp_arg_cmp has(unsigned argument, std::uint64_t bits, std::uint64_t value) {
        return {argument, SCMP_CMP_MASKED_EQ, bits, value};
    }

    /// Landlock before its third version lets a file be emptied by whoever may read it, even.
    void addOpening(bool mayWrite) {
        const std::uint64_t refused = mayWrite ? O_TRUNC : O_TRUNC | O_CREAT | O_ACCMODE;
        add(SCMP_SYS(open), {has(1, refused, 0)});
        add(SCMP_SYS(openat), {has(2, refused, 0)});
    }

    /// Threads, but no processes and no namespaces. What the newer call is asked for no filter sees; where it
    /// isn't there, the older is used.
    void addThreads() {
        add(SCMP_SYS(clone), {has(0, CLONE_THREAD, CLONE_THREAD)});
        add(SCMP_SYS(clone3), {}, SCMP_ACT_ERRNO(ENOSYS));
    }

    struct Release {
        void operator()(void* filter) const { seccomp_release(filter); }
    };
    std::unique_ptr<void, Release> m_filter{seccomp_init(SCMP_ACT_ERRNO(EPERM))};
    int m_error = 0;
};

}  // namespace

bool isSandboxLeftOut() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
    return true;
#endif
#endif
    return false;
}

SandboxState restrictProcess(const Sandbox& sandbox, const SandboxLimits& limits) {
    SandboxState state;
    if (isSandboxLeftOut()) {
        state.landlockError = state.seccompError = ENOSYS;
        return state;
    }
    // Neither is had without: nothing that is started from here on may gain rights.
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        state.landlockError = state.seccompError = errno;
        return state;
    }
    state.landlock = restrictFiles(sandbox, limits.landlock, state.landlockError);
    state.seccompError = limits.hasSeccomp ? CallFilter(sandbox).load() : ENOSYS;
    return state;
}

}  // namespace quillmark
