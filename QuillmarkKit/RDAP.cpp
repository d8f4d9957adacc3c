#include "QuillmarkKit/RDAP.h"

#include <utility>

#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

StaticRegistry::StaticRegistry(Entries entries) : m_entries(std::move(entries)) {}

std::optional<Date> StaticRegistry::registrationDate(std::string_view domain, std::stop_token) {
    const auto entry = m_entries.find(asciiLowered(domain));
    if (entry == m_entries.end()) throw RDAPError("not in the test registry");
    if (const auto* failure = std::get_if<std::string>(&entry->second)) throw RDAPError(*failure);
    return std::get<std::optional<Date>>(entry->second);
}

}  // namespace quillmark
