#include "Sandbox/Sandbox.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "QuillmarkKit/Support/HTTP.h"
#include "TestServer.h"
#include "tests/SandboxAttempts.h"
#include "tests/Test.h"

namespace {

using namespace quillmark;
using namespace quillmark::test;

/// A process that has nothing to do with the others, and lets anybody look into it who may.
class OtherProcess {
public:
    OtherProcess() {
        if (id != 0) return;
        prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
        for (;;) pause();
    }
    ~OtherProcess() {
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    const pid_t id = fork();
};

/// What comes of an attempt in a process of its own: an error, or 0.
int outcome(const Attempt& attempt, const SandboxLimits& limits, pid_t other) {
    Place place;
    place.other = other;
    for (const char* file : {"in/message", "out/file", "beside"}) place.folder.write(file, "bytes");
    std::filesystem::create_symlink("../beside", place / "in/link");
    int ends[2] = {};
    EXPECT_EQ(pipe(ends), 0);
    place.pipe = ends[0];
    const pid_t child = fork();
    if (child == 0) {
        Sandbox sandbox{.read = {place / "in", place / "missing"},
                        .isNetworked = attempt.rights == Rights::network};
        if (attempt.rights == Rights::files) sandbox.write = {place / "out"};
        restrictProcess(sandbox, limits);
        _exit(attempt.make(place));
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(ends[0]), close(ends[1]);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
}

TEST(Sandbox, refusesWhatItDoesNotName) {
    if (isSandboxLeftOut()) GTEST_SKIP() << "a build with a sanitizer";
    const SandboxState here = [] {
        int ends[2] = {};
        SandboxState state;
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            state = restrictProcess({});
            _exit(write(ends[1], &state, sizeof state) == sizeof state ? 0 : 1);
        }
        EXPECT_EQ(read(ends[0], &state, sizeof state), static_cast<ssize_t>(sizeof state));
        waitpid(child, nullptr, 0);
        close(ends[0]), close(ends[1]);
        return state;
    }();
    const OtherProcess other;
    for (int version = 0; version <= SandboxLimits::newestLandlock; ++version) {
        for (const bool hasSeccomp : {true, false}) {
            for (const Attempt& attempt : attempts) {
                const int error = outcome(attempt, {version, hasSeccomp}, other.id);
                const bool isByCall = attempt.isCall && hasSeccomp && here.seccompError == 0;
                const bool isByLandlock = std::min(version, here.landlock) >= attempt.landlock;
                EXPECT_EQ(error == EPERM || error == EACCES || error == EXDEV, isByCall || isByLandlock)
                    << attempt.name << ", Landlock " << version << (hasSeccomp ? ": " : ", no seccomp: ")
                    << std::strerror(error);
                if (attempt.landlock == never && !attempt.isCall && attempt.rights != Rights::network) {
                    EXPECT_EQ(error, 0) << attempt.name << ", Landlock " << version;
                }
            }
        }
    }
}

/// What is loaded only then, and reads certificates, is left alone; and so is nothing else.
TEST(Sandbox, leavesRequestsAlone) {
    if (isSandboxLeftOut()) GTEST_SKIP() << "a build with a sanitizer";
    TestServer server([](const std::string&) { return Reply{.body = "answer"}; });
    const std::string certificates = Authority::shared().caFile(), url = server.url();
    for (const bool isNetworked : {true, false}) {
        const pid_t child = fork();
        if (child == 0) {
            restrictProcess({.read = {certificates}, .isNetworked = isNetworked});
            HTTPEngine http({.caFile = certificates, .allowLoopback = true});
            _exit(thrown([&] { http.get({.url = url}, {}); }));
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status) == 0, isNetworked) << WEXITSTATUS(status);
    }
}

}  // namespace
