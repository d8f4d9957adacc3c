// Every fuzz target with every input of its corpus, what fuzzing found to be worth keeping, and with small
// changes of those, the same in every run.

#include <cstddef>
#include <cstdint>
#include "tests/Test.h"

using FuzzTarget = int(const std::uint8_t* data, std::size_t size);

#define FUZZ_TARGETS(each)                                                                                   \
    each(addresses) each(arc) each(authresults) each(canonicalization) each(containers) each(dmarc)          \
        each(dnsmessage) each(dohreply) each(encodedwords) each(history) each(keyrecord) each(message)       \
            each(messagetext) each(outlook) each(punycode) each(rdap) each(received) each(reportjson)        \
                each(spf) each(suffix) each(taglist) each(txtunquote) each(undo) each(unpacker) each(verify) \
                    each(wire)

#define DECLARE(name) extern "C" FuzzTarget fuzz##name;
#define LIST(name) {#name, fuzz##name},
FUZZ_TARGETS(DECLARE)

namespace quillmark {
namespace {

namespace fs = std::filesystem;

const struct {
    const char* name;
    FuzzTarget* run;
} targets[] = {FUZZ_TARGETS(LIST)};

/// The input with a few pieces changed, said twice or taken out, or with a byte said many times: longer than
/// what is scanned in one go, and of lengths at which a scan of blocks ends.
std::string changed(std::string input, std::mt19937& random) {
    constexpr std::size_t most = 8192, block = 64;
    for (auto times = 1 + random() % 8; times > 0; --times) {
        const std::size_t at = random() % (input.size() + 1), to = random() % (input.size() + 1);
        const std::string piece = input.substr(at, random() % block);
        switch (random() % 5) {
            case 0:
                if (at < input.size()) input[at] = static_cast<char>(input[at] ^ (1 << random() % 8));
                break;
            case 1:
                input.erase(at, piece.size());
                break;
            case 2:
                if (to < input.size())
                    input.insert(at, random() % (random() % 8 == 0 ? most / 2 : block), input[to]);
                break;
            case 3:
                input.resize(input.size() - input.size() % block + random() % 2,
                             '\r');  // 1 for a mode in front
                break;
            default:
                input.insert(to, piece);
        }
    }
    return input.substr(0, most);
}

TEST(FuzzCorpus, holds) {
    std::size_t folders = 0;
    for (const auto& target : targets) {
        std::vector<std::string> inputs;
        for (const auto& entry : fs::directory_iterator(fs::path(QUILLMARK_FUZZ_CORPUS) / target.name)) {
            std::ifstream file(entry.path(), std::ios::binary);
            inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        }
        ASSERT_FALSE(inputs.empty()) << target.name;
        std::ranges::sort(inputs);
        std::mt19937 random(1);
        const std::size_t changes = target.run == fuzzundo ? 60 : 400;  // each a search
        for (std::size_t i = 0; i < inputs.size() + changes; ++i) {
            const std::string bytes =
                i < inputs.size() ? inputs[i] : changed(inputs[i % inputs.size()], random);
            // A property that does not hold ends the process.
            EXPECT_EQ(target.run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
        }
    }
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(QUILLMARK_FUZZ_CORPUS)) ++folders;
    EXPECT_EQ(folders, std::size(targets));  // none was forgotten above
}

}  // namespace
}  // namespace quillmark
