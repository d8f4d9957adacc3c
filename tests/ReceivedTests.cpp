#include "QuillmarkKit/Mail/Received.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

using Text = std::optional<std::string>;

TEST(Received, hop) {
    const struct {
        std::string_view value;
        Text fromName, fromIP, by;
    } rows[] = {
        {"from h1.example (h1.example [192.0.2.7]) by h2.example with ESMTPS id 1; Tue, 13 Jan 2026 10:00:00 "
         "+0000",
         "h1.example", "192.0.2.7", "h2.example"},
        {"FROM h1\t(x)\tBY h2;", "h1", {}, "h2"},
        {"from h1 (198.51.100.4) ([2001:db8::1]) by h2", "h1", "2001:db8::1", "h2"},
        {"from h1 203.0.113.5 (198.51.100.4) by h2", "h1", "198.51.100.4", "h2"},
        {"from h1 (helo 203.0.113.5) by h2", "h1", "203.0.113.5", "h2"},
        {"from [IPv6:2001:DB8::5] by h2", "[IPv6:2001:DB8::5]", "2001:DB8::5", "h2"},
        {"from h1 [1.2.3] [fe80::1%en0] [::1] by h2", "h1", "::1", "h2"},
        {"from h1 (999.1.1.1) (10.0.0.1) by h2", "h1", "10.0.0.1", "h2"},
        {"by h2;", {}, {}, "h2"},
        {"by ;;h2;; from h1", "h1", {}, "h2"},
        {"by h2 from h1 [192.0.2.7] by h3", "h1", "192.0.2.7", "h3"},  // " by " goes before a leading "by "
        {"from by h2", "by", {}, "h2"},
        {"from  by h2", {}, {}, "h2"},
        {"xfrom h0 from h1 by h2", {}, {}, "h2"},  // only the first "from " is looked at
        {"mail.therefrom [192.0.2.7] by h2", {}, {}, "h2"},
        {"from h1 by ", "h1", {}, {}},
        {"from ", {}, {}, {}},
        {"", {}, {}, {}},
        // where a bare address begins and ends
        {"from 1.2.3.4.5.6.7.8", "1.2.3.4.5.6.7.8", "1.2.3.4", {}},
        {"from x1.2.3.4 1.2.3.4y 1.2.3.1234 _1.2.3.4 é1.2.3.4 1.2.3.4é -5.6.7.8,", "x1.2.3.4", "5.6.7.8", {}},
        {"from é1.2.3.4.5", "é1.2.3.4.5", "2.3.4.5", {}},
        {"from 300.1.1.1 2.2.2.2 3.3.3.3", "300.1.1.1", "2.2.2.2", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        const auto hop = ReceivedHop::parse(row.value);
        EXPECT_EQ(hop.fromName, row.fromName);
        EXPECT_EQ(hop.fromIP, row.fromIP);
        EXPECT_EQ(hop.by, row.by);
    }
    // Upper-case letters whose lower case is longer move no position.
    EXPECT_EQ(ReceivedHop::parse("from İİİİ [192.0.2.7] by h2"), (ReceivedHop{"İİİİ", "192.0.2.7", "h2"}));
}

TEST(Received, whomTheServerSaw) {
    const struct {
        std::string_view clause, seen;
    } rows[] = {
        {"[9.9.9.9] (unknown [1.2.3.4])", "1.2.3.4"},
        {"[9.9.9.9] (1.2.3.4)", "1.2.3.4"},
        {"[9.9.9.9] (2001:db8::7)", "2001:db8::7"},
        {"[IPv6:2001:db8::9] (x [1.2.3.4])", "1.2.3.4"},
        {"[10.0.0.1] (x [1.2.3.4])", "1.2.3.4"},
        {"[9.9.9.9](x=[8.8.8.8]) (x [1.2.3.4])", "1.2.3.4"},
        {"unknown (HELO [9.9.9.9]) (1.2.3.4)", "1.2.3.4"},
        {"unknown (HELO a [9.9.9.9]) (1.2.3.4)", "1.2.3.4"},
        {"1.2.3.4 (EHLO [9.9.9.9])", "1.2.3.4"},
        {"x (ehlo=[9.9.9.9] [1.2.3.4])", "1.2.3.4"},
        // A name with blanks, or that of the client's own account.
        {"x ([9.9.9.9]) (y [1.2.3.4])", "1.2.3.4"},
        {"x (root@[9.9.9.9] [1.2.3.4])", "1.2.3.4"},
        // The true address comes first.
        {"[1.2.3.4] (helo=[9.9.9.9])", "1.2.3.4"},
        {"[1.2.3.4] (port=25 helo=x ident=y)", "1.2.3.4"},
        {"x.example ([1.2.3.4] helo=[9.9.9.9])", "1.2.3.4"},
        {"9.9.9.9 (x [1.2.3.4])", "1.2.3.4"},
        // There is only one.
        {"[1.2.3.4] (x)", "1.2.3.4"},
        {"1.2.3.4 (authenticated)", "1.2.3.4"},
        {"unknown (HELO 9.9.9.9)", "9.9.9.9"},
        {"x (2001:db8::7)", "2001:db8::7"},
        {"x", ""},
    };
    for (const auto& row : rows) {
        const auto seen = seenClient("from " + std::string(row.clause) + " by mx.example");
        EXPECT_EQ(seen ? seen->description() : "", row.seen) << row.clause;
    }
    EXPECT_EQ(seenClient("by mx.example"), std::nullopt);
}

TEST(Received, hostileValuesAreLinear) {
    for (const std::string piece :
         {"[::::", "(helo=", " ehlo ", "é1.2.3.4", "((((", "[1] ", "300.1.1.1 ", "1.1.1 ", "from "}) {
        std::string value = "from ";
        while (value.size() < 500'000) value += piece;
        value += " (192.0.2.7)";
        EXPECT_EQ(ReceivedHop::parse(value).fromIP, "192.0.2.7") << piece;
    }
}

TEST(Received, senderIP) {
    using Source = SenderIP::Source;
    const Source receivedSPF{Source::ReceivedSPF{}};
    const auto by = [](std::string host) { return Source{Source::Received{std::move(host)}}; };
    const std::string inner = "Received: from inner [10.0.0.1] by mx\r\n";
    const std::string outer = "Received: from outer ([IPv6:2001:DB8:0::7]) by edge\r\n";
    const struct {
        std::string header;
        std::optional<SenderIP> sender;
    } rows[] = {
        {inner + outer + "Received: from o2 [192.0.2.1] by e2\r\n",
         SenderIP{"2001:db8::7", by("edge"), "outer"}},
        {inner, {}},
        {"", {}},
        {"Received: from h [0192.0.2.1]\r\nReceived: by x\r\nReceived: from [192.0.2.2]\r\n",
         SenderIP{"192.0.2.2", {Source::Received{}}, "[192.0.2.2]"}},
        {outer +
             "Received-SPF: pass (a; client-ip=1.1.1.1) client-ip=203.0.113.9; helo=\"mail.example\";\r\n",
         SenderIP{"203.0.113.9", receivedSPF, "mail.example"}},
        // private addresses count here, the later of two values wins, and lines may be folded
        {"Received-SPF: pass client-ip=1.1.1.1;Client-IP=\"IPv6:FE80::1\"\r\n\thelo=a\r\n",
         SenderIP{"IPv6:FE80::1", receivedSPF, "a"}},
        {"Received-SPF: pass client-ip=10.0.0.1\r\n", SenderIP{"10.0.0.1", receivedSPF, {}}},
        {"Received-SPF: fail (none)\r\n" + outer + "Received-SPF: pass client-ip=203.0.113.9\r\n",
         SenderIP{"2001:db8::7", by("edge"), "outer"}},
        {"Received-SPF: pass client-ip=unknown; helo=h\r\n" + inner, {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(senderIP(MailMessage::parse(row.header + "From: a@b.example\r\n\r\n")), row.sender)
            << row.header;
}

TEST(Received, path) {
    const auto path =
        receivedPath(MailMessage::parse("Received: from c by d; Tue, 13 Jan 2026 10:00:05 +0000\r\n"
                                        "Received: from b by c; once; Tue, 13 Jan 2026 11:00:10 +0100\r\n"
                                        "Received: from b by b (localhost)\r\n"
                                        "Received: from a by b\r\n ; 13 Jan 2026 09:58:40 GMT (x)\r\n\r\n"));
    const Date first =
        Date(std::chrono::sys_days(std::chrono::January / 13 / 2026)) + std::chrono::seconds(35'920);
    using std::chrono::seconds;
    const std::vector<PathStep> expected = {
        {{"a", {}, "b"}, first, {}},
        {{"b", {}, "b"}, {}, {}},
        {{"b", {}, "c"}, first + seconds(90), seconds(90)},
        {{"c", {}, "d"}, first + seconds(85), seconds(-5)},
    };
    EXPECT_EQ(path, expected);
    EXPECT_TRUE(receivedPath(MailMessage()).empty());
}

}  // namespace
}  // namespace quillmark
