#include "QuillmarkKit/Checks/Canonicalization.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <unordered_map>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";

// Eight bytes at a time: a word holds them in memory order, a mask has the highest bit of each that is meant.
constexpr std::uint64_t ones = 0x0101010101010101, highBits = 0x80 * ones;

std::uint64_t wordAt(const char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// A mask of the bytes of `word` that are `byte`.
constexpr std::uint64_t bytesEqual(std::uint64_t word, char byte) {
    constexpr std::uint64_t low = ~highBits;
    const std::uint64_t difference = word ^ static_cast<unsigned char>(byte) * ones;
    return ~(((difference & low) + low) | difference | low);
}

/// Gathers small pieces in front of a sink; large ones pass where they lie.
class Gathering {
public:
    explicit Gathering(ByteSink& sink) : m_sink(sink) {}
    ~Gathering() { flush(); }
    Gathering(const Gathering&) = delete;
    Gathering& operator=(const Gathering&) = delete;

    void add(std::string_view bytes) {
        m_count += bytes.size();
        const bool isLarge = bytes.size() > m_buffer.size() / 2;
        if (isLarge || bytes.size() > m_buffer.size() - m_used) flush();
        if (isLarge) {
            m_sink.add(bytes);
            return;
        }
        if (bytes.empty()) return;
        std::memcpy(m_buffer.data() + m_used, bytes.data(), bytes.size());
        m_used += bytes.size();
    }
    void add(char byte) {
        if (m_used == m_buffer.size()) flush();
        m_buffer[m_used++] = byte;
        ++m_count;
    }
    /// Adds those of eight bytes, in memory order, whose highest bit is set in `kept`.
    void add(std::uint64_t word, std::uint64_t kept) {
        if (m_buffer.size() - m_used < sizeof word) flush();
        const std::size_t before = m_used;
        if (kept == highBits) {
            std::memcpy(m_buffer.data() + m_used, &word, sizeof word);
            m_used += sizeof word;
        } else {
            const auto bytes = std::bit_cast<std::array<char, sizeof word>>(word);
            const auto flags = std::bit_cast<std::array<unsigned char, sizeof word>>(kept);
            for (std::size_t i = 0; i < sizeof word; ++i) {
                m_buffer[m_used] = bytes[i];  // overwritten by the next byte if it is not kept
                m_used += static_cast<std::size_t>(flags[i] >> 7);
            }
        }
        m_count += m_used - before;
    }
    void flush() {
        if (m_used > 0) m_sink.add({m_buffer.data(), m_used});
        m_used = 0;
    }
    /// How many bytes were added in all.
    std::uint64_t count() const { return m_count; }

private:
    ByteSink& m_sink;
    std::uint64_t m_count = 0;
    std::size_t m_used = 0;
    std::array<char, 4096> m_buffer;  // not cleared: only what was written is read
};

/// The end of a body's content: empty lines, and under relaxed lines of blanks, count for nothing there.
std::string_view withoutEmptyLinesAtEnd(std::string_view body, Canonicalization canonicalization) {
    for (;;) {
        if (canonicalization == Canonicalization::relaxed) {
            while (!body.empty() && isBlank(body.back())) body.remove_suffix(1);
        }
        if (!body.ends_with(lineEnd)) return body;
        body.remove_suffix(2);
    }
}

/// How much is looked at, and handed over, in one go: it stays in the processor's cache between the two.
constexpr std::size_t stretch = std::size_t{64} * 1024;
/// How much is taken through the buffer when anything in it must change: less than a line, so that a line
/// with one change passes where it lies but for that place.
constexpr std::size_t block = 32;
/// How much is looked at in one go while nothing must change.
constexpr std::size_t largeBlock = 4 * block;

// Both are written without a branch, so that the compiler makes them sixteen bytes at a time.

/// Whether a blank or a tab stands in that many bytes. Encoded content has none.
template <std::size_t size>
bool hasBlank(const char* bytes) {
    unsigned char found = 0;
    for (std::size_t i = 0; i < size; ++i)
        found = static_cast<unsigned char>(found | (bytes[i] == ' ') | (bytes[i] == '\t'));
    return found != 0;
}

/// Whether a tab, or a blank before another, a tab or a CR, stands in that many bytes. Reads one byte more.
template <std::size_t size>
bool mustChange(const char* bytes) {
    unsigned char found = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const char c = bytes[i], next = bytes[i + 1];
        const auto tab = static_cast<unsigned char>(c == '\t');
        const auto blank = static_cast<unsigned char>(c == ' ');
        const auto follows = static_cast<unsigned char>(static_cast<unsigned char>(next == ' ') |
                                                        static_cast<unsigned char>(next == '\t') |
                                                        static_cast<unsigned char>(next == '\r'));
        found = static_cast<unsigned char>(found | tab | (blank & follows));
    }
    return found != 0;
}

