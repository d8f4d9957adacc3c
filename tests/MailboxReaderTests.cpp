#include "QuillmarkKit/MailboxReader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "QuillmarkKit/AttachedMessages.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Verifier.h"
#include "tests/TestSigner.h"

namespace quillmark {
namespace {

namespace fs = std::filesystem;

class MailboxReaderTest : public testing::Test {
protected:
    MailboxReaderTest() {
        std::string pattern = (fs::temp_directory_path() / "quillmark-test-XXXXXX").string();
        m_folder = mkdtemp(pattern.data());
    }
    ~MailboxReaderTest() override { fs::remove_all(m_folder); }

    std::string path(const std::string& name) const { return (m_folder / name).string(); }
    std::string write(const std::string& name, std::string_view bytes) const {
        fs::create_directories((m_folder / name).parent_path());
        std::ofstream(m_folder / name, std::ios::binary) << bytes;
        return path(name);
    }

private:
    fs::path m_folder;
};

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

std::string withLineFeeds(std::string text) {
    std::erase(text, '\r');
    return text;
}

TEST_F(MailboxReaderTest, messagesVerifyInEachForm) {
    const auto key = test::PrivateKey::ed25519();
    const std::string message = test::signedMessage(
        "From: a@example.org\r\nSubject: x\r\n\r\nDear all,\r\n\r\nFrom now on\r\n",
        {.algorithm = SignatureAlgorithm::ed25519SHA256, .canonicalization = "simple/simple"}, key);
    const std::string lf = withLineFeeds(message);
    std::string quoted = lf;
    quoted.insert(quoted.find("From now"), ">");
    const std::string separator = "From a@b Mon Jan  5 10:12:00 2026\n";
    std::string mac = separator + lf + "\n" + separator + lf;
    std::ranges::replace(mac, '\n', '\r');
    // A patch looks just like a message in a mailbox.
    const std::string patch = withLineFeeds(test::signedMessage(
        "From: a@example.org\r\nSubject: x\r\n\r\nHi\r\n\r\n" + separator + "Subject: patch\r\n\r\ndiff\r\n",
        {.algorithm = SignatureAlgorithm::ed25519SHA256}, key));
    const auto header = patch.find("\n\n");
    const std::string withLength = separator + patch.substr(0, header) +
                                   "\nContent-Length: " + std::to_string(patch.size() - header - 2) +
                                   patch.substr(header) + "\n";
    const std::string mixed =
        "From: b@c\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nFwd\n--b\nContent-Type: ";
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
    const auto resolver = std::make_shared<StaticResolver>(StaticResolver::Answers{
        {"key._domainkey.example.org|TXT", DNSAnswer::records({test::keyRecord(key, "ed25519")})}});
    const auto verdictOf = [&](std::string_view bytes) {
        return Verifier(resolver).verify(MailMessage::parse(bytes), {}, Date()).verdict.kind;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string file = write(row.name, row.file);
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
            EXPECT_EQ(one.note.has_value(), row.quoted == count);
            EXPECT_EQ(one.place.number, row.count > 1 ? count : 0);
            // Whoever knows its place finds it again.
            const auto again = readAgain(one.place);
            ASSERT_TRUE(std::holds_alternative<FoundMessage>(again));
            EXPECT_EQ(std::get<FoundMessage>(again).bytes.view(), one.bytes.view());
        }
        EXPECT_EQ(count, row.count);
        EXPECT_EQ(MailboxReader::expectedBytes(file), row.file.size());
        EXPECT_EQ(reader.bytesRead(), row.file.size());
    }
}

TEST_F(MailboxReaderTest, folders) {
    using List = std::vector<std::string>;
    write("Mail/b.eml", "From: b");
    write("Mail/a.eml", "From: a");
    write("Mail/.hidden", "From: h");
    write("Mail/.git/x", "From: h");
    write("Mail/In/cur/1:2,S", "From: 1");
    write("Mail/In/new/2", "From: 2");
    write("Mail/In/new/.3", "From: 3");
    write("Mail/In/tmp/4", "From: 4");
    write("Mail/In/server-list", "3 V1");
    write("Mail/In/.Sent/cur/5", "From: 5");
    write("Mail/box",
          "From a@b Mon Jan  5 10:12:00 2026\nFrom: x\n\n\nFrom a@b Mon Jan  5 10:12:00 2026\nFrom: y\n");
    fs::create_directory_symlink(path("Mail"), path("Mail/In/cur/loop"));
    fs::create_symlink(path("nowhere"), path("Mail/dangling"));
    ASSERT_EQ(mkfifo(path("Mail/fifo").c_str(), 0600), 0);
    const List all = {"Mail/In/.Sent/cur/5: From: 5",
                      "Mail/In/cur/1:2,S: From: 1",
                      "Mail/In/new/2: From: 2",
                      "Mail/a.eml: From: a",
                      "Mail/b.eml: From: b",
                      "Mail/box, message 1: From: x\n\n",
                      "Mail/box, message 2: From: y\n",
                      "Mail/dangling: No such file or directory"};
    EXPECT_EQ(outcomes(path("Mail")), all);
    EXPECT_EQ(outcomes(path("Mail/")), all);
    EXPECT_EQ(outcomes(path("Mail/In/new/.")), List{"2: From: 2"});
    write("empty/.x", "From: h");
    write("empty/cur/.y", "From: h");
    EXPECT_EQ(outcomes(path("empty")), List{"empty refused 4"});
    EXPECT_EQ(MailboxReader::expectedBytes(path("empty")), 0);
}

TEST_F(MailboxReaderTest, whatIsNoMessage) {
    using List = std::vector<std::string>;
    EXPECT_EQ(outcomes(path("missing")), List{"missing: No such file or directory"});
    EXPECT_EQ(outcomes(write("x.eml", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1")), List{"x.eml refused 3"});
    EXPECT_EQ(outcomes(write("nothing", "From a@b Mon Jan  5 10:12:00 2026\n\n")), List{"nothing refused 2"});
    EXPECT_EQ(outcomes("/dev/zero"), List{"zero refused 1"});
    const std::string large = write("large", "From: a\n");
    fs::resize_file(large, largestMessage + 1);
    EXPECT_EQ(outcomes(large), List{"large refused 1"});

    std::string many;
    while (many.size() < 1'000'000) many += "From a@b Mon Jan  5 10:12:00 2026\nFrom: x\n\n";
    const std::string shrinking = write("box", many);
    MailboxReader reader(shrinking);
    ASSERT_TRUE(reader.next());
    fs::resize_file(shrinking, 300'001);
    EXPECT_EQ(outcomes(reader).back(), "box: It became shorter while it was read");
}

/// Millions of separators with nothing between them give no message, in little time and memory; and a mailbox
/// may come through a pipe.
TEST_F(MailboxReaderTest, pipesAndHostileMailboxes) {
    const std::string fifo = path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::jthread writer([&] {
        std::ofstream out(fifo, std::ios::binary);
        const std::string dated = "From a@b Mon Jan  5 10:12:00 2026\n", bare = "From \n";
        out << dated << "From: first\n\n\n";
        for (int i = 0; i < 100'000; ++i) out << dated << "\n";
        out << dated << "From: second\n\n";
        for (int i = 0; i < 300'000; ++i) out << bare;
        out << "\n" << dated << "From: third\n";
    });
    const int descriptor = open(fifo.c_str(), O_RDONLY);
    MailboxReader reader(descriptor);
    const auto list = outcomes(reader);
    close(descriptor);
    EXPECT_EQ(list, (std::vector<std::string>{"message 1: From: first\n\n",
                                              "message 100002: From: second\n\nFrom \n",
                                              "message 100003: From: third\n"}));
}

TEST_F(MailboxReaderTest, stops) {
    const std::string fifo = path("fifo");
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
