// One benchmark for each hot path. Build with the preset "bench"; the figures stand in docs/testing.md.

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/Canonicalization.h"
#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Checks/SPF.h"
#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Mail/IPAddress.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Verifier.h"
#include "tests/TestSigner.h"

namespace quillmark {
namespace {

constexpr std::size_t large = 45'000'000;

std::string repeated(std::string_view line, std::size_t size) {
    std::string text;
    while (text.size() < size) text += line;
    return text;
}

const std::string& ordinaryBody() {
    static const std::string body =
        repeated("The quick brown fox jumps over the lazy dog, and over it again; who knows?\r\n", large);
    return body;
}

void sha256(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(hash(HashAlgorithm::sha256, ordinaryBody()));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(ordinaryBody().size()));
}
BENCHMARK(sha256)->Unit(benchmark::kMillisecond);

void hashRelaxedBody(benchmark::State& state, const std::string& body) {
    for (auto _ : state) {
        BodyHashes hashes(body);
        benchmark::DoNotOptimize(hashes.hash(Canonicalization::relaxed, HashAlgorithm::sha256, std::nullopt));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(body.size()));
}
void relaxedBodyOrdinary(benchmark::State& state) { hashRelaxedBody(state, ordinaryBody()); }
void relaxedBodyAllChanged(benchmark::State& state) {
    static const std::string body = repeated("The  quick brown\tfox jumps over the lazy dog \r\n", large);
    hashRelaxedBody(state, body);
}
BENCHMARK(relaxedBodyOrdinary)->Unit(benchmark::kMillisecond);
/// Text as it is written for lines that flow: a blank at each end of line.
void relaxedBodyFlowed(benchmark::State& state) {
    static const std::string body =
        repeated("The quick brown fox jumps over the lazy dog, and over it again; who knows \r\n", large);
    hashRelaxedBody(state, body);
}
BENCHMARK(relaxedBodyAllChanged)->Unit(benchmark::kMillisecond);
BENCHMARK(relaxedBodyFlowed)->Unit(benchmark::kMillisecond);

void relaxedHeader(benchmark::State& state) {
    struct Nowhere : ByteSink {
        void add(std::string_view bytes) override { benchmark::DoNotOptimize(bytes.data()); }
    } sink;
    const std::string raw = "Subject:" + repeated(" The quick brown fox jumps over the lazy dog\r\n", large);
    for (auto _ : state) canonicalizeHeader(raw, Canonicalization::relaxed, sink);
}
BENCHMARK(relaxedHeader)->Unit(benchmark::kMillisecond);

void parseMessage(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        ByteBuffer bytes("From: a@example.org\r\n\r\n" + ordinaryBody());
        state.ResumeTiming();
        benchmark::DoNotOptimize(MailMessage::parse(std::move(bytes)));
    }
}
BENCHMARK(parseMessage)->Unit(benchmark::kMillisecond);

/// The key is read from its bytes each time, as no key is kept between messages.
void verifyRSA(benchmark::State& state) {
    const auto key = test::PrivateKey::rsa(static_cast<unsigned>(state.range(0)));
    const std::string digest = hash(HashAlgorithm::sha256, "data");
    const std::string signature = key.signature(SignatureAlgorithm::rsaSHA256, digest);
    const auto record = std::get<DKIMKeyRecord>(DKIMKeyRecord::parse(test::keyRecord(key)));
    for (auto _ : state) {
        const auto outcome = verifySignature(signature, digest, SignatureAlgorithm::rsaSHA256, record);
        if (!std::holds_alternative<Verified>(outcome)) state.SkipWithError("does not verify");
    }
}
BENCHMARK(verifyRSA)->Arg(1024)->Arg(2048)->Unit(benchmark::kMicrosecond);

/// The slowest key that is accepted: 16,384 bits, and an exponent of 64 bits that are all set.
void verifyLargestRSAKey(benchmark::State& state) {
    using namespace std::string_literals;
    const std::string der = "\x30\x82\x08\x10\x02\x82\x08\x01\0"s + std::string(2048, '\xFF') +
                            "\x02\x09\0"s + std::string(8, '\xFF');
    const std::string signature(2048, '\x5A'), digest(32, 'x');
    for (auto _ : state) {
        const auto key = RSAPublicKey::fromPKCS1(der);
        if (!key || key->verify(HashAlgorithm::sha256, digest, signature)) state.SkipWithError("no such key");
    }
}
BENCHMARK(verifyLargestRSAKey)->Unit(benchmark::kMicrosecond);

