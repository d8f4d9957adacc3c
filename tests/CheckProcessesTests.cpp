#include "Apart/CheckProcesses.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <iterator>
#include <new>
#include <set>

#include "Apart/ApartReader.h"
#include "Apart/CheckQuestions.h"
#include "Apart/CheckWorker.h"
#include "Apart/MessageCheck.h"
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

TEST(CheckProcesses, areNotWaitedForBehindAStop) {
    CheckProcesses processes(
        [](const Channel& channel) {
            const pid_t maker = getppid();
            channel.send(&maker, sizeof maker);
        },
        {.takesFiles = true}, std::chrono::hours(1));
    const auto process = processes.take();
    ASSERT_TRUE(process);
    pid_t maker = 0;
    ASSERT_TRUE(process->channel().receive(&maker, sizeof maker, [] { return true; }));
    kill(maker, SIGSTOP);
    while (processes.take(CheckProcesses::Kind::unused, [] { return false; })) {
    }
    kill(maker, SIGCONT);
    EXPECT_TRUE(processes.take()) << "it was not silent for as long as it may be";
}

/// How many of the next processes are to end before they ask for anything; shared with all.
std::atomic<int>& endAtOnce() {
    static void* const place =
        mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    static auto* const count = new (place) std::atomic<int>(0);
    return *count;
}

/// Reads a whole file a message, and ends at one that says so; so does the next process, at once, or all.
void serveFiles(const Channel& channel) {
    const Talk talk(channel);
    std::deque<int> files;
    bool areSeveral = false;
    const auto next = [&]() -> std::optional<std::string> {
        for (bool isLast = !files.empty(); !isLast; areSeveral = files.size() > 1) {
            if (files.empty()) talk.tell(TalkKind::file);
            const auto piece = talk.hear(Talk::Files::taken);
            isLast = std::get<3>(unpacked<bool, bool, std::optional<Refusal>, bool>(piece->bytes));
            if (piece->file >= 0) files.push_back(piece->file);
        }
        if (files.empty()) return std::nullopt;
        char bytes[3] = {};
        const auto size = static_cast<std::size_t>(read(files.front(), bytes, sizeof bytes));
        close(files.front());
        files.pop_front();
        if (areSeveral) talk.tellWithNext(TalkKind::opened, {});
        if (size == sizeof bytes) {
            endAtOnce() = std::string_view(bytes, size) == "all" ? 1'000'000 : 1;
            raise(SIGKILL);
        }
        return std::string(bytes, size);
    };
    while (const auto piece = talk.hear(Talk::Files::taken)) {
        if (endAtOnce() > 0 && endAtOnce()-- > 0) raise(SIGKILL);
        std::size_t passed =
            piece->kind == TalkKind::resume ? std::get<0>(unpacked<std::size_t>(piece->bytes)) : 0;
        while (passed > 0 && next()) --passed;
        const auto message = piece->kind == TalkKind::next ? next() : "";
        if (message && piece->kind == TalkKind::next)
            talk.tell(TalkKind::found, packed(SentMessage{.bytes = *message}, std::uint64_t{1}));
        talk.tell(message ? TalkKind::several : TalkKind::done);
    }
}

using Lines = std::multiset<std::string>;

/// What each file gave that is read from now on.
Lines whatIsLeft(ApartReader& reader, const test::TemporaryFolder& folder) {
    Lines found;
    while (const auto each = reader.next({})) {
        const auto* const message = std::get_if<FoundMessage>(&*each);
        const auto is = [&](const Refusal& why) { return std::get<FoundProblem>(*each).refusal == why; };
        const std::string what = message                  ? std::string(message->bytes.view())
                                 : is({Refusal::Ended{}}) ? "ended"
                                 : is({Refusal::Moved{}}) ? "changed"
                                                          : "not read";
        found.insert(placeOf(*each).path.substr((folder / "").size()) + ": " + what);
    }
    return found;
}

TEST(ApartReader, givesFilesAgainThatAProcessLeft) {
    test::TemporaryFolder folder;
    Lines expected;
    for (int i = 10; i < 40; ++i) {
        const bool dies = i == 13 || i == 20;
        const std::string name = std::to_string(i);
        folder.write(name, dies ? "die" : name);
        expected.insert(name + (dies ? ": ended" : ": " + name));
    }
    endAtOnce() = 0;
    CheckProcesses processes(serveFiles);
    ApartReader reader(processes, {.path = folder / ""});
    EXPECT_EQ(whatIsLeft(reader, folder), expected);
}