/// Relaxes from `at` to `end`, of a text that does not end in a blank. Every blank goes but the last of its
/// run, and that one too in front of a line end: what follows a byte decides, so that words need no memory of
/// each other, however many changes they hold.
void relax(std::string_view text, std::size_t at, std::size_t end, Gathering& out) {
    for (; at + sizeof(std::uint64_t) <= end && text.size() - at >= sizeof(std::uint64_t) + 2;
         at += sizeof(std::uint64_t)) {
        const char* const bytes = text.data() + at;
        const std::uint64_t word = wordAt(bytes), next = wordAt(bytes + 1), afterNext = wordAt(bytes + 2);
        const std::uint64_t tabs = bytesEqual(word, '\t');
        const std::uint64_t blankFollows = bytesEqual(next, ' ') | bytesEqual(next, '\t');
        const std::uint64_t lineEndFollows = bytesEqual(next, '\r') & bytesEqual(afterNext, '\n');
        const std::uint64_t dropped = (bytesEqual(word, ' ') | tabs) & (blankFollows | lineEndFollows);
        out.add(word ^ (tabs >> 7) * ('\t' ^ ' '), highBits ^ dropped);
    }
    for (; at < end; ++at) {
        if (!isBlank(text[at])) {
            out.add(text[at]);
        } else if (!isBlank(text[at + 1]) && text.substr(at + 1, 2) != lineEnd) {
            out.add(' ');
        }
    }
}

/// Where the next block begins in which something must change, or `end`, or a byte less than a block behind
/// it.
std::size_t unchangedUntil(std::string_view text, std::size_t at, std::size_t end) {
    const auto passes = [&](const char* bytes) {
        return !hasBlank<largeBlock>(bytes) || !mustChange<largeBlock>(bytes);
    };
    while (at + largeBlock < text.size() && at < end && passes(text.data() + at)) at += largeBlock;
    while (at + block < text.size() && at < end && !mustChange<block>(text.data() + at)) at += block;
    return at;
}

void relaxBody(std::string_view text, Gathering& out, const std::stop_token& stop) {
    std::size_t at = 0, sinceLook = 0;
    while (at < text.size()) {
        const std::size_t begin = at;
        const std::size_t end = std::min(begin + stretch, text.size());
        at = unchangedUntil(text, at, end);
        out.add(text.substr(begin, at - begin));
        if (at < end) {
            const std::size_t changedEnd = std::min(at + block, text.size());
            relax(text, at, changedEnd, out);
            at = changedEnd;
        }
        sinceLook += at - begin;
        if (sinceLook < (std::size_t{1} << 20)) continue;
        if (stop.stop_requested()) return;
        sinceLook = 0;
    }
}

/// Whether eight bytes of a field's value, behind a byte that is no blank, pass as they lie: no folding in
/// them, and each blank a single one that something follows. Reads one byte more.
bool passesUnchanged(const char* bytes) {
    const auto folding = [](std::uint64_t word) {
        return bytesEqual(word, '\t') | bytesEqual(word, '\r') | bytesEqual(word, '\n');
    };
    const std::uint64_t word = wordAt(bytes), next = wordAt(bytes + 1);
    return (folding(word) | (bytesEqual(word, ' ') & (folding(next) | bytesEqual(next, ' ')))) == 0;
}

