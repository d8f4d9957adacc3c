// Input: the value of an address field. Every address is trimmed and stands in the value, and a list written
// out in plain form is read back as it was.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "QuillmarkKit/Mail/Addresses.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/Require.h"

namespace {

using namespace quillmark;
using fuzz::require;

PackedList<MailAddress> walked(std::string_view value) {
    PackedList<MailAddress> list;
    std::string entry;
    const auto close = [&] {
        if (auto address = MailAddress::parse(entry)) list.push_back(*address);
        entry.clear();
    };
    int angles = 0, parentheses = 0;
    bool inQuotes = false;
    for (const char c : value) {
        if (c == '"') inQuotes = !inQuotes;
        const int step = inQuotes ? 0 : 1;
        if (c == '<') angles += step;
        if (c == '>') angles = std::max(angles - step, 0);
        if (c == '(') parentheses += step;
        if (c == ')') parentheses = std::max(parentheses - step, 0);
        if ((c == ',' || c == ';') && !inQuotes && angles + parentheses == 0) {
            close();
        } else {
            entry += c;
        }
    }
    close();
    return list;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string value = repairedUTF8({reinterpret_cast<const char*>(data), size});
    const auto list = MailAddress::parseList(value);
    require(list == walked(value));
    std::string plain;
    PackedList<MailAddress> expected;
    std::size_t at = 0;
    for (const MailAddress& entry : list) {
        require(entry.address == trimmedBlanks(entry.address));
        require(!entry.displayName || !entry.displayName->empty());
        require(!entry.displayName || isUTF8(*entry.displayName));
        at = value.find(entry.address, at);  // in the order of the field
        require(at != std::string::npos);
        at += entry.address.size();

        const std::string domain = MailAddress::domainPart(entry.address);
        require(isUTF8(domain) && domain == trimmed(domain, ".>"));
        require(domain.empty() || entry.address.find('@') != std::string::npos);

        if (entry.address.find_first_of("<>\"()") != std::string::npos) continue;
        plain += "<" + entry.address + ">, ";
        expected.push_back({std::nullopt, entry.address});
    }
    require(MailAddress::parseList(plain) == expected);
    require(MailAddress::parseList(plain + value).size() == expected.size() + list.size());
    return 0;
}