/// One signature of a message of 10 kB from its field to its result; the key record comes from a table.
void checkSignature(benchmark::State& state) {
    const auto key = test::PrivateKey::rsa(2048);
    const auto message = MailMessage::parse(test::signedMessage(
        "From: a@example.org\r\nSubject: x\r\n\r\n" + ordinaryBody().substr(0, 10'000), {}, key));
    StaticResolver resolver({{"key._domainkey.example.org|TXT", DNSAnswer::records({test::keyRecord(key)})}});
    for (auto _ : state) {
        BodyHashes hashes(*message.body());
        const auto result = SignatureChecker{message, &hashes, resolver, {}}.check(message.headers().front());
        if (result.status != DKIMResult::Status::pass) state.SkipWithError("does not pass");
    }
}
BENCHMARK(checkSignature)->Unit(benchmark::kMicrosecond);

/// A message of 10 MB with a chain of so many forwarders. With one body hash for all, 50 cost little more
/// than 3.
void arcChain(benchmark::State& state) {
    const auto key = SigningKey::newEd25519().value();
    std::string text = "From: a@example.org\r\nSubject: x\r\n\r\n" + ordinaryBody().substr(0, 10'000'000);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        Signer::ARCOptions options;
        options.domain = "list.example";
        options.selector = "key";
        options.results = "mx.list.example; dkim=pass header.d=example.org";
        const auto set = Signer::arcSet(MailMessage::parse(text), options, key);
        text = set.seal + "\r\n" + set.messageSignature + "\r\n" + set.results + "\r\n" + text;
    }
    const auto message = MailMessage::parse(text);
    StaticResolver resolver(
        {{"key._domainkey.list.example|TXT", DNSAnswer::records({Signer::keyRecord(key)})}});
    for (auto _ : state) {
        BodyHashes hashes(*message.body());
        const SignatureChecker checker{message, &hashes, resolver, {}};
        const auto finding = ARCValidator{checker}.validate();
        if (!std::holds_alternative<ARCFinding::Status::Pass>(finding.status.value))
            state.SkipWithError("does not hold");
    }
}
BENCHMARK(arcChain)->Arg(1)->Arg(3)->Arg(50)->Unit(benchmark::kMillisecond);

void spfTenIncludes(benchmark::State& state) {
    StaticResolver::Answers answers;
    std::string record = "v=spf1";
    for (int i = 0; i < 10; ++i) {
        const std::string name = "_spf" + std::to_string(i) + ".example.org";
        record += " include:" + name;
        answers[name + "|TXT"] = DNSAnswer::records(
            {"v=spf1 ip4:198.51.100.0/25 ip4:198.51.100.128/26 ip6:2001:db8::/33 ip4:203.0.113.0/24 ~all"});
    }
    answers["example.org|TXT"] = DNSAnswer::records({record + " -all"});
    StaticResolver resolver(answers);
    const auto address = IPAddress::parse("192.0.2.1").value();
    for (auto _ : state) {
        const auto outcome = SPFEvaluator{resolver}.evaluate(address, "example.org", "a@example.org");
        if (outcome.result != SPFResult::fail) state.SkipWithError("not as expected");
    }
}
BENCHMARK(spfTenIncludes)->Unit(benchmark::kMicrosecond);

/// The whole check of a message that is one long field but for its sender. Two sizes, the second four times
/// the first, show that it is linear.
void checkWhole(benchmark::State& state, const std::string& text, const StaticResolver::Answers& answers) {
    const auto message = MailMessage::parse(text);
    const auto resolver = std::make_shared<StaticResolver>(answers);
    for (auto _ : state) benchmark::DoNotOptimize(Verifier(resolver, nullptr).verify(message, {}, Date()));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
std::string longText(const benchmark::State& state, std::string_view piece) {
    return repeated(piece, static_cast<std::size_t>(state.range(0)));
}
void longDisplayName(benchmark::State& state) {
    checkWhole(state, "From: \"" + longText(state, "mail.example.org ") + "\" <a@example.org>\r\n\r\n", {});
}
void longDomain(benchmark::State& state) {
    checkWhole(state, "From: a@" + longText(state, "mail.xn--bcher-kva.") + "example\r\n\r\n", {});
}
void longAuthenticationResults(benchmark::State& state) {
    const std::string statements = longText(state, "; dkim=pass header.d=example.org");
    checkWhole(state, "From: a@example.org\r\nAuthentication-Results: mx.example" + statements + "\r\n\r\n",
               {});
}
/// The signature passes, so that every name was looked for and hashed.
void longSignedHeaders(benchmark::State& state) {
    const std::string text = "From: a@example.org\r\nSubject: x\r\n\r\n";
    const auto key = SigningKey::newEd25519().value();
    Signer::Options options;
    options.domain = "example.org";
    options.selector = "key";
    options.headers.assign(static_cast<std::size_t>(state.range(0)) / 8, "subject");
    options.headers.emplace_back("from");
    const std::string field = Signer::dkimSignature(MailMessage::parse(text), options, key);
    checkWhole(state, field + "\r\n" + text,
               {{"key._domainkey.example.org|TXT", DNSAnswer::records({Signer::keyRecord(key)})}});
}
BENCHMARK(longDisplayName)->Arg(2'500'000)->Arg(10'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(longDomain)->Arg(2'500'000)->Arg(10'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(longAuthenticationResults)->Arg(2'500'000)->Arg(10'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(longSignedHeaders)->Arg(2'500'000)->Arg(10'000'000)->Unit(benchmark::kMillisecond);

void verifyEd25519Signature(benchmark::State& state) {
    const std::string key = *decodedBase64("11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=");
    const std::string signature = *decodedBase64(
        "/gCrinpcQOoIfuHNQIbq4pgh9kyIK3AQUdt9OdqQehSwhEIug4D11BusFa3bT3FY5OsU7ZbnKELq+eXdp1Q1Dw==");
    for (auto _ : state) benchmark::DoNotOptimize(verifyEd25519(key, std::string(32, 'x'), signature));
}
BENCHMARK(verifyEd25519Signature)->Unit(benchmark::kMicrosecond);

void organizationalDomain(benchmark::State& state) {
    const auto& list = PublicSuffixList::shared();
    for (auto _ : state) benchmark::DoNotOptimize(list.organizationalDomain("mail.news.example.co.uk"));
}
BENCHMARK(organizationalDomain);

/// One look into a book of so many keys, opened anew each time as a check does.
void keyBookLookUp(benchmark::State& state) {
    namespace fs = std::filesystem;
    const fs::path folder = fs::temp_directory_path() / ("keybook" + std::to_string(::getpid()));
    const KeyBook book{folder / "keys.db"};
    const auto name = [](std::int64_t i) { return "s._domainkey.d" + std::to_string(i) + ".example"; };
    const std::string record = "v=DKIM1; k=rsa; p=" + std::string(392, 'A');
    std::vector<KnownKey> keys;
    for (std::int64_t i = 0; i < state.range(0); ++i)
        keys.push_back({name(i), record, Date(), Date(), "dns.example", false, {}});
    book.add(keys);
    std::int64_t i = 0;
    for (auto _ : state) {
        if (book.keysOf(name(i = (i + 7919) % state.range(0))).size() != 1) state.SkipWithError("not found");
    }
    fs::remove_all(folder);
}
BENCHMARK(keyBookLookUp)->Arg(1'000)->Arg(1'000'000)->Unit(benchmark::kMicrosecond);

void reportAsJSON(benchmark::State& state) {
    ProofReport report;
    report.dkim.resize(1);
    report.dkim[0].signedHeaders = {"from", "to", "subject", "date", "message-id"};
    for (auto _ : state) benchmark::DoNotOptimize(compactJSON(report));
}
BENCHMARK(reportAsJSON)->Unit(benchmark::kMicrosecond);

void tagListOfMillions(benchmark::State& state) {
    std::string text;
    for (int i = 0; text.size() < large; ++i) text += "a" + std::to_string(i) + "=;";
    for (auto _ : state) benchmark::DoNotOptimize(TagList::parse(text));
}
BENCHMARK(tagListOfMillions)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quillmark

BENCHMARK_MAIN();
