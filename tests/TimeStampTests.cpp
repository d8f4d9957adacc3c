#include "QuillmarkKit/Support/TimeStamp.h"

#include "CommandLine/StampCommand.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "tests/Test.h"
#include "tests/TestServer.h"

namespace quillmark::test {
namespace {

/// An authority made with the command line of OpenSSL, another hand than ours.
class StampAuthority {
public:
    StampAuthority() {
        m_folder.write(
            "tsa.cnf",
            "[tsa]\ndefault_tsa=t\n[t]\nserial=" + (m_folder / "serial") +
                "\ncrypto_device=builtin\nsigner_digest=sha256\ndefault_policy=1.2.3.4\n"
                "digests=sha256\nordering=no\n[req]\ndistinguished_name=dn\n[dn]\n[ca]\n"
                "basicConstraints=critical,CA:true\n[stamper]\nextendedKeyUsage=critical,timeStamping\n");
        m_folder.write("serial", "01\n");
        run("openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -subj /CN=Root -days 30 "
            "-config tsa.cnf -extensions ca");
        run("openssl req -newkey rsa:2048 -nodes -keyout tsa.key -out tsa.csr -subj '/CN=Stamper of Tests' "
            "-config tsa.cnf");
        run("openssl x509 -req -in tsa.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out tsa.pem -days 30 "
            "-extfile tsa.cnf -extensions stamper");
    }
    std::string root() const { return contents(m_folder / "ca.pem"); }
    std::string reply(const std::string& request) const {
        m_folder.write("q.tsq", request);
        run("openssl ts -reply -config tsa.cnf -queryfile q.tsq -signer tsa.pem -inkey tsa.key -chain "
            "tsa.pem "
            "-out r.tsr");
        return contents(m_folder / "r.tsr");
    }

private:
    void run(const std::string& command) const {
        const std::string all = "cd '" + (m_folder / "") + "' && " + command + " > log 2>&1";
        if (std::system(all.c_str()) != 0) ADD_FAILURE() << command << '\n' << contents(m_folder / "log");
    }
    TemporaryFolder m_folder;
};

TEST(TimeStamp, isVerifiedOffline) {
    const StampAuthority authority;
    const std::string digest = hash(HashAlgorithm::sha256, "recording"),
                      other = hash(HashAlgorithm::sha256, "x");
    const std::string reply = authority.reply(timeStampRequest(digest));
    const auto stamp = timeStamp(reply, digest, authority.root());
    ASSERT_TRUE(stamp);
    EXPECT_TRUE(stamp->isTrusted);
    EXPECT_EQ(stamp->authority, "Stamper of Tests");
    EXPECT_LT(std::chrono::abs(std::chrono::system_clock::now() - stamp->at), std::chrono::hours(1));
    EXPECT_FALSE(timeStamp(reply, other, authority.root()));
    const auto unknown = timeStamp(reply, digest);
    ASSERT_TRUE(unknown);
    EXPECT_FALSE(unknown->isTrusted);
    // Damaged anywhere it is no stamp, or none that is trusted; of another authority it isn't, either.
    for (std::size_t i = 0; i < reply.size(); i += 17) {
        std::string damaged = reply;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x20);
        const auto read = timeStamp(damaged, digest, authority.root());
        if (read && read->isTrusted) {
            EXPECT_EQ(read->at, stamp->at) << i;
        }
    }
    EXPECT_FALSE(timeStamp(reply.substr(0, reply.size() / 2), digest));
    EXPECT_FALSE(timeStamp(reply, digest, StampAuthority().root())->isTrusted);
}

/// Over loopback: nothing but the digest leaves the machine, and what comes back is looked at first.
TEST(TimeStamp, isAskedFor) {
    const StampAuthority authority;
    const std::string digest = hash(HashAlgorithm::sha256, "recording");
    const std::string reply = authority.reply(timeStampRequest(digest));
    TestServer server([&](const std::string& target) {
        return target == "/tsr" ? Reply{.body = reply} : Reply{.status = 404, .body = reply};
    });
    HTTPEngine http({.caFile = Authority::shared().caFile()});
    EXPECT_EQ(stampOf(http, server.url("/tsr"), digest), reply);
    EXPECT_THROW(stampOf(http, server.url("/other"), digest), StampError);
    EXPECT_THROW(stampOf(http, server.url("/tsr"), hash(HashAlgorithm::sha256, "x")), StampError);
    const std::string head = server.requests().front();
    EXPECT_TRUE(head.starts_with("POST /tsr"));
    EXPECT_NE(head.find("application/timestamp-query"), std::string::npos);
}

}  // namespace
}  // namespace quillmark::test
