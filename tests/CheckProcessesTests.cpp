#include "Apart/CheckProcesses.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <iterator>
#include <set>

#include "Apart/CheckQuestions.h"
#include "tests/SandboxAttempts.h"

namespace quillmark {
namespace {

TEST(CheckProcesses, mayDoNoMoreThanTheirWork) {
    if (isSandboxLeftOut()) GTEST_SKIP() << "a build with a sanitizer";
    test::Place place;
    place.other = getppid();
    for (const char* file : {"in/message", "out/file", "beside"}) place.folder.write(file, "bytes");
    const std::set<std::string_view> always = {"read of the system", "start a thread"};
    const struct {
        const char* who;
        Sandbox sandbox;
        std::set<std::string_view> allowed;
    } rows[] = {
        {"what checks", {.takesFiles = true}, {}},
        {"what asks the network",
         {.write = {place / "out"}, .isNetworked = true},
         {"ask somebody", "IPv4", "IPv6", "a datagram", "replace in its folder", "save a history",
          "save a key", "shorten in its folder"}},
        {"the add-on's host",
         {.write = {place / "out"}, .usesChannels = true},
         {"replace in its folder", "save a history", "save a key", "shorten in its folder"}},
    };
    for (const auto& row : rows) {
        CheckProcesses processes(
            [&](const Channel& channel) {
                const SandboxState state = restrictProcess({});  // where it is in force already, refused
                channel.send(&state, sizeof state);
                for (const test::Attempt& attempt : test::attempts) {
                    const int error = attempt.make(place);
                    channel.send(&error, sizeof error);
                }
            },
            row.sandbox);
        const auto process = processes.take();
        ASSERT_TRUE(process);
        SandboxState state;
        ASSERT_TRUE(process->channel().receive(&state, sizeof state, [] { return true; }));
        if (state.seccompError != EPERM) GTEST_SKIP() << "a system without seccomp";
        const bool hasLandlock = syscall(SYS_landlock_create_ruleset, nullptr, 0, 1) > 0;
        for (const test::Attempt& attempt : test::attempts) {
            int error = 0;
            ASSERT_TRUE(process->channel().receive(&error, sizeof error, [] { return true; }))
                << attempt.name;
            // Nobody is there to be asked, or there is no such network.
            const std::set<int> vain = {0, ECONNREFUSED, EADDRNOTAVAIL, ENETUNREACH, EAFNOSUPPORT};
            const bool isRefused = !vain.contains(error) || (!hasLandlock && !attempt.isCall);
            EXPECT_EQ(isRefused, !always.contains(attempt.name) && !row.allowed.contains(attempt.name))
                << row.who << ": " << attempt.name << ", " << error;
        }
    }
}

TEST(CheckProcesses, whatMakesThemIsReplacedAndNotWaitedForTooLong) {
    CheckProcesses processes(
        [](const Channel& channel) {
            const pid_t maker = getppid();
            channel.send(&maker, sizeof maker);
            pause();
        },
        {.takesFiles = true}, std::chrono::milliseconds(20));
    const auto taken = [&] {
        std::shared_ptr<CheckProcesses::Process> process;
        while (!process) process = processes.take();
        return process;
    };
    const auto makerOf = [](const CheckProcesses::Process& process) {
        pid_t maker = 0;
        process.channel().receive(&maker, sizeof maker, [] { return true; });
        return maker;
    };
    for (int i = 0; i < 2; ++i) {
        const auto process = taken();
        const pid_t maker = makerOf(*process);
        ASSERT_GT(maker, 1);
        kill(maker, SIGKILL);
        char byte = 0;
        EXPECT_FALSE(process->channel().receive(&byte, sizeof byte, [] { return true; })) << "ends with it";
        pid_t other = maker;
        while (other == maker || other <= 1) other = makerOf(*taken());  // one of those before may be there
    }
    const pid_t maker = makerOf(*taken());
    ASSERT_GT(maker, 1);
    kill(maker, SIGSTOP);
    while (processes.take()) {
    }
    EXPECT_EQ(processes.take(), nullptr);
    kill(maker, SIGCONT);
    taken();
}

/// A sender may write any time into a signature.
TEST(CheckProtocol, timesOfAnyReport) {
    for (const std::int64_t seconds : {-99'999'999'999'999, std::int64_t{0}, 99'999'999'999'999}) {
        const Date time{std::chrono::seconds(seconds)};
        EXPECT_EQ(std::get<0>(unpacked<Date>(packed(time))), time) << seconds;
    }
}

TEST(CheckQuestions, boundTheNamesOfAMessage) {
    const auto isAnswered = [](CheckQuestions& questions, const std::string& name) {
        const std::string question = packed(std::string_view(name), 16, std::int64_t{1} << 60);
        const std::string answer = questions.answer(TalkKind::lookup, question);
        return !std::get<0>(unpacked<SentAnswer>(answer)).failure;
    };
    const struct {
        const char* what;
        std::size_t length;  // of each name
        std::size_t first, attached;
    } rows[] = {{"many", 12, NameBounds::most, NameBounds::mostAttached},
                {"long", 200, NameBounds::bytes / 200, NameBounds::bytesAttached / 200}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        CheckQuestions questions({.resolver = std::make_shared<StaticResolver>(StaticResolver::Answers())},
                                 {});
        const auto name = [&](std::size_t which) {
            std::string end = std::to_string(which) + ".example";
            return std::string(row.length - end.size(), 'a') + end;
        };
        std::size_t number = 0;
        for (const std::size_t most : {row.first, row.attached}) {
            questions.begin();
            for (std::size_t i = 0; i < most; ++i) EXPECT_TRUE(isAnswered(questions, name(number++)));
            EXPECT_FALSE(isAnswered(questions, name(number)));
            EXPECT_TRUE(isAnswered(questions, name(0))) << "asked for before";
        }
        EXPECT_FALSE(questions.failures()->dns.entries().empty()) << "a check again is told the same";
    }
}

}  // namespace
}  // namespace quillmark
