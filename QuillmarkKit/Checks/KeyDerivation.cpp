#include "QuillmarkKit/Checks/KeyDerivation.h"

#include <gmp.h>

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <utility>

#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Support/DER.h"
#include "QuillmarkKit/Support/LoadedLibrary.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

namespace {

using namespace std::string_view_literals;

/// What two random numbers have in common besides is small: larger factors come once in a million pairs.
constexpr unsigned long smallFactor = 1 << 20;
constexpr std::size_t longestSignature = 512, shortestSignature = 64;  // bytes

/// What is used of GMP, which is loaded with the first pair.
class Library : public LoadedLibrary {
public:
    Library() : LoadedLibrary("libgmp.so.10") {}

    decltype(&::mpz_init) init = find("__gmpz_init");
    decltype(&::mpz_clear) clear = find("__gmpz_clear");
    decltype(&::mpz_import) read = find("__gmpz_import");
    decltype(&::mpz_export) write = find("__gmpz_export");
    decltype(&::mpz_pow_ui) power = find("__gmpz_pow_ui");
    decltype(&::mpz_sub) subtract = find("__gmpz_sub");
    decltype(&::mpz_gcd) commonDivisor = find("__gmpz_gcd");
    decltype(&::mpz_sizeinbase) size = find("__gmpz_sizeinbase");
    decltype(&::mpz_probab_prime_p) isPrime = find("__gmpz_probab_prime_p");
    // The functions for single words are declared inline; these are the exported ones.
    unsigned long (*remainder)(mpz_srcptr, unsigned long) = find("__gmpz_fdiv_ui");
    unsigned long (*divide)(mpz_ptr, mpz_srcptr, unsigned long) = find("__gmpz_fdiv_q_ui");
};

const Library& library() {
    static const Library loaded;
    if (!loaded.isWhole()) throw std::runtime_error("GMP (libgmp.so.10) is missing");
    return loaded;
}

class Number {
public:
    Number() { library().init(m_value); }
    explicit Number(std::string_view bytes) : Number() {
        library().read(m_value, bytes.size(), 1, 1, 1, 0, bytes.data());
    }
    ~Number() { library().clear(m_value); }
    Number(const Number&) = delete;
    Number& operator=(const Number&) = delete;
    mpz_ptr get() { return m_value; }
    mpz_srcptr get() const { return m_value; }
    std::size_t bits() const { return library().size(m_value, 2); }

private:
    mpz_t m_value;
};

std::string bytesOf(const Number& number) {
    std::string bytes((number.bits() + 7) / 8, '\0');
    library().write(bytes.data(), nullptr, 1, 1, 1, 0, number.get());
    return bytes;
}

/// What an RSA signature of this length was made of (RFC 8017, section 9.2). Nothing when it is too short.
std::optional<std::string> encoded(const UncheckedSignature& signature) {
    if (!signature.rsaHash) return std::nullopt;
    const bool isSHA1 = signature.rsaHash == HashAlgorithm::sha1;
    const std::string_view info =
        isSHA1 ? "\x30\x21\x30\x09\x06\x05\x2B\x0E\x03\x02\x1A\x05\x00\x04\x14"sv
               : "\x30\x31\x30\x0D\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01\x05\x00\x04\x20"sv;
    const std::size_t length = signature.signature.size(), end = info.size() + signature.digest.size();
    if (length < end + 11) return std::nullopt;
    std::string bytes("\0\1"sv);
    bytes.append(length - end - 3, '\xFF').append(1, '\0').append(info).append(signature.digest);
    return bytes;
}

/// s^e - m, of which the modulus is a factor. The largest has a hundred million bits and more.
void setMultiple(Number& result, const UncheckedSignature& signature, const std::string& message,
                 unsigned long exponent) {
    const Number number(signature.signature), meant(message);
    library().power(result.get(), number.get(), exponent);
    library().subtract(result.get(), result.get(), meant.get());
}

std::string integer(std::string bytes) {
    // cppcheck-suppress containerOutOfBounds; neither is zero
    if (static_cast<unsigned char>(bytes.front()) >= 0x80) bytes.insert(0, 1, '\0');
    return encodedDER('\x02', bytes);
}

std::string publicKeyInfo(const Number& modulus, unsigned long exponent) {
    std::string e;
    for (; exponent > 0; exponent >>= 8) e.insert(0, 1, static_cast<char>(exponent & 0xFF));
    return rsaPublicKeyInfo(encodedDER('\x30', integer(bytesOf(modulus)) + integer(e)));
}

bool verifies(const std::string& publicKey, const UncheckedSignature& signature) {
    const auto key = RSAPublicKey::fromPKCS1(rsaKeyBytes(publicKey));
    return key && signature.rsaHash && key->verify(*signature.rsaHash, signature.digest, signature.signature);
}

/// Takes small factors off; false when nothing of that length is left, or it is no modulus.
bool isModulusWithoutSmallFactors(Number& number, std::size_t length) {
    const Library& gmp = library();
    if (number.bits() <= 8 * (length - 1) || number.bits() > 8 * length + 2000) return false;
    for (unsigned long factor = 2; factor < smallFactor; factor += factor == 2 ? 1 : 2) {
        while (gmp.remainder(number.get(), factor) == 0) {
            gmp.divide(number.get(), number.get(), factor);
            if (number.bits() <= 8 * (length - 1)) return false;
        }
    }
    constexpr int rounds = 25;
    return number.bits() <= 8 * length && gmp.isPrime(number.get(), rounds) == 0;
}

std::int64_t monthOf(Date at) {
    const std::chrono::year_month_day day{std::chrono::floor<std::chrono::days>(at)};
    return static_cast<int>(day.year()) * 12 + static_cast<int>(static_cast<unsigned>(day.month()));
}

}  // namespace

