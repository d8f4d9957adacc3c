#include "QuillmarkKit/Intake/MailboxReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iomanip>
#include <numeric>
#include <set>

#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Verifier.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;

/// Everything a reader gives: the name and the outcome.
std::vector<std::string> outcomes(MailboxReader& reader) {
    std::vector<std::string> list;
    while (const auto found = reader.next()) {
        const auto* problem = std::get_if<FoundProblem>(&*found);
        const auto& place = problem ? problem->place : std::get<FoundMessage>(*found).place;
        list.push_back(place.name().value_or("-"));
        if (!problem) {
            list.back() += ": " + std::string(std::get<FoundMessage>(*found).bytes.view().substr(0, 20));
        } else if (const auto* unreadable = std::get_if<Refusal::Unreadable>(&problem->refusal.value)) {
            list.back() += ": " + unreadable->reason;
        } else {
            list.back() += " refused " + std::to_string(problem->refusal.value.index());
        }
    }
    return list;
}
std::vector<std::string> outcomes(const std::string& path) {
    MailboxReader reader(path);
    return outcomes(reader);
}

std::string utf16(std::string_view ascii) {
    std::string bytes = "\xFF\xFE";
    for (const char c : ascii) bytes += {c, '\0'};
    return bytes;
}

/// A tar archive of files with these names and contents.
std::string tarOf(const std::vector<std::pair<std::string, std::string>>& files) {
    std::string tar;
    for (const auto& [name, content] : files) {
        std::string block(512, '\0');
        std::ostringstream size, sum;
        size << std::oct << std::setfill('0') << std::setw(11) << content.size();
        block.replace(0, name.size(), name).replace(124, 11, size.str()).replace(148, 9, "        0");
        sum << std::oct << std::setfill('0') << std::setw(6)
            << std::accumulate(block.begin(), block.end(), 0);
        block.replace(148, 7, sum.str() + '\0');
        tar += block + content + std::string((512 - content.size() % 512) % 512, '\0');
    }
    return tar + std::string(1024, '\0');
}