TEST(ApartReader, givesUpWhereNoProcessLives) {
    test::TemporaryFolder folder;
    for (int i = 10; i < 40; ++i) folder.write(std::to_string(i), i == 13 ? "all" : std::to_string(i));
    endAtOnce() = 0;
    CheckProcesses processes(serveFiles);
    ApartReader reader(processes, {.path = folder / ""});
    const Lines expected{"10: 10",    "11: 11",    "12: 12",    "12: ended", "13: ended",
                         "14: ended", "15: ended", "16: ended", "17: ended", ": ended"};
    EXPECT_EQ(whatIsLeft(reader, folder), expected) << "what was given, and the folder for the rest";
}

TEST(ApartReader, givesNoMoreFilesThanAProcessCanHave) {
    test::TemporaryFolder folder;
    Lines expected;
    for (int i = 10; i < 30; ++i) {
        const std::string mail = "From: a@b.example\r\n\r\n" + std::to_string(i);
        folder.write(std::to_string(i), mail);
        expected.insert(std::to_string(i) + ": " + mail);
    }
    rlimit usual = {};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit few = {256, usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    CheckProcesses processes([](const Channel& channel) {
        int last = 0;
        for (int next = 0; next >= 0; next = dup(STDIN_FILENO)) last = next;
        for (int i = 0; i < 3; ++i) close(last - i);  // as many as it can still have
        serveChecks(channel);
    });
    setrlimit(RLIMIT_NOFILE, &usual);
    ApartReader reader(processes, {.path = folder / ""});
    EXPECT_EQ(whatIsLeft(reader, folder), expected);
}

/// What a process passes over for one that ended must be what came of it.
TEST(ApartReader, readsOnOnlyWhatIsAsItWas) {
    constexpr std::size_t count = 20, taken = 2;  // more than come at a time; before it happens
    const std::string mail = "From a@b.example Sat Nov 21 10:00:00 2026\nFrom: a@b.example\n\n";
    std::string mailbox, one = mail;
    for (std::size_t i = 0; i < count; ++i) mailbox += mail + "x\n\n";
    one.resize(mailbox.size(), 'x');
    namespace fs = std::filesystem;
    const struct {
        const char* what;
        bool isTold;
        std::function<void(const fs::path& file, const fs::path& other)> happens;
    } rows[] = {
        {"nothing", false, [](const auto&...) {}},
        {"it is gone", true, [](const auto& file, const auto&) { fs::remove(file); }},
        {"it is another", true, [](const auto& file, const auto& other) { fs::rename(other, file); }},
        {"it is shorter", true, [](const auto& file, const auto&) { fs::resize_file(file, 70); }},
        {"it holds fewer, unnoticed", true,
         [&](const auto& file, const auto&) {
             const auto time = fs::last_write_time(file);
             std::ofstream(file) << one;
             fs::last_write_time(file, time);
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const test::TemporaryFolder folder, beside;
        const std::string path = folder.write("box", mailbox), other = beside.write("box", mailbox);
        for (const char* name : {"c", "d"}) folder.write(name, "From: a@b.example\n\n" + std::string(name));
        // Each process ends when it is to go on.
        CheckProcesses processes([](const Channel& channel) {
            const Talk talk(channel);
            CheckWorker worker(channel);
            bool hasRead = false;
            while (const auto piece = talk.hear(Talk::Files::taken)) {
                if (piece->kind == TalkKind::next && std::exchange(hasRead, true)) raise(SIGKILL);
                worker.answer(*piece);
            }
        });
        ApartReader reader(processes, {.path = folder / ""});
        for (std::size_t i = 0; i < taken; ++i) ASSERT_TRUE(reader.next({}));
        row.happens(path, other);
        const Lines found = whatIsLeft(reader, folder);
        EXPECT_EQ(found.count("box: changed"), row.isTold ? 1u : 0u);
        EXPECT_EQ(found.size() - found.count("box: changed") == count - taken + 2, !row.isTold);
        for (const std::string name : {"c", "d"})
            EXPECT_EQ(found.count(name + ": From: a@b.example\n\n" + name), 1u);
    }
}

/// A sender may write any time into a signature.
TEST(CheckProtocol, timesOfAnyReport) {
    for (const std::int64_t seconds : {-99'999'999'999'999, std::int64_t{0}, 99'999'999'999'999}) {
        const Date time{std::chrono::seconds(seconds)};
        EXPECT_EQ(std::get<0>(unpacked<Date>(packed(time))), time) << seconds;
    }
}

TEST(CheckQuestions, knowWhatAProcessWasToldForOtherMessages) {
    const auto told = std::make_shared<ToldAnswers>();
    const auto resolver = [] {
        return std::make_shared<StaticResolver>(
            StaticResolver::Answers{{"a.example|TXT", DNSAnswer::records({"text"})}});
    };
    const Answerers answerers{.resolver = resolver()};
    CheckQuestions first(answerers, {}, told), second(answerers, {}, told);
    EXPECT_TRUE(first.begin()) << "whoever was asked before";
    const std::string question = packed(std::string_view("a.example"), 16, std::int64_t{1} << 60);
    const std::string answer = first.answer(TalkKind::lookup, question);
    using Number = std::optional<std::size_t>;
    EXPECT_EQ((std::get<1>(unpacked<SentAnswer, Number>(answer))), 0u) << "is kept";
    EXPECT_FALSE(second.begin());
    second.needed(packed(std::size_t{0}));
    EXPECT_EQ(second.answers()->dns.find("a.example|TXT"), DNSAnswer::records({"text"}));
    EXPECT_THROW(second.needed(packed(std::size_t{1})), DecodingError);
    CheckQuestions other({.resolver = resolver()}, {}, told);
    EXPECT_TRUE(other.begin()) << "somebody else is asked";
    EXPECT_THROW(other.needed(packed(std::size_t{0})), DecodingError);
    other.answer(TalkKind::lookup, question);
    EXPECT_THROW(other.needed(packed(std::size_t{0})), DecodingError) << "it has a number of its own";
    EXPECT_NO_THROW(other.needed(packed(std::size_t{1})));
}

/// Also where what comes between is no message, of which nothing is asked.
TEST(MessageChecker, judgesByNoAnswerOfAnotherService) {
    const auto service = [](const char* policy) {
        StaticResolver::Answers answers;
        for (const char* const domain : {"b.example", "c.example"})
            answers["_dmarc." + std::string(domain) + "|TXT"] =
                DNSAnswer::records({"v=DMARC1; p=" + std::string(policy)});
        return std::make_shared<StaticResolver>(std::move(answers));
    };
    MessageChecker checker(
        service("reject"), nullptr, nullptr, nullptr, [] { return Date(); },
        std::make_shared<CheckProcesses>(serveChecks));
    const auto policyOf = [&](const std::string& bytes) {
        std::string policy = "no report";
        checker.check(Found(FoundMessage{ByteBuffer(bytes), {.path = "/x", .file = "x"}}), {},
                      [&](const CheckOutcome& outcome) {
                          const auto* const checked = std::get_if<CheckOutcome::Checked>(&outcome.value);
                          if (checked) policy = checked->report->dmarc.policy.value_or("none found");
                      });
        return policy;
    };
    const std::string message = "From: a@b.example\r\n\r\nText\r\n";
    EXPECT_EQ(policyOf(message), "reject");
    checker.setResolver(service("none"));
    EXPECT_EQ(policyOf(std::string("\x89PNG\r\n\x1a\n") + std::string(100, '\0')), "no report");
    EXPECT_EQ(policyOf("From: a@c.example\r\n\r\nText\r\n"), "none");
    EXPECT_EQ(policyOf(message), "none");
}

TEST(CheckQuestions, boundTheNamesOfAMessage) {
    const auto isAnswered = [](CheckQuestions& questions, const std::string& name) {
        const std::string question = packed(std::string_view(name), 16, std::int64_t{1} << 60);
        const std::string answer = questions.answer(TalkKind::lookup, question);
        return !std::get<0>(unpacked<SentAnswer, std::optional<std::size_t>>(answer)).failure;
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
            std::string made = std::to_string(which) + ".example";
            while (made.size() < row.length) made.insert(0, made.size() % 10 == 0 ? "." : "a");
            return made;
        };
        std::size_t number = 0;
        for (const std::size_t most : {row.first, row.attached}) {
            questions.begin();
            for (std::size_t i = 0; i < most; ++i) EXPECT_TRUE(isAnswered(questions, name(number++)));
            EXPECT_FALSE(isAnswered(questions, name(number)));
            EXPECT_TRUE(isAnswered(questions, name(0))) << "asked for before";
        }
        EXPECT_FALSE(questions.failures()->dns.entries().empty()) << "a check again is told the same";
        EXPECT_TRUE(isAnswered(questions, std::string(1'000'000, 'a'))) << "that there is no such name";
        const auto askOn = [&] {
            for (std::size_t i = 0; i <= NameBounds::mostRefused; ++i) isAnswered(questions, name(number++));
        };
        EXPECT_THROW(askOn(), DecodingError) << "what is taken down of it would fill the memory";
    }
}

}  // namespace
}  // namespace quillmark
