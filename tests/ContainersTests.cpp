#include "QuillmarkKit/Intake/Containers.h"

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Mail/Message.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

constexpr std::string_view dated = "From a@b Mon Jan  5 10:12:00 2026\n";

/// The messages of an mbox that comes in pieces of this size.
std::vector<std::string> messages(std::string_view mbox, std::size_t pieceSize) {
    std::vector<std::string> list;
    const MailboxBegin begin = mailboxBegin(mbox).value();
    MailboxSplitter splitter(begin.form);
    mbox.remove_prefix(begin.offset);
    for (;;) {
        while (const auto message = splitter.next())
            list.push_back(std::to_string(message->number) + (message->isOnly ? "!" : ":") +
                           (message->isTooLarge ? "too large" : std::string(message->bytes)));
        if (mbox.empty()) break;
        splitter.add(mbox.substr(0, pieceSize));
        mbox.remove_prefix(std::min(pieceSize, mbox.size()));
        if (mbox.empty()) splitter.end();
    }
    return list;
}

TEST(Containers, mboxMessages) {
    const std::string d(dated), crlf = d.substr(0, d.size() - 1) + "\r\n", m = "\1\1\1\1\n";
    const struct {
        std::string mbox;
        std::vector<std::string> messages;
    } rows[] = {
        {d + "A: 1\n\nx\n\n", {"1!A: 1\n\nx\n"}},
        {d + "A: 1\n\n", {"1!A: 1\n\n"}},  // the empty line that ends its header stays
        {"\xEF\xBB\xBF\r\n" + d + "A: 1\n", {"1!A: 1\n"}},
        {d + "A: 1\n\nx\n\n" + d + "A: 2\n\ny\n", {"1:A: 1\n\nx\n", "2:A: 2\n\ny\n"}},
        {crlf + "A: 1\r\n\r\nx\r\n\r\n" + crlf + "A: 2\r\n", {"1:A: 1\r\n\r\nx\r\n", "2:A: 2\r\n"}},
        {d + d + "\n" + d + "A: 3\n", {"3:A: 3\n"}},  // nothing between: counted, passed over
        {d + "A: 1\n\nx\nFrom here on Jan 2026 10:12:00\nB: c\n", {"1:A: 1\n\nx\n", "2:B: c\n"}},
        {d + "A: 1\n\nx\n\n" + d.substr(0, d.size() - 1), {"1:A: 1\n\nx\n"}},  // the next is being delivered
        // A length that nothing signed stands for hides no message.
        {d + "A: 1\nContent-Length: 43\n\nx\n\n" + d + "A: 2\n\n",
         {"1:A: 1\nContent-Length: 43\n\nx\n", "2:A: 2\n\n"}},
        // Lines that a sender wrote and nobody quoted.
        {d + "A: 1\n\nFrom here on\nNote: x\n", {"1!A: 1\n\nFrom here on\nNote: x\n"}},
        {d + "A: 1\n\nx\n" + d + "y\n", {"1!A: 1\n\nx\n" + d + "y\n"}},
        {d + "A: 1\n\nFrom a@b\nhello\n", {"1!A: 1\n\nFrom a@b\nhello\n"}},
        {d + "A: 1\n\nFrom a@b\nA: 2\n", {"1:A: 1\n\n", "2:A: 2\n"}},
        {d + "A: 1\n\n>" + d + "A: 2\n", {"1!A: 1\n\n>" + d + "A: 2\n"}},
        {d + "A: 1\n\nFrom " + std::string(2000, 'x') + "\nA: 2\n",
         {"1!A: 1\n\nFrom " + std::string(2000, 'x') + "\nA: 2\n"}},
        // MMDF
        {m + "A: 1\n\nx\n\n" + m, {"1!A: 1\n\nx\n\n"}},
        {m + "A: 1\n" + m + m + "A: 2\n" + m, {"1:A: 1\n", "2:A: 2\n"}},
        {m + "A: 1\n\n" + d + "B: c\n x\1\1\1\1\n\1\1\1\1x\n" + m + m + m + m + "A: 3",
         {"1:A: 1\n\n" + d + "B: c\n x\1\1\1\1\n\1\1\1\1x\n", "3:A: 3"}},
        {"\1\1\1\1\r\nA: 1\r\n\1\1\1\1\r\n", {"1!A: 1\r\n"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mbox.substr(0, 200));
        for (std::size_t size = 1; size <= row.mbox.size(); ++size)
            ASSERT_EQ(messages(row.mbox, size), row.messages) << size;
    }
    for (const char* none :
         {"", "From", "From x\n", "From : a\n", "From: a\n\nFrom b@c\nA: 1\n", "x\nFrom a@b\nA: 1\n"})
        EXPECT_FALSE(mailboxBegin(none)) << none;
}

TEST(Containers, mboxWithAMessageThatIsTooLarge) {
    const std::string d(dated), line = std::string(99, 'x') + "\n";
    std::string mbox = d + "A: 1\n\nx\n\n" + d + "A: 2\n\n";
    while (mbox.size() < largestMessage + 1'000'000) mbox += line;
    mbox += "\n" + d + "A: 3\n";
    EXPECT_EQ(messages(mbox, 262'144),
              (std::vector<std::string>{"1:A: 1\n\nx\n", "2:too large", "3:A: 3\n"}));
}

TEST(Containers, otherForms) {
    const struct {
        std::string file;
        std::optional<std::string> message;
    } rows[] = {
        {"5\nA: 1\n<?xml version=\"1.0\"?>", "A: 1\n"},
        {"5         \r\nA: 1\n\n<plist>", "A: 1\n"},
        {"4\nA: 1<?xml", "A: 1"},
        {"5\nA: 1\n", std::nullopt},         // no list behind it
        {"6\nA: 1\n<?xml", std::nullopt},    // the list does not begin there
        {"900\nA: 1\n<?xml", std::nullopt},  // cut off
        {"900\nA: 1\n\n<?xml?>\n<?xml?><plist/></plist>\n", "A: 1\n\n<?xml?>\n"},
        {"-5\nA: 1\n<?xml", std::nullopt},
        {"99999999999999999999\nA: 1\n<?xml", std::nullopt},
        {"5 A: 1\n<?xml", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(countedMessage(row.file), row.message) << row.file;

    using namespace std::string_literals;
    std::string tar(512, '\0');
    tar.replace(0, 1, "a");
    tar.replace(100, 7, "0000644"), tar.replace(124, 11, "00000000001"), tar.replace(156, 1, "0");
    std::string otherTar = tar;
    tar.replace(148, 8, "002400\0 "s), otherTar.replace(148, 8, "002401\0 "s);
    const std::pair<std::string, std::optional<PackedForm>> forms[] = {
        {"\x1F\x8B\x08\x08", PackedForm::gzip},
        {"BZh11AY&SY", PackedForm::bzip2},
        {"BZh1: x", std::nullopt},
        {"BZh", std::nullopt},
        {"\xFD\x37zXZ\0"s, PackedForm::xz},
        {"\x28\xB5\x2F\xFD", PackedForm::zstandard},
        {"\x04\x22\x4D\x18", PackedForm::lz4},
        {"PK\x03\x04", PackedForm::zip},
        {"7z\xBC\xAF\x27\x1C", PackedForm::sevenZip},
        {"Rar!\x1A\x07\x01", PackedForm::rar},
        {tar, PackedForm::tar},
        {otherTar, std::nullopt},
        {std::string(512, '\0'), std::nullopt},
        {"\xCF\xAD\x12\xFE", PackedForm::dbx},
        {"!BDN", PackedForm::pst},
    };
    for (const auto& [bytes, form] : forms) EXPECT_EQ(packedForm(bytes), form) << bytes;
    const struct {
        std::string bytes, text;
    } texts[] = {
        {"\xFF\xFE\x41\x00\x3D\xD8\x00\xDE\xAC\x20"s, "A\U0001F600€"},
        {"\xFE\xFF\x00\x41\xD8\x3D\xDE\x00\x20\xAC"s, "A\U0001F600€"},
        {"\xFF\xFE\x3D\xD8\x41\x00\x00\xDE\x41"s, "\uFFFDA\uFFFD\uFFFD"},  // halves alone, half a unit
        {"\xFF\xFE"s, ""},
    };
    for (const auto& [bytes, text] : texts) {
        for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
            UTF16Decoder decoder(utf16Order(bytes).value());
            std::string decoded = decoder.decode(bytes.substr(0, cut));
            decoded += decoder.decode(bytes.substr(cut));
            EXPECT_EQ(decoded + decoder.end(), text);
        }
    }
}

/// A message that was signed, and then quoted by a mailbox in one way or another: the signature tells which.
TEST(Containers, withoutFromQuoting) {
    const auto made = [](const std::string& body) {
        return test::signedMessage("From: a@example.org\r\nSubject: x\r\n\r\n" + body, {},
                                   test::ed25519Key());
    };
    const auto quotedOnce = [](const std::string& text) {
        return test::replaced(text, "From now", ">From now");
    };
    std::string manyQuoted;  // too many for every reading to be tried
    for (int line = 0; line < 30; ++line) manyQuoted += ">From then\r\n";
    const std::string one = made("From now\r\n"), quoted = made(">From now\r\n"),
                      both = made("From now\r\n>From then\r\n"),
                      plainly = made("From now\r\n>>From then\r\n"),
                      again = made("From now\r\n>From then\r\nFrom now\r\n"),
                      many = made(manyQuoted + "From now\r\n"),
                      // As `both` and `again` are in a mailbox that quotes "From " lines alone.
        lossy = quotedOnce(both),
                      lossyAgain = quotedOnce(test::replaced(again, "then\r\nFrom", "then\r\n>From")),
                      bothQuoted = quotedOnce(test::replaced(both, ">From then", ">>From then")),
                      fitsNone = test::replaced(one, "From now", ">From then");
    const struct {
        std::string stored;
        FromQuoting reading;
        std::int64_t lines;
        bool isDecided;
        std::string read;  ///< empty: as it was stored
        bool isLossy = false;
    } rows[] = {
        {quotedOnce(one), FromQuoting::full, 1, true, one},
        {quoted, FromQuoting::none, 1, true, ""},
        {bothQuoted, FromQuoting::full, 2, true, both},
        {quotedOnce(plainly), FromQuoting::plain, 1, true, plainly},
        {fitsNone, FromQuoting::none, 1, false, ""},
        {"From: a@b\n\n>From x\n", FromQuoting::none, 1, false, ""},
        {lossy, FromQuoting::none, 1, false, both, true},
        {lossyAgain, FromQuoting::none, 2, false, again, true},
        {quotedOnce(many), FromQuoting::none, 1, false, many, true},
        {test::replaced(lossy, "then", "them"), FromQuoting::none, 2, false, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        const auto result = withoutFromQuoting(row.stored);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->fromLines.reading, row.reading);
        EXPECT_EQ(result->fromLines.lines, row.lines);
        EXPECT_EQ(result->fromLines.isDecided, row.isDecided);
        EXPECT_EQ(result->fromLines.isLossy, row.isLossy);
        EXPECT_EQ(result->bytes ? result->bytes->view() : "", row.read);
    }
    EXPECT_FALSE(withoutFromQuoting("From: a@b\n\nx >From y\n"));
    EXPECT_FALSE(withoutFromQuoting(one));
}

}  // namespace
}  // namespace quillmark