TEST(MailboxReader, messagesVerifyInEachForm) {
    const TemporaryFolder folder;
    const auto& key = test::ed25519Key();
    const std::string message =
        test::signedMessage("From: a@example.org\r\nSubject: x\r\n\r\nDear all,\r\n\r\nFrom now on\r\n",
                            {.canonicalization = "simple/simple"}, key);
    std::string lf = message;
    std::erase(lf, '\r');
    const std::string quoted = test::replaced(lf, "From now", ">From now");
    const std::string separator = "From a@b Mon Jan  5 10:12:00 2026\n";
    std::string mac = separator + lf + "\n" + separator + lf;
    std::ranges::replace(mac, '\n', '\r');
    // A patch looks just like a message in a mailbox.
    std::string patch = test::signedMessage(
        "From: a@example.org\r\nSubject: x\r\n\r\nHi\r\n\r\n" + separator + "Subject: patch\r\n\r\ndiff\r\n",
        {}, key);
    std::erase(patch, '\r');
    const auto header = patch.find("\n\n");
    const std::string withLength = separator + patch.substr(0, header) +
                                   "\nContent-Length: " + std::to_string(patch.size() - header - 2) +
                                   patch.substr(header) + "\n";
    const std::string mixed =
        "From: b@c\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nFwd\n--b\nContent-Type: ";
    const auto stored = [](const std::string& text) {
        std::ostringstream size;
        size << std::hex << std::setfill('0') << std::setw(16) << text.size();
        return "\1\2N          " + size.str() + "\n" + text + "\n\1\3\nR5E1234\nG0123\n\n";
    };
    const std::string store = "2 M1e C5e1234\n", mmdf = "\1\1\1\1\n";
    const struct {
        std::string name, file;
        std::size_t count = 1;
        std::size_t quoted = 0;  ///< which of them has a quoted line
        bool isAttached = false;
    } rows[] = {
        {"plain", message},
        {"line feeds", lf},
        {"one in an mbox", separator + lf + "\n"},
        {"mbox", separator + lf + "\n" + separator + quoted + "\n" + separator + lf, 3, 2},
        {"mbox, unquoted", separator + message + "\r\n" + separator + message, 2},
        {"counted",
         std::to_string(lf.size()) + "      \n" + lf + "<?xml version=\"1.0\"?>\n<plist></plist>\n"},
        {"counted, line ends converted",
         std::to_string(lf.size()) + "\r\n" + message + "<?xml version=\"1.0\"?>\r\n<plist></plist>\r\n"},
        {"mbox with lengths", withLength + withLength + separator + lf, 3},
        {"mbox, carriage returns", mac, 2},
        {"mbox, carriage returns behind a mark", "\xEF\xBB\xBF\r\r" + mac, 2},
        {"one in an mbox, a carriage return", test::replaced(separator, "\n", "\r") + lf},
        {"MMDF", mmdf + lf + mmdf},
        {"MMDF, several", mmdf + lf + mmdf + mmdf + separator + patch + mmdf, 2},
        {"dbox", store + stored(lf)},
        {"mbox that lost which lines were quoted",
         separator + test::replaced(test::signedMessage("From: a@example.org\n\nFrom x\n>From y\n", {}, key),
                                    "\nFrom x", "\n>From x"),
         1, 1},
        {"tar", tarOf({{"a", message}})},
        {"tar of a mailbox", tarOf({{"x.html", "<html>"}, {"a", separator + lf + "\n" + separator + quoted}}),
         2, 2},
        {"UTF-16", utf16(message)},
        {"UTF-16 without a mark", utf16(message).substr(2)},
        {"mbox as UTF-16", utf16(separator + lf + "\n" + separator + quoted), 2, 2},
        {"attached", mixed + "message/rfc822\n\n" + lf + "\n--b--\n", 1, 0, true},
        {"attached as base64",
         mixed + "message/rfc822\nContent-Transfer-Encoding: base64\n\n" + encodedBase64(message) +
             "\n--b--\n",
         1, 0, true},
        {"attached to an attached one",
         mixed + "message/rfc822\n\nFrom: c@d\nContent-Type: message/rfc822\n\n" + lf, 1, 0, true},
    };
    const std::set<std::string_view> alone = {"plain", "line feeds", "one in an mbox"};
    const auto resolver = std::make_shared<StaticResolver>(test::published(key));
    const auto verdictOf = [&](std::string_view bytes) {
        return Verifier(resolver).verify(MailMessage::parse(bytes), {}, Date()).verdict.kind;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(isMessageAlone(row.file), row.isAttached || alone.contains(row.name));
        const std::string file = folder.write(row.name, row.file);
        MailboxReader reader(file);
        std::size_t count = 0;
        while (auto found = reader.next()) {
            ASSERT_TRUE(std::holds_alternative<FoundMessage>(*found));
            auto& one = std::get<FoundMessage>(*found);
            ++count;
            if (row.isAttached) {
                AttachedMessages attached(MailMessage::parse(one.bytes.view()));
                std::optional<AttachedMessages::Attached> last;
                while (auto next = attached.next()) last = std::move(next);
                ASSERT_TRUE(last);
                one = {std::move(last->bytes), one.place};
                one.place.attached = last->position;
            }
            EXPECT_EQ(verdictOf(one.bytes.view()), VerdictKind::verified);
            const auto& lines = one.facts.fromLines;
            EXPECT_EQ(lines && (lines->isDecided || lines->isLossy), row.quoted == count);
            EXPECT_EQ(one.place.number, row.count > 1 ? count : 0);
            // Whoever knows its place finds it again.
            const auto again = readAgain(one.place);
            ASSERT_TRUE(std::holds_alternative<FoundMessage>(again));
            EXPECT_EQ(std::get<FoundMessage>(again).bytes.view(), one.bytes.view());
        }
        EXPECT_EQ(count, row.count);
        if (alone.contains(row.name)) {
            EXPECT_EQ(verdictOf(row.file), VerdictKind::verified);
        }
        EXPECT_EQ(MailboxReader::expectedBytes(file), row.file.size());
        EXPECT_EQ(reader.bytesRead(), row.file.size());
    }
}

