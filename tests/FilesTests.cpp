#include "QuillmarkKit/Support/Files.h"

#include <sys/stat.h>
#include <unistd.h>

#include "TestServer.h"
#include "tests/Test.h"

namespace quillmark::test {
namespace {

namespace fs = std::filesystem;

TEST(Files, replaceFile) {
    const TemporaryFolder folder;
    const fs::path path = folder / "made/for it/file";
    replaceFile(path, "one");
    replaceFile(path, "two, longer");
    EXPECT_EQ(fileContents(path, 11), "two, longer");
    EXPECT_EQ(fileContents(path, 10), std::nullopt);
    EXPECT_EQ(fileContents(path, std::size_t{1} << 50), "two, longer");  // more than there is memory
    EXPECT_EQ(fileContents(folder / "none", 10), std::nullopt);
    EXPECT_EQ(fileContents(folder / "made", 10), std::nullopt);
    ASSERT_EQ(mkfifo((folder / "made/pipe").c_str(), 0600), 0);
    EXPECT_EQ(fileContents(folder / "made/pipe", 10), std::nullopt);  // doesn't wait for a writer
    EXPECT_EQ(fs::status(path).permissions(), fs::perms{0600});
    EXPECT_EQ(fs::status(path.parent_path()).permissions(), fs::perms{0700});

    // A link that somebody laid is replaced; what it leads to stays as it is.
    const fs::path precious = folder.write("precious", "kept");
    fs::remove(path);
    fs::create_symlink(precious, path);
    replaceFile(path, "new");
    EXPECT_FALSE(fs::is_symlink(path));
    EXPECT_EQ(fileContents(precious, 10), "kept");

    EXPECT_THROW(replaceFile(precious / "below a file", "x"), fs::filesystem_error);
    EXPECT_THROW(replaceFile(folder / "made", "x"), fs::filesystem_error);  // a folder has the name
    const auto left = std::distance(fs::directory_iterator(folder / ""), fs::directory_iterator());
    EXPECT_EQ(left, 2);  // no temporary file

    createFile(folder / "fresh", "first");
    EXPECT_EQ(fs::status(folder / "fresh").permissions(), fs::perms{0600});
    fs::create_symlink(folder / "nowhere", folder / "link");
    for (const char* taken : {"fresh", "link", "made"}) {
        EXPECT_THROW(createFile(folder / taken, "second"), fs::filesystem_error) << taken;
    }
    EXPECT_EQ(fileContents(folder / "fresh", 10), "first");
    EXPECT_FALSE(fs::exists(folder / "nowhere"));
}

TEST(Files, aLockIsNotWaitedForWithoutEnd) {
    const TemporaryFolder folder;
    std::optional<FileLock> held(folder / "lock");
    std::vector<int> holders;
    const auto note = [&](const LockHolder& holder) { holders.push_back(holder.process); };
    EXPECT_THROW(FileLock(folder / "lock", std::chrono::milliseconds(20), note), fs::filesystem_error);
    EXPECT_EQ(holders, std::vector{getpid()});
    held.reset();
    EXPECT_NO_THROW(FileLock(folder / "lock", std::chrono::milliseconds(0)));
}

}  // namespace
}  // namespace quillmark::test
