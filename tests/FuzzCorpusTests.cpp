// Every fuzz target with every input of its corpus: what fuzzing found to be worth keeping is tested each
// time.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

using FuzzTarget = int(const std::uint8_t* data, std::size_t size);

extern "C" {
FuzzTarget fuzzaddresses, fuzzarc, fuzzauthresults, fuzzcanonicalization, fuzzcontainers, fuzzdmarc,
    fuzzdohreply, fuzzencodedwords, fuzzhistory, fuzzkeyrecord, fuzzmessage, fuzzpunycode, fuzzrdap,
    fuzzreceived, fuzzreportjson, fuzzspf, fuzzsuffix, fuzztaglist, fuzztxtunquote, fuzzverify;
}

namespace quillmark {
namespace {

namespace fs = std::filesystem;

const struct {
    const char* name;
    FuzzTarget* run;
} targets[] = {
    {"addresses", fuzzaddresses},
    {"arc", fuzzarc},
    {"authresults", fuzzauthresults},
    {"canonicalization", fuzzcanonicalization},
    {"containers", fuzzcontainers},
    {"dmarc", fuzzdmarc},
    {"dohreply", fuzzdohreply},
    {"encodedwords", fuzzencodedwords},
    {"history", fuzzhistory},
    {"keyrecord", fuzzkeyrecord},
    {"message", fuzzmessage},
    {"punycode", fuzzpunycode},
    {"rdap", fuzzrdap},
    {"received", fuzzreceived},
    {"reportjson", fuzzreportjson},
    {"spf", fuzzspf},
    {"suffix", fuzzsuffix},
    {"taglist", fuzztaglist},
    {"txtunquote", fuzztxtunquote},
    {"verify", fuzzverify},
};

TEST(FuzzCorpus, holds) {
    std::size_t folders = 0;
    for (const auto& target : targets) {
        std::size_t inputs = 0;
        for (const auto& entry : fs::directory_iterator(fs::path(QUILLMARK_FUZZ_CORPUS) / target.name)) {
            SCOPED_TRACE(entry.path().string());
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            // A property that does not hold ends the process.
            EXPECT_EQ(target.run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
            ++inputs;
        }
        EXPECT_GT(inputs, 0u) << target.name;
    }
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(QUILLMARK_FUZZ_CORPUS)) ++folders;
    EXPECT_EQ(folders, std::size(targets));  // none was forgotten above
}

}  // namespace
}  // namespace quillmark