TEST(MailboxReader, filesOfOneNameInAnArchiveAreTold) {
    const TemporaryFolder folder;
    const auto file = folder.write("a.tar", tarOf({{"m", "From: a@b\n\nx"}, {"m", "From: a@b\n\ny"}}));
    MailboxReader reader(file);
    for (std::size_t i = 1; i <= 2; ++i) {
        const auto found = std::get<FoundMessage>(*reader.next());
        EXPECT_EQ(found.place.name(), "a.tar › m");
        EXPECT_EQ(found.place.inside, (std::vector<ArchivedFile>{{"m", i}}));
        EXPECT_EQ(std::get<FoundMessage>(readAgain(found.place)).bytes.view(), found.bytes.view());
    }
}

TEST(MailboxReader, folders) {
    const TemporaryFolder folder;
    using List = std::vector<std::string>;
    folder.write("Mail/b.eml", "From: b");
    folder.write("Mail/a.eml", "From: a");
    folder.write("Mail/.hidden", "From: h");
    folder.write("Mail/.git/x", "From: h");
    folder.write("Mail/Info.plist", "<?xml");
    folder.write("Mail/box.msf", "// <!-- <mdb:mork:z v=\"1.4\"/> -->");
    folder.write("Mail/b.eml.msf", "From: no index");
    folder.write("Mail/alone.msf", "// <!-- <mdb:mork:z");
    folder.write("Mail/popstate.dat", "# POP3 State File");
    folder.write("Mail/Drafts", "");
    folder.write("Mail/In/cur/1:2,S", "From: 1");
    folder.write("Mail/In/new/2", "From: 2");
    folder.write("Mail/In/new/.3", "From: 3");
    folder.write("Mail/In/tmp/4", "From: 4");
    folder.write("Mail/In/server-list", "3 V1");
    folder.write("Mail/In/.Sent/cur/5", "From: 5");
    folder.write(
        "Mail/box",
        "From a@b Mon Jan  5 10:12:00 2026\nFrom: x\n\n\nFrom a@b Mon Jan  5 10:12:00 2026\nFrom: y\n");
    fs::create_directory_symlink(folder / "Mail", folder / "Mail/In/cur/loop");
    fs::create_symlink(folder / "nowhere", folder / "Mail/dangling");
    ASSERT_EQ(mkfifo((folder / "Mail/fifo").c_str(), 0600), 0);
    const List all = {"Mail/In/.Sent/cur/5: From: 5",
                      "Mail/In/cur/1:2,S: From: 1",
                      "Mail/In/new/2: From: 2",
                      "Mail/a.eml: From: a",
                      "Mail/alone.msf: // <!-- <mdb:mork:z",
                      "Mail/b.eml: From: b",
                      "Mail/b.eml.msf: From: no index",
                      "Mail/box, message 1: From: x\n\n",
                      "Mail/box, message 2: From: y\n",
                      "Mail/dangling: No such file or directory"};
    MailboxReader reader(folder / "Mail");
    EXPECT_EQ(outcomes(reader), all);
    EXPECT_EQ(reader.passedOver(), 4);
    EXPECT_EQ(outcomes(folder / "Mail/"), all);
    EXPECT_EQ(outcomes(folder / "Mail/In/new/."), List{"2: From: 2"});
    folder.write("empty/.x", "From: h");
    folder.write("empty/cur/.y", "From: h");
    folder.write("empty/Inbox", "");
    EXPECT_EQ(outcomes(folder / "empty"), List{"empty refused 5"});
    EXPECT_EQ(MailboxReader::expectedBytes(folder / "empty"), 0);
}

