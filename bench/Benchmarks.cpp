// One benchmark for each hot path. Build with the preset "bench"; the figures stand in docs/testing.md.

#include <benchmark/benchmark.h>

#include <string>

#include "QuillmarkKit/Canonicalization.h"
#include "QuillmarkKit/DKIM.h"
#include "QuillmarkKit/DKIMKeys.h"
#include "QuillmarkKit/Message.h"
#include "QuillmarkKit/PublicSuffixList.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/TagList.h"
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
