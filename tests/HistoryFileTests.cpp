#include "QuillmarkKit/HistoryFile.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <random>
#include <set>
#include <thread>

#include "QuillmarkKit/Support/Files.h"
#include "TestServer.h"

namespace quillmark {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;

const Date now = *parsedRFC3339("2026-03-01T09:15:42Z");

ProofReport reportOf(std::uint32_t number, std::size_t size = 0) {
    ProofReport report;
    for (std::size_t i = 0; i < 4; ++i) report.id.bytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
    report.summary.subject = std::string(size, 'x');
    return report;
}

HistoryChange adding(std::uint32_t number, std::size_t size = 0) {
    HistoryChange change;
    EXPECT_TRUE(change.add(reportOf(number, size)));
    return change;
}

std::set<std::string> namesIn(const TemporaryFolder& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.file(""))) names.insert(entry.path().filename());
    return names;
}

constexpr std::size_t any = 100'000'000;  // bytes

/// Runs `work` in a process of its own; its exit status, or 1000 and the signal that ended it.
int inProcess(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

TEST(HistoryFile, loadAndSave) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("made/history.json")};
    EXPECT_EQ(file.load(now), History());
    EXPECT_FALSE(fs::exists(folder.file("made")));
    const History history{1, {reportOf(1), reportOf(2)}};
    file.save(history);
    EXPECT_EQ(file.load(now), history);
    const auto bytes = fileContents(file.url, any);
    file.save(file.load(now));
    EXPECT_EQ(fileContents(file.url, any), bytes);
    EXPECT_EQ(fs::status(file.url).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::status(folder.file("made")).permissions(), fs::perms{0700});
    file.save({0, {}});
    EXPECT_EQ(file.load(now), History());  // the version is that of the form it is written in
}

TEST(HistoryFile, changes) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("history.json")};
    HistoryChange clear, removal;
    clear.removeAll();
    removal.remove(reportOf(1).id);
    EXPECT_FALSE(file.apply(clear, now));
    EXPECT_FALSE(fs::exists(file.url));  // there was nothing to change
    EXPECT_FALSE(file.apply(adding(1), now));
    EXPECT_FALSE(file.apply(adding(2), now));
    EXPECT_FALSE(file.apply(adding(2), now));
    EXPECT_EQ(file.load(now).reports, (std::vector{reportOf(1), reportOf(2)}));
    const auto node = [&] {
        struct stat status = {};
        stat(file.url.c_str(), &status);
        return status.st_ino;
    };
    EXPECT_FALSE(file.apply(removal, now));
    const auto before = node();
    EXPECT_FALSE(file.apply(removal, now));  // has gone already
    EXPECT_EQ(node(), before);
    EXPECT_EQ(file.load(now).reports, std::vector{reportOf(2)});
    EXPECT_FALSE(file.apply(clear, now));
    EXPECT_EQ(file.load(now), History());
}

TEST(HistoryFile, damagedFilesAreSetAside) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("history.json")};
    const std::string first = "history (damaged 2026-03-01T09-15-42Z).json";
    const std::string second = "history (damaged 2026-03-01T09-15-42Z 2).json";
    const std::string third = "history (damaged 2026-03-01T09-15-42Z 3).json";
    folder.write(first, "somebody else's");
    folder.write("history.json", "no JSON");
    try {
        file.load(now);
        ADD_FAILURE() << "loaded";
    } catch (const HistoryFileError& error) {
        const auto* damaged = std::get_if<HistoryFileError::Damaged>(&error.value);
        ASSERT_NE(damaged, nullptr);
        EXPECT_EQ(damaged->movedTo, folder.file(second));
        EXPECT_EQ(damaged->fault, "byte 2: this is no JSON");
    }
    EXPECT_EQ(file.load(now), History());
    file.save({1, {reportOf(1)}});
    const std::string cut = fileContents(file.url, any).value().substr(0, 500);
    folder.write("history.json", cut);
    const auto damaged = file.apply(adding(2), now);
    ASSERT_TRUE(damaged);
    EXPECT_EQ(damaged->movedTo, folder.file(third));
    EXPECT_EQ(file.load(now).reports, std::vector{reportOf(2)});
    EXPECT_EQ(fileContents(folder.file(first), any), "somebody else's");
    EXPECT_EQ(fileContents(folder.file(second), any), "no JSON");
    EXPECT_EQ(fileContents(folder.file(third), any), cut);
    EXPECT_EQ(namesIn(folder),
              (std::set<std::string>{".history.json.lock", "history.json", first, second, third}));

    HistoryChange clear;
    clear.removeAll();
    folder.write("history.json", "no JSON");
    folder.write("history (mine).json", "");
    EXPECT_FALSE(file.apply(clear, now)) << "nothing of it is kept";
    EXPECT_EQ(file.load(now), History());
    EXPECT_EQ(namesIn(folder),
              (std::set<std::string>{".history.json.lock", "history.json", "history (mine).json"}));
    EXPECT_EQ(::remove(folder.file("history (mine).json").c_str()), 0);

    // Without room for a new one it stays where it is, and is told of the next time.
    folder.write("history.json", "no JSON again");
    EXPECT_EQ(inProcess([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{1'000, 1'000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  try {
                      file.apply(adding(3, 100'000), now);
                  } catch (const fs::filesystem_error&) {
                      return;
                  }
                  _exit(1);
              }),
              0);
    EXPECT_EQ(fileContents(file.url, any), "no JSON again");
}

TEST(HistoryFile, newerFilesStay) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("history.json")};
    const std::string newer = R"({"reports": [{"other": 1}], "version": 3})";
    folder.write("history.json", newer);
    HistoryChange clear;
    clear.removeAll();
    const std::function<void()> rows[] = {[&] { file.load(now); }, [&] { file.apply(adding(1), now); },
                                          [&] { file.apply(clear, now); }};
    for (const auto& act : rows) {
        try {
            act();
            ADD_FAILURE() << "done";
        } catch (const HistoryFileError& error) {
            const auto* version = std::get_if<HistoryFileError::NewerVersion>(&error.value);
            ASSERT_NE(version, nullptr);
            EXPECT_EQ(version->version, 3);
        }
        EXPECT_EQ(fileContents(file.url, any), newer);
    }
    EXPECT_EQ(namesIn(folder), (std::set<std::string>{".history.json.lock", "history.json"}));
}