/// Hashes the whole or, in the same walk, the first bytes up to each of several limits.
class LimitedHashes : public ByteSink {
public:
    /// `limits`: in ascending order.
    LimitedHashes(HashAlgorithm algorithm, std::span<const std::uint64_t> limits)
        : m_hash(algorithm), m_limits(limits), m_isLimited(!limits.empty()) {}
    void add(std::string_view bytes) override {
        while (!m_limits.empty() && m_limits.front() - m_count <= bytes.size()) {
            take(bytes, m_limits.front() - m_count);
            m_digests.push_back(Hasher(m_hash).digest());
            m_limits = m_limits.subspan(1);
        }
        if (!m_isLimited || !m_limits.empty()) take(bytes, bytes.size());
    }
    /// One for each limit, or that of the whole. May be asked once.
    std::vector<std::string> digests() {
        if (!m_isLimited || !m_limits.empty()) {
            m_digests.resize(m_digests.size() + std::max<std::size_t>(m_limits.size(), 1), m_hash.digest());
        }
        return std::move(m_digests);
    }

private:
    void take(std::string_view& bytes, std::uint64_t count) {
        m_hash.add(bytes.substr(0, static_cast<std::size_t>(count)));
        bytes.remove_prefix(static_cast<std::size_t>(count));
        m_count += count;
    }

    Hasher m_hash;
    std::span<const std::uint64_t> m_limits;  // those not reached yet
    const bool m_isLimited;
    std::uint64_t m_count = 0;  // of the bytes hashed
    std::vector<std::string> m_digests = {};
};

}  // namespace

std::optional<CanonicalizationPair> CanonicalizationPair::parse(std::optional<std::string_view> value) {
    if (!value || value->empty()) return CanonicalizationPair{};
    const auto named = [](std::string_view name) -> std::optional<Canonicalization> {
        if (equalsIgnoringCase(name, "simple")) return Canonicalization::simple;
        if (equalsIgnoringCase(name, "relaxed")) return Canonicalization::relaxed;
        return std::nullopt;
    };
    const auto slash = value->find('/');
    const auto header = named(value->substr(0, slash));
    const auto body =
        slash == std::string_view::npos ? Canonicalization::simple : named(value->substr(slash + 1));
    if (!header || !body) return std::nullopt;
    return CanonicalizationPair{*header, *body};
}

void canonicalizeHeader(std::string_view raw, Canonicalization canonicalization, ByteSink& sink) {
    const auto colon = raw.find(':');
    if (canonicalization == Canonicalization::simple || colon == std::string_view::npos) {
        sink.add(raw);
        return;
    }
    Gathering out(sink);
    std::string_view name = raw.substr(0, colon);
    while (!name.empty() && isBlank(name.back())) name.remove_suffix(1);
    for (const char c : name) out.add(asciiLowered(c));
    out.add(':');
    const std::string_view value = raw.substr(colon + 1);
    bool written = false,
         blank = false;  // whether the value has begun; whether a blank waits for what follows
    for (std::size_t at = 0; at < value.size();) {
        constexpr std::size_t word = sizeof(std::uint64_t);
        if (written && !blank && value.size() - at > word && passesUnchanged(value.data() + at)) {
            out.add(wordAt(value.data() + at), highBits);
            at += word;
            continue;
        }
        const char c = value[at++];
        if (c == '\r' || c == '\n') continue;
        if (isBlank(c)) {
            blank = written;
            continue;
        }
        if (blank) out.add(' ');
        out.add(c);
        written = true;
        blank = false;
    }
}

