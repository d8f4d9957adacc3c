#include "QuillmarkKit/SignedText.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Kind = SignedText::Block::Kind;

/// A line for each of its own: what became of it, then its text. "…3" stands for three folded ones.
std::string described(const SignedText& text) {
    constexpr char signs[] = {' ', '+', '-', '~', '<'};
    std::string out;
    for (const SignedText::Block& block : text.blocks) {
        if (block.kind == Kind::folded) {
            out += "…" + std::to_string(block.count) + "\n";
            continue;
        }
        std::int64_t lines = 0;
        for (const SignedText::Line& line : block.lines) {
            out += signs[static_cast<std::size_t>(block.kind)];
            if (line.part) {
                out += "[" + line.part->type + "|" + line.part->name + "]";
                if (line.part->content)
                    out +=
                        std::to_string(line.part->content->bytes) + line.part->content->sha256.substr(0, 4);
            } else {
                ++lines;
                out += line.text;
            }
            out += "\n";
        }
        if (lines < block.count) out += "and " + std::to_string(block.count - lines) + "\n";
        if (lines > block.count) out += "counted " + std::to_string(block.count) + "\n";
    }
    return out;
}

SignedText compared(const std::string& shown, const std::string& asSigned) {
    return signedText(MailMessage::parse(shown), MailMessage::parse(asSigned), {});
}

