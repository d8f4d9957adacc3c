// One benchmark for each hot path. Build with the preset "bench"; the figures stand in docs/testing.md.

#include <benchmark/benchmark.h>

#include <string>

#include "QuillmarkKit/Canonicalization.h"
#include "QuillmarkKit/DKIMKeys.h"
#include "QuillmarkKit/Message.h"
#include "QuillmarkKit/PublicSuffixList.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/TagList.h"

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
BENCHMARK(relaxedBodyAllChanged)->Unit(benchmark::kMillisecond);

void parseMessage(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        ByteBuffer bytes("From: a@example.org\r\n\r\n" + ordinaryBody());
        state.ResumeTiming();
        benchmark::DoNotOptimize(MailMessage::parse(std::move(bytes)));
    }
}
BENCHMARK(parseMessage)->Unit(benchmark::kMillisecond);

/// The example of RFC 8463, appendix A.2.
void verifyRSA1024WithAFreshKey(benchmark::State& state) {
    const DKIMKeyRecord record = std::get<DKIMKeyRecord>(DKIMKeyRecord::parse(
        "k=rsa; "
        "p=MIGfMA0GCSqGSIb3DQEBAQUAA4GNADCBiQKBgQDkHlOQoBTzWRiGs5V6NpP3idY6Wk08a5qhdR6wy5bdOKb2jLQiY/"
        "J16JYi0Qvx/"
        "byYzCNb3W91y3FutACDfzwQ/BC/e/"
        "8uBsCR+yz1Lxj+PL6lHvqMKrM3rG4hstT5QjvHO9PzoxZyVYLzBfO2EeC3Ip3G+2kryOTIKT+l/K4w3QIDAQ"
        "AB"));
    const std::string signature(128, 'x'), digest(32, 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(verifySignature(signature, digest, SignatureAlgorithm::rsaSHA256, record));
    }
}
BENCHMARK(verifyRSA1024WithAFreshKey)->Unit(benchmark::kMicrosecond);

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
