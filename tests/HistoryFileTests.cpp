#include "QuillmarkKit/HistoryFile.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

#include "QuillmarkKit/Support/Files.h"
#include "TestServer.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

namespace fs = std::filesystem;
using test::contents, test::TemporaryFolder;

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

using Names = std::set<std::string>;
Names namesIn(const TemporaryFolder& folder) {
    Names names;
    for (const auto& entry : fs::directory_iterator(folder / "")) names.insert(entry.path().filename());
    return names;
}

/// Runs `work` in a process of its own; what waiting for it tells.
template <typename Work>
int inProcess(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

/// For the process from now on: a limit on the size of files stands in for a full disk.
void leaveRoom(rlim_t bytes) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(HistoryFile, loadAndSave) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "made/history.json"};
    EXPECT_EQ(file.load(now), History());
    EXPECT_FALSE(fs::exists(folder / "made"));
    const History history{1, {reportOf(1), reportOf(2)}};
    file.save(history);
    EXPECT_EQ(file.load(now), history);
    const std::string bytes = contents(file.url);
    file.save(file.load(now));
    EXPECT_EQ(contents(file.url), bytes);
    EXPECT_EQ(fs::status(file.url).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::status(folder / "made").permissions(), fs::perms{0700});
    file.save({0, {}});
    EXPECT_EQ(file.load(now), History());  // the version is that of the form it is written in
}

TEST(HistoryFile, changes) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"};
    HistoryChange removal;
    removal.remove(reportOf(1).id);
    EXPECT_FALSE(file.apply(removal, now));
    EXPECT_FALSE(fs::exists(file.url));  // there was nothing to change
    for (const std::uint32_t number : {1u, 2u, 2u}) EXPECT_FALSE(file.apply(adding(number), now));
    EXPECT_EQ(file.load(now).reports, (std::vector{reportOf(1), reportOf(2)}));
    EXPECT_FALSE(file.apply(removal, now));
    fs::create_hard_link(file.url, folder / "same");
    EXPECT_FALSE(file.apply(removal, now));  // has gone already
    EXPECT_TRUE(fs::equivalent(file.url, folder / "same"));
    EXPECT_EQ(file.load(now).reports, std::vector{reportOf(2)});
}

