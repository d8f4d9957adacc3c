#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "QuillmarkKit/Checks/UncheckedSignature.h"

/// RSA keys out of signatures alone: two signatures by one key give its modulus, without any DNS. That proves
/// that one holder of a key made them all, never whose key it is.
namespace quillmark {

/// A key that several signatures under one name have in common.
struct DerivedKey {
    std::string domain = {}, selector = {};  ///< in lower case
    std::string publicKey = {};              ///< DER, SubjectPublicKeyInfo (RFC 5280, section 4.1.2.7)
    int bits = 0;                            ///< of the modulus
    std::vector<std::size_t> signatures =
        {};  ///< that it verifies, at least three, by the order they came in
};

/// What two RSA signatures (PKCS#1 v1.5, RFC 8017, section 8.2) of this exponent have in common, as a
/// SubjectPublicKeyInfo: as long as they are, odd, composite, without small factors, and both verify under
/// it. Nothing when there is no such key. With an exponent of 65537 it takes half a minute of one core and
/// 150 MB for 2,048 bits. Throws `std::runtime_error` when libgmp.so.10 is missing.
std::optional<std::string> commonKey(const UncheckedSignature& one, const UncheckedSignature& other,
                                     unsigned long exponent);

/// Finds the keys of many signatures.
class KeyDerivation {
public:
    /// `exponents`: of the keys that are looked for, those that take least first. By default what keys in use
    /// have.
    explicit KeyDerivation(std::vector<unsigned long> exponents = {3, 17, 65537})
        : m_exponents(std::move(exponents)) {}

    /// How many pairs are tried at most of one name and one month.
    static constexpr std::size_t mostPairs = 3;

    /// Takes a signature in; one that was there already, or by another algorithm than RSA, says nothing.
    /// `at`: when it was made, as far as that is known.
    void add(UncheckedSignature signature, std::size_t number, std::optional<Date> at);

    /// Told before each pair, which may take long: the name, and how many of its signatures have no key yet.
    using Progress =
        std::function<void(const std::string& domain, const std::string& selector, std::size_t left)>;
    /// The keys, in the order they were found, each handed on at once. `progress` that throws ends it.
    /// `mostPairsInAll`: then it ends; false.
    bool run(std::size_t mostPairsInAll, const Progress& progress,
             const std::function<void(const DerivedKey&)>& found);

private:
    struct Entry {
        UncheckedSignature signature;
        std::size_t number = 0;
        std::int64_t month = 0;  // since the year 0; 0: unknown
        Date at = {};
    };
    const std::vector<unsigned long> m_exponents;
    std::vector<Entry> m_entries = {};
};

}  // namespace quillmark
