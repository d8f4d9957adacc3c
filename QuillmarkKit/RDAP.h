#pragma once

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Support/Date.h"

namespace quillmark {

/// Why a registration date could not be had, in plain words.
class RDAPError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where the registration dates of domains come from.
class RegistrationLookup {
public:
    RegistrationLookup() = default;
    RegistrationLookup(const RegistrationLookup&) = delete;
    RegistrationLookup& operator=(const RegistrationLookup&) = delete;
    virtual ~RegistrationLookup() = default;

    /// When a domain was registered; nothing when its registry publishes no date. Blocks. Throws `RDAPError`;
    /// soon after `stop` is requested, too. Safe from many threads at once.
    virtual std::optional<Date> registrationDate(std::string_view domain, std::stop_token stop) = 0;
};

/// Fixed dates, for tests and for checks without a network.
class StaticRegistry : public RegistrationLookup {
public:
    /// No date: the registry publishes none. Text: the lookup fails with it.
    using Entry = std::variant<std::optional<Date>, std::string>;
    /// Keys are lower-case domains.
    using Entries = std::map<std::string, Entry, std::less<>>;

    explicit StaticRegistry(Entries entries);
    /// Throws "not in the test registry" for any other domain.
    std::optional<Date> registrationDate(std::string_view domain, std::stop_token stop) override;

private:
    const Entries m_entries;
};

}  // namespace quillmark