TEST(SignedText, theTextInReadingOrder) {
    const std::string html = "Content-Type: text/html\r\n\r\n";
    const std::string mixed = "Content-Type: multipart/mixed; boundary=b\r\n\r\n";
    std::string page, changedPage;
    for (int i = 1; i <= 30; ++i) {
        page += "<p>" + std::to_string(i) + "\r\n";
        changedPage += "<p>" + std::to_string(i) + (i == 10 ? "!" : "") + "\r\n";
    }
    std::string poem;
    for (int i = 1; i <= 300; ++i) poem += std::to_string(i) + "\r\n";
    const struct {
        const char* what;
        std::string shown, asSigned, expected;
    } rows[] = {
        {"nothing", "A: b\r\n\r\nx\r\n", "A: b\r\n\r\nx\r\n\r\n", " x\n"},
        {"a footer", "A: b\r\n\r\nx\r\n--\r\nlist\r\n", "A: b\r\n\r\nx\r\n", " x\n+--\n+list\n"},
        {"an empty line above it", "A: b\r\n\r\nx\r\n\r\n--\r\n\r\nlist\r\n", "A: b\r\n\r\nx\r\n",
         " x\n+\n+--\n+\n+list\ncounted 3\n"},
        {"missing", "A: b\r\n\r\nx\r\nz\r\n", "A: b\r\n\r\nx\r\ny\r\nz\r\n", " x\n-y\n z\n"},
        {"missing in front", "A: b\r\n\r\nz\r\n", "A: b\r\n\r\ny\r\nz\r\n", "-y\n z\n"},
        {"changed", "A: b\r\n\r\nx\r\nY\r\nz\r\n", "A: b\r\n\r\nx\r\ny\r\nz\r\n", " x\n~Y\n<y\n z\n"},
        {"blanks alone", "A: b\r\n\r\nx  y \r\n", "A: b\r\n\r\nx y\r\n", " x  y\n"},
        {"but no words", "A: b\r\n\r\nx y\r\n", "A: b\r\n\r\nxy\r\n", "~x y\n<xy\n"},
        {"what is not seen", "A: b\r\n\r\n\x1b[2J\xe2\x80\xaetxt\r\n", "A: b\r\n\r\n",
         "+\xef\xbf\xbd[2J‹U+202E›txt\n"},
        {"no head of a part", "A: b\r\n\r\n\x01text/html\r\n", "A: b\r\n\r\n", "+ \xef\xbf\xbdtext/html\n"},
        {"encoded on the way", "Content-Transfer-Encoding: base64\r\n\r\neApmb290Cg==\r\n",
         "A: b\r\n\r\nx\r\n", " x\n+foot\n"},
        {"below base64", "Content-Transfer-Encoding: base64\r\n\r\neAo=\r\nfoot\r\n",
         "Content-Transfer-Encoding: base64\r\n\r\neAo=\r\n", " x\n+foot\n"},
        {"other letters", "Content-Type: text/plain; charset=iso-8859-1\r\n\r\n\xe4\r\n",
         "Content-Type: text/plain; charset=utf-8\r\n\r\nä\r\n", " ä\n"},
        {"a page is its source", html + changedPage, html + page,
         " [text/html|]\n…6\n <p>7\n <p>8\n <p>9\n~<p>10!\n<<p>10\n <p>11\n <p>12\n <p>13\n…17\n"},
        {"a page alone", html + page, html + page, " [text/html|]\n…30\n"},
        {"a long text", "A: b\r\n\r\n" + poem + "end\r\n", "A: b\r\n\r\n" + poem,
         [] {
             std::string lines;
             for (int i = 1; i <= 100; ++i) lines += " " + std::to_string(i) + "\n";
             lines += "…100\n";
             for (int i = 201; i <= 300; ++i) lines += " " + std::to_string(i) + "\n";
             return lines + "+end\n";
         }()},
        {"a part",
         mixed + "--b\r\n\r\nx\r\n--b\r\nContent-Type: image/png; "
                 "name=\"=?utf-8?q?a=2Epng?=\"\r\n\r\ny\r\n--b--\r\n",
         mixed + "--b\r\n\r\nx\r\n--b--\r\n", " [text/plain|]\n x\n+[image/png|a.png]1a1fc\n"},
        {"a file's own name",
         mixed + "--b\r\nContent-Type: a/b; name=x\r\nContent-Disposition: attachment;\r\n "
                 "filename*=utf-8''%c3%a4%zz\r\n\r\ny\r\n--b--\r\n",
         mixed + "--b\r\nContent-Type: a/b\r\n\r\nz\r\n--b--\r\n", "~[a/b|ä%zz]1a1fc\n<[a/b|]1594e\n"},
        {"wrapped", mixed + "--b\r\n\r\nx\r\n--b\r\n\r\nfoot\r\n--b--\r\n", "A: b\r\n\r\nx\r\n",
         " [text/plain|]\n x\n+[text/plain|]\n+foot\n"},
        {"around the parts", mixed + "before\r\n--b\r\n\r\nx\r\n--b--\r\nbehind\r\n",
         mixed + "--b\r\n\r\nx\r\n--b--\r\n", "+before\n [text/plain|]\n x\n+behind\n"},
        {"much that is new", "A: b\r\n\r\n" + poem, "A: b\r\n\r\n\r\n",
         [] {
             std::string lines;
             for (int i = 1; i <= 200; ++i) lines += "+" + std::to_string(i) + "\n";
             return lines + "and 100\n";
         }()},
        {"a long line around its change",
         "A: b\r\n\r\n" + std::string(5'000, 'x') + "Y" + std::string(2'000, 'z') + "\r\n",
         "A: b\r\n\r\n" + std::string(5'000, 'x') + std::string(2'000, 'z') + "\r\n",
         "~…" + std::string(200, 'x') + "Y" + std::string(799, 'z') + "…\n<…" + std::string(200, 'x') +
             std::string(800, 'z') + "…\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(described(compared(row.shown, row.asSigned)), row.expected) << row.what;
}

TEST(SignedText, aTextThatIsTooLong) {
    std::string shown = "A: b\r\n\r\n", asSigned = shown;
    for (int i = 0; i < 900; ++i) {
        shown += "same\r\nnow " + std::to_string(i) + "\r\n";
        asSigned += "same\r\nthen " + std::to_string(i) + "\r\n";
    }
    const SignedText text = compared(shown, asSigned);
    std::int64_t lines = text.moreLines;
    for (const SignedText::Block& block : text.blocks) lines += block.count;
    EXPECT_EQ(lines, 2'700);  // nothing is passed over in silence
    EXPECT_LE(text.blocks.size(), 301u);
    EXPECT_TRUE(text.hasMoreChanges);

    const std::string wide = "A: b\r\n\r\n" + std::string(400'000, 'x') + "\r\n";
    EXPECT_EQ(described(compared(wide, wide)).size(), std::string(" …\n").size() + 1'000);
}

TEST(SignedText, fields) {
    using Field = SignedText::Field;
    const MailMessage shown = MailMessage::parse(
        "From: =?utf-8?q?J=C3=B6rg?= <a@b>\r\nTo: c@d\r\nCc: e@f\r\nSubject: [x] Hi\r\nX-A: n\r\nList-Id: "
        "l\r\n\r\n");
    const MailMessage asSigned = MailMessage::parse(
        "From: =?utf-8?q?J=C3=B6rg?= <a@b>\r\nCc: e@f\r\nSubject: Hi\r\nX-A: =?utf-8?q?n?=\r\n\r\n");
    const ChangedField told[] = {{"subject", {}, {}}, {"reply-to", {}, {}}, {"x-a", {}, {}}};
    const std::vector<Field> expected = {
        {Field::Kind::same, "from", {"Jörg <a@b>"}, {"Jörg <a@b>"}},
        {Field::Kind::notSigned, "to", {"c@d"}, {}},
        {Field::Kind::same, "cc", {"e@f"}, {"e@f"}},
        {Field::Kind::changed, "subject", {"[x] Hi"}, {"Hi"}},
        {Field::Kind::changed, "x-a", {"n"}, {"=?utf-8?q?n?="}},
    };
    EXPECT_EQ(signedText(shown, asSigned, told).fields, expected);
}

}  // namespace
}  // namespace quillmark