TEST(HistoryFile, damagedFilesAreSetAside) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"};
    const std::string first = "history (damaged 2026-03-01T09-15-42Z).json",
                      second = "history (damaged 2026-03-01T09-15-42Z 2).json",
                      third = "history (damaged 2026-03-01T09-15-42Z 3).json";
    folder.write(first, "somebody else's");
    folder.write("history.json", "no JSON");
    try {
        file.load(now);
        ADD_FAILURE() << "loaded";
    } catch (const HistoryFileError& error) {
        const auto& damaged = std::get<HistoryFileError::Damaged>(error.value);
        EXPECT_EQ(damaged.movedTo, folder / second);
        EXPECT_EQ(damaged.fault, "byte 2: this is no JSON");
    }
    EXPECT_EQ(file.load(now), History());
    file.save({1, {reportOf(1)}});
    const std::string cut = contents(file.url).substr(0, 500);
    folder.write("history.json", cut);
    const auto damaged = file.apply(adding(2), now);
    ASSERT_TRUE(damaged);
    EXPECT_EQ(damaged->movedTo, folder / third);
    EXPECT_EQ(file.load(now).reports, std::vector{reportOf(2)});
    EXPECT_EQ(contents(folder / first), "somebody else's");
    EXPECT_EQ(contents(folder / second), "no JSON");
    EXPECT_EQ(contents(folder / third), cut);
    EXPECT_EQ(namesIn(folder), (Names{".history.json.lock", "history.json", first, second, third}));

    // Without room for a new one it stays where it is, and is told of the next time.
    folder.write("history.json", "no JSON again");
    EXPECT_EQ(inProcess([&] {
                  leaveRoom(1'000);
                  try {
                      file.apply(adding(3, 100'000), now);
                  } catch (const fs::filesystem_error&) {
                      return;
                  }
                  _exit(1);
              }),
              0);
    EXPECT_EQ(contents(file.url), "no JSON again");
}

/// What is cleared is what was named, to the letter.
TEST(HistoryFile, clearing) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"};
    const std::string first = "history (damaged 2026-03-01T09-15-42Z).json",
                      second = "history (damaged 2026-03-01T09-15-42Z 2).json";
    const Names others = {"history (damaged by me).json",
                          "history (damaged 2026-03-01T09-15-42Z copy).json",
                          "history (damaged 2026-03-01T09-15-42Z 02).json",
                          "history (damaged 2026-13-01T09-15-42Z).json",
                          "history (damaged 2026-03-01T09:15:42Z).json",
                          "history (damaged 2026-03-01T09-15-42Z).json.old"};
    for (const std::string& name : others) folder.write(name, "mine");
    folder.write(first, "no JSON");
    folder.write("history.json", "no JSON, either");
    HistoryContents contents = file.contents(now);
    EXPECT_TRUE(contents.reports.empty());
    EXPECT_EQ(contents.setAside, (std::vector<fs::path>{folder / second, folder / first}));
    file.apply(adding(1), now);
    contents = file.contents(now);
    EXPECT_EQ(contents.reports, std::vector{reportOf(1).id});
    file.apply(adding(2), now);
    const std::string later = folder.write("history (damaged 2027-03-01T09-15-42Z).json", "no JSON");
    contents.setAside.push_back(folder / *others.begin());
    EXPECT_FALSE(file.clear(contents, now));
    EXPECT_EQ(file.load(now).reports, std::vector{reportOf(2)});
    Names left = others;
    left.insert({".history.json.lock", "history.json", fs::path(later).filename()});
    EXPECT_EQ(namesIn(folder), left);
    // On a full disk.
    EXPECT_EQ(inProcess([&] {
                  leaveRoom(0);
                  file.clear(file.contents(now), now);
              }),
              0);
    EXPECT_TRUE(file.contents(now).isEmpty());
}

/// The whole reports of a damaged file come back in front, and the file stays.
TEST(HistoryFile, recovering) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"}, other{folder / "other.json"};
    other.save({1, {reportOf(1), reportOf(2), reportOf(3)}});
    const std::string whole = contents(other.url), cut = whole.substr(0, whole.rfind("\"verdict\""));
    folder.write("other.json", cut);
    folder.write("history.json", R"({"mine": 1, "reports": [], "version": 1})");
    file.apply(adding(2), now);
    file.apply(adding(4), now);
    for (const std::size_t recovered : {1u, 0u}) {
        const HistoryRecovery recovery = file.recover(other.url, now);
        EXPECT_EQ(recovery.recovered, recovered);
        EXPECT_EQ(recovery.known, 2 - recovered);
        EXPECT_EQ(recovery.unread, 1u);
        ASSERT_EQ(recovery.faults.size(), 2u);
        EXPECT_EQ(recovery.faults[0], "byte " + std::to_string(cut.size() + 1) + ": this is no JSON");
        EXPECT_EQ(file.load(now).reports, (std::vector{reportOf(1), reportOf(2), reportOf(4)}));
        EXPECT_EQ(file.load(now).unknown, (UnknownMembers{{"", "mine", "1"}}));
        EXPECT_EQ(contents(other.url), cut);
    }
    // The history itself.
    folder.write("history.json", cut);
    const HistoryRecovery recovery = file.recover(file.url, now);
    EXPECT_EQ(recovery.recovered, 2u);
    ASSERT_TRUE(recovery.damaged);
    EXPECT_EQ(contents(recovery.damaged->movedTo), cut);
    EXPECT_EQ(file.load(now).reports, (std::vector{reportOf(1), reportOf(2)}));
    folder.write("other.json", R"({"reports": [], "version": 7})");
    EXPECT_THROW(file.recover(other.url, now), HistoryFileError);
    EXPECT_THROW(file.recover(folder / "none", now), fs::filesystem_error);
}

TEST(HistoryFile, newerFilesStay) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"};
    const std::string newer = R"({"reports": [{"other": 1}], "version": 3})";
    folder.write("history.json", newer);
    const std::function<void()> rows[] = {[&] { file.load(now); }, [&] { file.apply(adding(1), now); }};
    for (const auto& act : rows) {
        try {
            act();
            ADD_FAILURE() << "done";
        } catch (const HistoryFileError& error) {
            EXPECT_EQ(std::get<HistoryFileError::NewerVersion>(error.value).version, 3);
        }
        EXPECT_EQ(contents(file.url), newer);
    }
    EXPECT_EQ(namesIn(folder), (Names{".history.json.lock", "history.json"}));
}

