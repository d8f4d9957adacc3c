// Does only what no checker can avoid, for the messages of the plans given: reads each message, scans it once
// for line ends, brings its body into canonical form in place and hashes each form once, hashes the data of
// each signature, and verifies it with a key made fresh. Prints its own CPU seconds, the plans' reading left
// out.
//
//     bench_floor PLAN...

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string_view>

#include "FloorPlan.h"

namespace {

using namespace quillmark::bench;

double cpuSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A mailbox stays open from one of its messages to the next.
bool readMessage(const FloorMessage& message, std::string& bytes) {
    static std::string openPath;
    static int file = -1;
    if (openPath != message.path) {
        close(file);
        file = open(message.path.c_str(), O_RDONLY);
        openPath = message.path;
    }
    bytes.resize(message.size);
    return pread(file, bytes.data(), bytes.size(), static_cast<off_t>(message.begin)) ==
           static_cast<ssize_t>(message.size);
}

/// Whether every line ends in CR LF: a look at each byte that could be a line end.
bool hasPlainLineEnds(std::string_view bytes) {
    for (std::size_t at = 0; (at = bytes.find('\n', at)) != std::string_view::npos; ++at) {
        if (at == 0 || bytes[at - 1] != '\r') return false;
    }
    return true;
}

/// The relaxed form over the bytes themselves; gives its length.
std::size_t relaxInPlace(char* body, std::size_t size) {
    char* to = body;
    const char* const end = body + size;
    for (const char* line = body; line < end;) {
        const void* found = std::memchr(line, '\n', static_cast<std::size_t>(end - line));
        const char* next = found ? static_cast<const char*>(found) + 1 : end;
        const char* last = found ? next - 2 : end;
        while (last > line && (last[-1] == ' ' || last[-1] == '\t')) --last;
        for (const char* at = line; at < last;) {
            const void* blank = std::memchr(at, ' ', static_cast<std::size_t>(last - at));
            const char* stop = blank ? static_cast<const char*>(blank) + 1 : last;
            std::memmove(to, at, static_cast<std::size_t>(stop - at));
            to += stop - at;
            for (at = stop; blank && at < last && (*at == ' ' || *at == '\t');) ++at;
        }
        if (found) *to++ = '\r', *to++ = '\n';
        line = next;
    }
    return static_cast<std::size_t>(to - body);
}

std::size_t withoutEmptyLastLines(const char* body, std::size_t size) {
    while (size >= 4 && std::memcmp(body + size - 4, "\r\n\r\n", 4) == 0) size -= 2;
    return size;
}

const EVP_MD* sha256() {
    static const EVP_MD* const digest = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return digest;
}

void hash(std::string_view bytes, unsigned char (&digest)[32]) {
    EVP_Digest(bytes.data(), bytes.size(), digest, nullptr, sha256(), nullptr);
}

bool verifies(const FloorSignature& signature) {
    unsigned char digest[32];
    hash(signature.input, digest);
    const auto* bytes = reinterpret_cast<const unsigned char*>(signature.key.data());
    const auto size = static_cast<long>(signature.key.size());
    EVP_PKEY* key = signature.isEd25519
                        ? EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytes, signature.key.size())
                        : d2i_PublicKey(EVP_PKEY_RSA, nullptr, &bytes, size);
    if (!key) return false;
    const auto* made = reinterpret_cast<const unsigned char*>(signature.signature.data());
    int result = 0;
    if (signature.isEd25519) {
        EVP_MD_CTX* context = EVP_MD_CTX_new();
        EVP_DigestVerifyInit(context, nullptr, nullptr, nullptr, key);
        result = EVP_DigestVerify(context, made, signature.signature.size(), digest, sizeof digest);
        EVP_MD_CTX_free(context);
    } else {
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(key, nullptr);
        EVP_PKEY_verify_init(context);
        EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING);
        EVP_PKEY_CTX_set_signature_md(context, sha256());
        result = EVP_PKEY_verify(context, made, signature.signature.size(), digest, sizeof digest);
        EVP_PKEY_CTX_free(context);
    }
    EVP_PKEY_free(key);
    return result == 1;
}

bool check(const FloorMessage& message, std::string& bytes) {
    if (!readMessage(message, bytes) || !hasPlainLineEnds(bytes)) return false;
    const std::size_t body = bytes.find("\r\n\r\n") + 4;
    unsigned char digest[32];
    char* const start = bytes.data() + body;
    std::size_t size = withoutEmptyLastLines(start, bytes.size() - body);
    if (message.hashesSimpleBody) hash({start, size}, digest);
    if (message.hashesRelaxedBody) {
        size = withoutEmptyLastLines(start, relaxInPlace(start, size));
        hash({start, size}, digest);
    }
    for (const FloorSignature& signature : message.signatures) {
        if (!verifies(signature)) return false;
    }
    return true;
}

}  // namespace

int main(int count, char** arguments) {
    std::vector<FloorMessage> messages;
    for (int i = 1; i < count; ++i) {
        std::ifstream plan(arguments[i], std::ios::binary);
        while (plan.peek() != std::ifstream::traits_type::eof()) messages.push_back(takeMessage(plan));
    }
    const double begin = cpuSeconds();
    std::string bytes;
    for (const FloorMessage& message : messages) {
        if (!check(message, bytes))
            return std::fprintf(stderr, "%s does not verify\n", message.path.c_str()), 1;
    }
    std::printf("%.6f\n", cpuSeconds() - begin);
}