std::uint64_t canonicalizeBody(std::string_view body, Canonicalization canonicalization, ByteSink& sink,
                               const std::stop_token& stop) {
    Gathering out(sink);
    std::string_view content = withoutEmptyLinesAtEnd(body, canonicalization);
    if (canonicalization == Canonicalization::relaxed) {
        if (content.empty()) return 0;
        relaxBody(content, out, stop);
    } else {
        constexpr std::size_t megabyte = std::size_t{1} << 20;
        while (!content.empty() && !stop.stop_requested()) {
            out.add(content.substr(0, megabyte));
            content.remove_prefix(std::min(content.size(), megabyte));
        }
    }
    out.add(lineEnd);
    return out.count();
}

std::string withEmptiedSignature(std::string_view raw) {
    const auto colon = raw.find(':');
    if (colon == std::string_view::npos) return std::string(raw);
    std::string emptied(raw.substr(0, colon + 1));
    emptied.reserve(raw.size());
    std::string_view rest = raw.substr(colon + 1);
    for (;;) {
        const bool closed = rest.find(';') != std::string_view::npos;
        const std::string_view segment = takePiece(rest, ';');
        const auto equals = segment.find('=');
        const std::string_view name = trimmed(segment.substr(0, std::min(equals, segment.size())), " \t\r\n");
        const bool isSignature = equals != std::string_view::npos && (name == "b" || name == "B");
        emptied += isSignature ? segment.substr(0, equals + 1) : segment;
        if (!closed) return emptied;
        emptied += ';';
    }
}

bool addSignedHeaderData(const MailMessage& message, const TextList& names, const HeaderField& signature,
                         Canonicalization canonicalization, ByteSink& sink, std::size_t limit) {
    const auto fits = [&](std::string_view raw) {
        const bool isFitting = raw.size() <= limit;
        limit -= std::min(raw.size(), limit);
        return isFitting;
    };
    if (!fits(signature.raw)) return false;
    // How many fields of a name are used up, from the bottom, by where the name's positions lie.
    std::unordered_map<const std::uint32_t*, std::size_t> used;
    for (const std::string_view name : names) {
        const auto positions = message.positions(name);
        if (positions.empty()) continue;
        std::size_t& count = used[positions.data()];
        while (count < positions.size()) {
            const HeaderField& field = message.headers()[positions[positions.size() - ++count]];
            if (field == signature) continue;
            if (!fits(field.raw)) return false;
            canonicalizeHeader(field.raw, canonicalization, sink);
            sink.add(lineEnd);
            break;
        }
    }
    canonicalizeHeader(withEmptiedSignature(signature.raw), canonicalization, sink);
    return true;
}

BodyHashes::BodyHashes(std::string_view body, std::vector<std::uint64_t> expectedLimits)
    : m_body(body), m_expected(std::move(expectedLimits)) {
    std::ranges::sort(m_expected);
    m_expected.erase(std::unique(m_expected.begin(), m_expected.end()), m_expected.end());
}

const BodyHashes::Hash& BodyHashes::hash(Canonicalization canonicalization, HashAlgorithm algorithm,
                                         std::optional<std::uint64_t> limit, const std::stop_token& stop) {
    const auto at = [&](std::optional<std::uint64_t> which) -> Hash& {
        return m_hashes[Asked{canonicalization, algorithm, which}];
    };
    if (const auto known = m_hashes.find({canonicalization, algorithm, limit}); known != m_hashes.end())
        return known->second;
    const bool isExpected = limit && std::ranges::binary_search(m_expected, *limit);
    std::span<const std::uint64_t> limits;
    if (limit) limits = isExpected ? std::span<const std::uint64_t>(m_expected) : std::span(&*limit, 1);
    LimitedHashes sink(algorithm, limits);
    const std::uint64_t length = canonicalizeBody(m_body, canonicalization, sink, stop);
    const auto digests = sink.digests();
    for (std::size_t i = 0; i < limits.size(); ++i) at(limits[i]) = {digests[i], length};
    if (!limit) at(limit) = {digests.front(), length};
    return at(limit);
}

}  // namespace quillmark