/// What the system refuses is thrown, and what was there stays.
TEST(HistoryFile, refusals) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"}, below{folder / "history.json/history.json"},
        notAFile{folder / "folder"};
    file.save({1, {reportOf(1, 100'000)}});
    const std::string bytes = contents(file.url);
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

    EXPECT_EQ(refused(below, load), ENOTDIR);
    EXPECT_EQ(refused(below, save), ENOTDIR);
    fs::create_directory(notAFile.url);
    EXPECT_EQ(refused(notAFile, load), EISDIR);
    EXPECT_EQ(refused(notAFile, add), EISDIR);
    EXPECT_EQ(refused({"/dev/null"}, load), static_cast<int>(FileFault::notOrdinary));
    EXPECT_EQ(inProcess([&] {
                  leaveRoom(150'000);
                  if (refused(file, add) != EFBIG || refused(file, save) != EFBIG) _exit(1);
              }),
              0);
    // A folder that nobody may write into, which does not stop root.
    fs::permissions(folder / "", fs::perms{0500});
    EXPECT_EQ(inProcess([&] {
                  if (geteuid() == 0 && setuid(65'534) != 0) _exit(2);
                  if (refused(file, add) != EACCES || refused(file, save) != EACCES) _exit(1);
              }),
              0);
    fs::permissions(folder / "", fs::perms{0700});
    EXPECT_EQ(contents(file.url), bytes);
    EXPECT_EQ(namesIn(folder), (Names{".folder.lock", ".history.json.lock", "folder", "history.json"}));
}

/// A link is followed: what it leads to is read, replaced and set aside. One that leads nowhere is left
/// alone.
TEST(HistoryFile, links) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"}, other{folder / "elsewhere/other.json"};
    other.apply(adding(1), now);
    fs::create_symlink("elsewhere/other.json", file.url);
    file.apply(adding(2), now);
    EXPECT_TRUE(fs::is_symlink(file.url));
    EXPECT_EQ(other.load(now).reports, (std::vector{reportOf(1), reportOf(2)}));
    folder.write("elsewhere/other.json", "no JSON");
    EXPECT_THROW(file.load(now), HistoryFileError);
    EXPECT_EQ(file.load(now), History());
    file.apply(adding(3), now);
    EXPECT_EQ(other.load(now).reports, std::vector{reportOf(3)});
    EXPECT_EQ(file.contents(now).setAside.size(), 1u);
    EXPECT_EQ(namesIn(folder), (Names{"elsewhere", "history.json"}));

    fs::rename(folder / "elsewhere", folder / "away");
    const std::function<void()> rows[] = {[&] { file.load(now); }, [&] { file.apply(adding(4), now); },
                                          [&] { file.save({}); }, [&] { file.contents(now); },
                                          [&] { file.recover(folder / "away/other.json", now); }};
    for (const auto& act : rows) {
        try {
            act();
            ADD_FAILURE() << "done";
        } catch (const fs::filesystem_error& error) {
            EXPECT_EQ(error.code(), FileFault::leadsNowhere);
            EXPECT_EQ(error.path1(), file.url);
        }
    }
    EXPECT_EQ(namesIn(folder), (Names{"away", "history.json"}));
    fs::create_symlink("elsewhere", folder / "link");
    EXPECT_THROW(HistoryFile{folder / "link/none.json"}.load(now), fs::filesystem_error);
}

/// What is marked as read-only stays, also for the superuser; what is somebody's own under a name much like
/// those of our temporary files does, too.
TEST(HistoryFile, leavesAlone) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"};
    file.apply(adding(1), now);
    fs::permissions(file.url, fs::perms{0400});
    const std::string begin = ".history.json.unfinished-quillmark-", digits = "0123456789abcdef";
    Names theirs = {".history.json.backup", ".history.json.123456", begin + "0123456789abcdeg",
                    begin + "link" + digits};
    for (const std::string& name : theirs) folder.write(name, "");
    fs::create_symlink(folder / "history.json", folder / (begin + "0000000000000000"));
    theirs.insert(begin + "0000000000000000");
    folder.write(begin + digits, "left over");
    try {
        file.apply(adding(2), now);
        ADD_FAILURE() << "written";
    } catch (const fs::filesystem_error& error) {
        EXPECT_EQ(error.code(), FileFault::readOnly);
    }
    EXPECT_EQ(file.load(now).reports, std::vector{reportOf(1)});
    theirs.insert({"history.json", ".history.json.lock"});
    EXPECT_EQ(namesIn(folder), theirs);
}

/// Several processes and threads add and remove at once: nothing is lost, nothing comes back.
TEST(HistoryFile, changesAtOnce) {
    const TemporaryFolder folder;
    const HistoryFile file{folder / "history.json"};
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
    const HistoryFile file{folder / "history.json"};
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
    EXPECT_EQ(namesIn(folder), (Names{".history.json.lock", "history.json"}));
}

TEST(HistoryFile, defaultLocation) {
    const TemporaryFolder folder;
    const char* oldData = std::getenv("XDG_DATA_HOME");
    const char* oldHome = std::getenv("HOME");
    const std::string data = oldData ? oldData : "", home = oldHome ? oldHome : "";
    setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
    EXPECT_EQ(HistoryFile::defaultLocation("App"), folder / "data/App/history.json");
    EXPECT_EQ(fs::status(folder / "data").permissions(), fs::perms{0700});
    setenv("HOME", (folder / "home").c_str(), 1);
    setenv("XDG_DATA_HOME", "relative", 1);
    EXPECT_EQ(HistoryFile::defaultLocation("App"), folder / "home/.local/share/App/history.json");
    unsetenv("HOME");
    EXPECT_THROW(HistoryFile::defaultLocation("App"), fs::filesystem_error);
    oldData ? setenv("XDG_DATA_HOME", data.c_str(), 1) : unsetenv("XDG_DATA_HOME");
    oldHome ? setenv("HOME", home.c_str(), 1) : unsetenv("HOME");
}

}  // namespace
}  // namespace quillmark
