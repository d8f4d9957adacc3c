#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Fields.h"
#include "QuillmarkKit/Support/PackedList.h"

/// The byte-level rules under every DKIM and ARC check (RFC 6376, sections 3.4, 3.5, 3.7 and 5.4.2).
namespace quillmark {

enum class Canonicalization { simple, relaxed };
constexpr auto namesOf(Canonicalization) {
    return enumTable<Canonicalization>(EnumStyle::word, {"simple", "relaxed"});
}

/// The header's and the body's.
struct CanonicalizationPair {
    Canonicalization header = Canonicalization::simple, body = Canonicalization::simple;
    bool operator==(const CanonicalizationPair&) const = default;

    /// The value of a `c=` tag: absent or empty is simple/simple, one word leaves the body simple. Nothing
    /// when it is not valid.
    static std::optional<CanonicalizationPair> parse(std::optional<std::string_view> value);
};

/// Where canonical bytes go, piece by piece. The pieces are views that are valid during the call only. (A
/// class rather than a callable, so that the hot loops below lie in one .cpp file.)
class ByteSink {
public:
    virtual ~ByteSink() = default;
    virtual void add(std::string_view bytes) = 0;
};

/// A sink that hashes.
class HashingSink : public ByteSink {
public:
    explicit HashingSink(HashAlgorithm algorithm) : m_hasher(algorithm) {}
    void add(std::string_view bytes) override { m_hasher.add(bytes); }
    /// The digest of all that was added. May be asked once.
    std::string digest() { return m_hasher.digest(); }

private:
    Hasher m_hasher;
};

/// The canonical form of one field, without a line end. A field without ":" passes as it stands.
void canonicalizeHeader(std::string_view raw, Canonicalization canonicalization, ByteSink& sink);

/// The canonical form of a body. Runs that do not change are handed over where they lie. Returns its length
/// in bytes. Looks at `stop` about once a megabyte and then returns early.
std::uint64_t canonicalizeBody(std::string_view body, Canonicalization canonicalization, ByteSink& sink,
                               const std::stop_token& stop = {});

/// A signature field with the value of its `b` tag taken out; every other byte stays.
std::string withEmptiedSignature(std::string_view raw);

/// What a signature over header fields is made of: each field that `names` asks for, in that order and from
/// the bottom up for a name that repeats, then the signature field itself with its `b=` emptied, without a
/// final CR LF. Fields that are byte for byte the signature field are passed over. Linear in the names and
/// fields of the message. False, and the data cut short, when these fields have more than `limit` bytes.
bool addSignedHeaderData(const MailMessage& message, const TextList& names, const HeaderField& signature,
                         Canonicalization canonicalization, ByteSink& sink,
                         std::size_t limit = std::numeric_limits<std::size_t>::max());

/// The hashes of one message's body, each worked out once however many signatures ask for it. Not safe from
/// several threads at once; the body must outlive it.
class BodyHashes {
public:
    /// `expectedLimits`: limits that will be asked for. One walk over the body serves all of them.
    explicit BodyHashes(std::string_view body, std::vector<std::uint64_t> expectedLimits = {});

    struct Hash {
        std::string digest = {};            ///< of the canonical body up to the limit
        std::uint64_t canonicalLength = 0;  ///< of the whole canonical body, in bytes
    };
    /// With a `limit` (`l=`) beyond the canonical length the digest covers the whole and only the length
    /// counts.
    const Hash& hash(Canonicalization canonicalization, HashAlgorithm algorithm,
                     std::optional<std::uint64_t> limit, const std::stop_token& stop = {});

private:
    using Asked = std::tuple<Canonicalization, HashAlgorithm, std::optional<std::uint64_t>>;
    std::string_view m_body;
    std::vector<std::uint64_t> m_expected;  // sorted, each once
    std::map<Asked, Hash> m_hashes = {};
};

}  // namespace quillmark