/// What the system refuses is thrown, and what was there stays.
TEST(HistoryFile, refusals) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("history.json")};
    file.save({1, {reportOf(1, 100'000)}});
    const auto bytes = fileContents(file.url, any);
    const auto refused = [](const HistoryFile& to, const std::function<void(const HistoryFile&)>& act) {
        try {
            act(to);
        } catch (const fs::filesystem_error& error) {
            return error.code().value();
        }
        return 0;
    };
    const auto load = [](const HistoryFile& from) { from.load(now); };
    const auto add = [](const HistoryFile& to) { to.apply(adding(2, 100'000), now); };
    const auto save = [](const HistoryFile& to) { to.save({1, {reportOf(2, 200'000)}}); };

    EXPECT_EQ(refused({folder.file("history.json/history.json")}, load), ENOTDIR);
    EXPECT_EQ(refused({folder.file("history.json/history.json")}, save), ENOTDIR);
    fs::create_directory(folder.file("folder"));
    EXPECT_EQ(refused({folder.file("folder")}, load), EISDIR);
    EXPECT_EQ(refused({folder.file("folder")}, add), EISDIR);
    EXPECT_EQ(refused({"/dev/null"}, load), EINVAL);

    // No room: a limit on the size of files stands in for a full disk.
    EXPECT_EQ(inProcess([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{150'000, 150'000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  if (refused(file, add) != EFBIG || refused(file, save) != EFBIG) _exit(1);
              }),
              0);
    // A folder that nobody may write into, which does not stop root.
    fs::permissions(folder.file(""), fs::perms{0500});
    EXPECT_EQ(inProcess([&] {
                  if (geteuid() == 0 && setuid(65'534) != 0) _exit(2);
                  if (refused(file, add) != EACCES || refused(file, save) != EACCES) _exit(1);
              }),
              0);
    fs::permissions(folder.file(""), fs::perms{0700});
    EXPECT_EQ(fileContents(file.url, any), bytes);
    EXPECT_EQ(namesIn(folder),
              (std::set<std::string>{".folder.lock", ".history.json.lock", "folder", "history.json"}));
}

/// Somebody puts something else in the file's place between two changes: none writes over it.
TEST(HistoryFile, replacedInBetween) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("history.json")}, other{folder.file("other.json")};
    const auto ids = [](const HistoryFile& of) {
        std::set<UUID> found;
        for (const ProofReport& report : of.load(now).reports) found.insert(report.id);
        return found;
    };
    file.apply(adding(1), now);
    other.apply(adding(2), now);
    const auto bytes = fileContents(other.url, any);
    fs::remove(file.url);
    fs::create_symlink(other.url, file.url);  // what it leads to is what was there
    file.apply(adding(3), now);
    EXPECT_EQ(ids(file), (std::set{reportOf(2).id, reportOf(3).id}));
    EXPECT_EQ(fileContents(other.url, any), bytes);

    fs::remove(file.url);
    fs::create_symlink(folder.file("nowhere"), file.url);
    file.apply(adding(4), now);
    EXPECT_EQ(ids(file), std::set{reportOf(4).id});

    fs::remove(file.url);
    fs::create_directory(file.url);
    EXPECT_THROW(file.apply(adding(5), now), fs::filesystem_error);
    fs::remove(file.url);
    folder.write("history.json", R"({"reports":[],"version":3})");
    EXPECT_THROW(file.apply(adding(6), now), HistoryFileError);
    EXPECT_EQ(fileContents(file.url, any), R"({"reports":[],"version":3})");
}

/// Several processes and threads add and remove at once: nothing is lost, nothing comes back.
TEST(HistoryFile, changesAtOnce) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("history.json")};
    constexpr std::uint32_t each = 10;
    const auto work = [&](std::uint32_t who) {
        for (std::uint32_t i = 0; i < each; ++i) {
            file.apply(adding(100 * who + i), now);
            if (i % 2 == 0) continue;
            HistoryChange removal;
            removal.remove(reportOf(100 * who + i).id);
            file.apply(removal, now);
        }
    };
    std::vector<pid_t> children;
    for (std::uint32_t who = 0; who < 3; ++who) {
        children.push_back(fork());
        if (children.back() == 0) {
            work(who);
            _exit(0);
        }
    }
    {
        std::vector<std::jthread> threads;
        for (std::uint32_t who = 3; who < 5; ++who) threads.emplace_back(work, who);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    std::set<UUID> ids, expected;
    for (const ProofReport& report : file.load(now).reports) ids.insert(report.id);
    for (std::uint32_t who = 0; who < 5; ++who) {
        for (std::uint32_t i = 0; i < each; i += 2) expected.insert(reportOf(100 * who + i).id);
    }
    EXPECT_EQ(ids, expected);
}

/// A process that saves is killed at random moments, 50 times or as often as the environment says: what was
/// saved before is always there, the change is there or not, and no leftover stays.
TEST(HistoryFile, killedWhileSaving) {
    const TemporaryFolder folder;
    const HistoryFile file{folder.file("history.json")};
    std::vector<ProofReport> expected;
    for (std::uint32_t i = 0; i < 10; ++i) expected.push_back(reportOf(i, 2'000));
    const char* times = std::getenv("QUILLMARK_KILLS");
    file.save({1, expected});
    std::mt19937 random(7);
    double range = 0.01;         // seconds; as long as one or two changes take on this machine at this moment
    std::set<std::size_t> ends;  // how many changes a process had done
    std::uint32_t next = 100;
    for (int left = times ? std::atoi(times) : 50; left > 0; --left) {
        const pid_t child = fork();
        if (child == 0) {
            for (std::uint32_t number = next;; ++number) file.apply(adding(number, 2'000), now);
        }
        std::this_thread::sleep_for(
            std::chrono::duration<double>(std::uniform_real_distribution(0.0, range)(random)));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const std::vector<ProofReport> found = file.load(now).reports;
        ASSERT_GE(found.size(), expected.size());
        const std::size_t done = found.size() - expected.size();
        ends.insert(done);
        range *= done == 0 ? 1.25 : done > 2 ? 0.8 : 1.0;
        while (expected.size() < found.size()) expected.push_back(reportOf(next++, 2'000));
        ASSERT_EQ(found, expected);
        if (expected.size() > 40) file.save({1, expected = {expected.begin(), expected.begin() + 10}});
    }
    EXPECT_GT(ends.size(), 1u);
    EXPECT_FALSE(file.apply(adding(next), now));
    EXPECT_EQ(namesIn(folder), (std::set<std::string>{".history.json.lock", "history.json"}));
}

TEST(HistoryFile, defaultLocation) {
    const TemporaryFolder folder;
    const char* oldData = std::getenv("XDG_DATA_HOME");
    const char* oldHome = std::getenv("HOME");
    const std::string data = oldData ? oldData : "", home = oldHome ? oldHome : "";
    setenv("XDG_DATA_HOME", folder.file("data").c_str(), 1);
    EXPECT_EQ(HistoryFile::defaultLocation("App"), folder.file("data/App/history.json"));
    EXPECT_EQ(fs::status(folder.file("data")).permissions(), fs::perms{0700});
    setenv("HOME", folder.file("home").c_str(), 1);
    setenv("XDG_DATA_HOME", "relative", 1);
    EXPECT_EQ(HistoryFile::defaultLocation("App"), folder.file("home/.local/share/App/history.json"));
    unsetenv("HOME");
    EXPECT_THROW(HistoryFile::defaultLocation("App"), fs::filesystem_error);
    oldData ? setenv("XDG_DATA_HOME", data.c_str(), 1) : unsetenv("XDG_DATA_HOME");
    oldHome ? setenv("HOME", home.c_str(), 1) : unsetenv("HOME");
}

}  // namespace
}  // namespace quillmark