TEST(MailboxReader, whatIsNoMessage) {
    const TemporaryFolder folder;
    using List = std::vector<std::string>;
    EXPECT_EQ(outcomes(folder / "missing"), List{"missing: No such file or directory"});
    EXPECT_EQ(outcomes(folder.write("x.eml", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1")), List{"x.eml refused 3"});
    const std::string internal =
        "From a@b Mon Jan  5 10:12:00 2026\nX-IMAP: 1 2\nSubject: DON'T DELETE THIS MESSAGE -- FOLDER "
        "INTERNAL DATA\n\nx\n\n";
    const std::string received = test::replaced(internal, "X-IMAP", "Received: x\nX-IMAP");
    EXPECT_EQ(outcomes(folder.write("box", internal)), List{"box refused 5"});
    EXPECT_EQ(outcomes(folder.write("box", internal + internal)),
              List{"box, message 2: X-IMAP: 1 2\nSubject:"});
    EXPECT_EQ(outcomes(folder.write("box", received)), List{"box: Received: x\nX-IMAP: "});
    EXPECT_EQ(outcomes(folder.write("box", test::replaced(internal, "INTERNAL", "THE"))),
              List{"box: X-IMAP: 1 2\nSubject:"});
    const std::string stored = "2 M1e C5\n\1\2N          000000000000000c\nFrom: a@b\n\nx";
    for (const char* rest : {"\n\1\3\nR5\n\n\1\2N         0", "yz\n\1\3\nR5\n\n"})  // of two; cut off
        EXPECT_EQ(outcomes(folder.write("store", stored + rest)), List{"store refused 4"});
    // What other programs take for a field stays in front of the message, and is read there.
    EXPECT_EQ(outcomes(folder.write("field", "From : c@d\nFrom: x\n\n")),
              List{"field: From : c@d\nFrom: x\n\n"});
    EXPECT_EQ(outcomes(folder.write("field", "From x\nFrom : c@d\nFrom: x\n\n")),
              List{"field: From : c@d\nFrom: x\n\n"});
    EXPECT_EQ(outcomes(folder.write("nothing", "From a@b Mon Jan  5 10:12:00 2026\n\n")),
              List{"nothing refused 2"});
    EXPECT_EQ(outcomes("/dev/zero"), List{"zero refused 1"});
    const std::string large = folder.write("large", "From: a\n");
    fs::resize_file(large, largestMessage + 1);
    EXPECT_EQ(outcomes(large), List{"large refused 1"});

    std::string many;
    while (many.size() < 1'000'000) many += "From a@b Mon Jan  5 10:12:00 2026\nFrom: x\n\n";
    const std::string shrinking = folder.write("box", many);
    MailboxReader reader(shrinking);
    ASSERT_TRUE(reader.next());
    fs::resize_file(shrinking, 300'001);
    EXPECT_EQ(outcomes(reader).back(), "box: It became shorter while it was read");
}

TEST(MailboxReader, aFileOfWhichSomeWasRead) {
    const TemporaryFolder folder;
    const int descriptor = open(folder.write("a.eml", "read\nFrom: rest\n").c_str(), O_RDONLY);
    ASSERT_EQ(lseek(descriptor, 5, SEEK_SET), 5);
    MailboxReader reader(descriptor);
    EXPECT_EQ(outcomes(reader), std::vector<std::string>{"-: From: rest\n"});
    close(descriptor);
}

/// Any number of separators with nothing between them give no message, in little time and memory; and a
/// mailbox may come through a pipe.
TEST(MailboxReader, pipesAndHostileMailboxes) {
    const TemporaryFolder folder;
    const std::string fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::jthread writer([&] {
        std::ofstream out(fifo, std::ios::binary);
        const std::string dated = "From a@b Mon Jan  5 10:12:00 2026\n";
        out << dated << "From: first\n\n\n";
        for (int i = 0; i < 50'000; ++i) out << dated << "\n";
        out << dated << "From: second\n\n";
        for (int i = 0; i < 100'000; ++i) out << "From \n";
        out << "\n" << dated << "From: third\n";
    });
    const int descriptor = open(fifo.c_str(), O_RDONLY);
    MailboxReader reader(descriptor);
    const auto list = outcomes(reader);
    close(descriptor);
    EXPECT_EQ(list, (std::vector<std::string>{"message 1: From: first\n\n",
                                              "message 50002: From: second\n\nFrom \n",
                                              "message 50003: From: third\n"}));
}

TEST(MailboxReader, stops) {
    const TemporaryFolder folder;
    const std::string fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int keptOpen = open(fifo.c_str(), O_RDWR);  // so that its end never comes
    ASSERT_GT(::write(keptOpen, "From", 4), 0);
    std::stop_source stop;
    std::jthread stopper([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        stop.request_stop();
    });
    MailboxReader reader(fifo);
    EXPECT_FALSE(reader.next(stop.get_token()));
    close(keptOpen);
}

}  // namespace
}  // namespace quillmark
