#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

/// What the cryptography of one message consists of: written beside the corpus by `bench_corpus`, and all
/// that `bench_floor` is told.
namespace quillmark::bench {

struct FloorSignature {
    bool isEd25519 = false;
    std::string key = {};        ///< PKCS#1 DER, or the 32 raw bytes
    std::string input = {};      ///< the canonical header data that is hashed
    std::string signature = {};  ///< raw bytes
};

struct FloorMessage {
    std::string path = {};
    std::uint64_t begin = 0, size = 0;  ///< where it lies in the file
    bool hashesRelaxedBody = false, hashesSimpleBody = false;
    std::vector<FloorSignature> signatures = {};
};

inline void put(std::ostream& out, std::string_view text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    out.write(reinterpret_cast<const char*>(&size), sizeof size);
    out.write(text.data(), size);
}

inline std::string take(std::istream& in) {
    std::uint32_t size = 0;
    in.read(reinterpret_cast<char*>(&size), sizeof size);
    std::string text(in ? size : 0, '\0');
    in.read(text.data(), size);
    return text;
}

inline void put(std::ostream& out, const FloorMessage& message) {
    put(out, message.path);
    put(out, std::to_string(message.begin));
    put(out, std::to_string(message.size));
    put(out, std::string(message.hashesRelaxedBody ? "r" : "") + (message.hashesSimpleBody ? "s" : ""));
    put(out, std::string(message.signatures.size(), '.'));
    for (const FloorSignature& signature : message.signatures) {
        put(out, signature.isEd25519 ? "e" : "r");
        put(out, signature.key);
        put(out, signature.input);
        put(out, signature.signature);
    }
}

inline FloorMessage takeMessage(std::istream& in) {
    FloorMessage message{.path = take(in)};
    message.begin = std::stoull(take(in));
    message.size = std::stoull(take(in));
    const std::string bodies = take(in);
    message.hashesRelaxedBody = bodies.find('r') != std::string::npos;
    message.hashesSimpleBody = bodies.find('s') != std::string::npos;
    message.signatures.resize(take(in).size());
    for (FloorSignature& signature : message.signatures) {
        signature.isEd25519 = take(in) == "e";
        signature.key = take(in);
        signature.input = take(in);
        signature.signature = take(in);
    }
    return message;
}

}  // namespace quillmark::bench