std::optional<std::string> commonKey(const UncheckedSignature& one, const UncheckedSignature& other,
                                     unsigned long exponent) {
    const std::size_t length = one.signature.size();
    if (length != other.signature.size() || length > longestSignature || length < shortestSignature)
        return std::nullopt;
    const auto first = encoded(one), second = encoded(other);
    if (!first || !second) return std::nullopt;
    Number common;
    {
        Number a, b;
        setMultiple(a, one, *first, exponent);
        setMultiple(b, other, *second, exponent);
        library().commonDivisor(common.get(), a.get(), b.get());
    }
    if (!isModulusWithoutSmallFactors(common, length)) return std::nullopt;
    std::string key = publicKeyInfo(common, exponent);
    if (!verifies(key, one) || !verifies(key, other)) return std::nullopt;
    return key;
}

void KeyDerivation::add(UncheckedSignature signature, std::size_t number, std::optional<Date> at) {
    if (!signature.rsaHash) return;
    signature.domain = comparableDomain(signature.domain);
    signature.selector = asciiLowered(signature.selector);
    m_entries.push_back({std::move(signature), number, at ? monthOf(*at) : 0, at.value_or(Date())});
}

bool KeyDerivation::run(std::size_t mostPairsInAll, const Progress& progress,
                        const std::function<void(const DerivedKey&)>& found) {
    using Name = std::pair<std::string, std::string>;
    std::map<Name, std::vector<const Entry*>> names;
    {
        std::set<std::string_view> known;  // a copy of a message has nothing new
        for (const Entry& entry : m_entries) {
            if (known.insert(entry.signature.signature).second)
                names[{entry.signature.domain, entry.signature.selector}].push_back(&entry);
        }
    }
    std::vector<std::string> keys;  // a domain may have one under several names
    for (auto& [name, left] : names) {
        std::ranges::stable_sort(left, {}, [](const Entry* entry) { return entry->at; });
        const auto take = [&](const std::string& publicKey) {
            DerivedKey key{name.first, name.second, publicKey};
            std::vector<const Entry*> rest;
            for (const Entry* entry : left) {
                if (verifies(publicKey, entry->signature)) {
                    key.signatures.push_back(entry->number);
                } else {
                    rest.push_back(entry);
                }
            }
            constexpr std::size_t enough = 3;  // the pair, and one that it was not made of
            if (key.signatures.size() < enough) return false;
            key.bits =
                static_cast<int>(RSAPublicKey::fromPKCS1(rsaKeyBytes(publicKey)).value().blockSize() * 8);
            std::ranges::sort(key.signatures);
            found(key);
            left = std::move(rest);
            return true;
        };
        for (const std::string& key : keys) take(key);
        std::map<std::int64_t, std::size_t> tried;  // pairs, by month
        // Of three in a row that two keys made two are of one, wherever the other key's stand.
        for (std::size_t i = 0; left.size() > 2 && i + 1 < left.size();) {
            bool isFound = false;
            for (std::size_t lag = 1; lag <= 2 && i + lag < left.size() && !isFound; ++lag) {
                const Entry &one = *left[i], &other = *left[i + lag];
                if (tried[one.month] >= mostPairs) break;
                if (mostPairsInAll-- == 0) return false;
                ++tried[one.month];
                progress(name.first, name.second, left.size());
                std::optional<std::string> key;
                for (const unsigned long exponent : m_exponents) {
                    if (!key) key = commonKey(one.signature, other.signature, exponent);
                }
                isFound = key && take(*key);
                if (isFound) keys.push_back(std::move(*key));
            }
            if (!isFound) ++i;
        }
    }
    return true;
}

}  // namespace quillmark
