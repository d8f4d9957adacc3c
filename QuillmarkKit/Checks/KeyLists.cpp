#include "QuillmarkKit/Checks/KeyLists.h"

#include <algorithm>
#include <charconv>
#include <variant>

#include "QuillmarkKit/Lookups/Evidence.h"
#include "QuillmarkKit/Lookups/KeyBook.h"
#include "QuillmarkKit/Support/DER.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Serialization.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

using namespace std::string_view_literals;

constexpr std::size_t largestList = 1'000'000'000;

std::string text(const JSON& object, const char* member) {
    const auto found = object.find(member);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// Takes keys in; what is none is counted.
class Reading {
public:
    Reading(const std::string& file, Date now) : m_source{file, now} {}

    void add(const std::string& name, const std::string& record, std::optional<Date> first,
             std::optional<Date> last, const std::string& service = {}, bool isValidated = false) {
        const auto known = KeyBook::keyName(name);
        const bool isKey = std::holds_alternative<DKIMKeyRecord>(DKIMKeyRecord::parse(record));
        if (!known || !isKey || record.size() > KeyBook::longestRecord) {
            ++list.passedOver;
            return;
        }
        const Date from = first.value_or(last.value_or(m_source.addedAt));
        list.keys.push_back(
            {*known, record, from, std::max(from, last.value_or(from)), service, isValidated, m_source});
    }
    void add(const JSON& entry) {
        if (!entry.is_object()) {
            ++list.passedOver;
            return;
        }
        const std::string domain = text(entry, "domain"), selector = text(entry, "selector");
        const std::string name = domain.empty() ? text(entry, "name") : selector + "._domainkey." + domain;
        const std::string value = text(entry, "value");
        const auto validated = entry.find("validated");
        add(name, value.empty() ? text(entry, "record") : value, parsedRFC3339(text(entry, "firstSeenAt")),
            parsedRFC3339(text(entry, "lastSeenAt")), text(entry, "service"),
            validated != entry.end() && *validated == true);
    }
    /// The TXT answers of a recording.
    void addAnswers(const JSON& document, const JSON& answers) {
        const JSON recorded = document.value("recorded", JSON::object());
        const auto begun = recorded.is_object() ? parsedRFC3339(text(recorded, "begun")) : std::nullopt;
        const auto at = begun ? begun : parsedRFC3339(text(document, "at"));
        for (const auto& [question, records] : answers.items()) {
            const auto bar = question.rfind('|');
            const std::string name = question.substr(0, bar);
            if (asciiLowered(name).find("._domainkey.") == std::string::npos || !records.is_array()) continue;
            for (const JSON& record : records)
                add(name, record.is_string() ? record.get<std::string>() : std::string(), at, at);
        }
    }

    KeyList list = {};

private:
    const KnownKey::File m_source;
};

/// The TXT records of a zone file. Of everything else nothing is read.
class Zone {
public:
    explicit Zone(std::string_view text) : m_rest(text) {}

    void read(Reading& reading) {
        std::string origin, last;
        while (!m_rest.empty()) {
            const bool hasName = m_rest.front() != ' ' && m_rest.front() != '\t';
            const std::vector<std::string> tokens = entry();
            if (tokens.empty()) continue;
            if (tokens[0] == "$ORIGIN" && tokens.size() > 1) {
                origin = whole(tokens[1], "");
                continue;
            }
            if (hasName) last = whole(tokens[0], origin);
            std::size_t type = hasName ? 1 : 0;
            while (type < tokens.size() && !equalsIgnoringCase(tokens[type], "TXT")) ++type;
            if (type >= tokens.size() || asciiLowered(last).find("._domainkey.") == std::string::npos)
                continue;
            std::string record;
            for (std::size_t i = type + 1; i < tokens.size(); ++i) record += tokens[i];
            reading.add(last, record, {}, {});
        }
    }

private:
    static std::string whole(const std::string& name, const std::string& origin) {
        if (name.ends_with('.') || origin.empty()) return name;
        return name == "@" ? origin : name + "." + origin;
    }
    /// The words of one entry, which goes over several lines in parentheses.
    std::vector<std::string> entry() {
        std::vector<std::string> tokens;
        bool isInside = false;
        while (!m_rest.empty()) {
            const char c = m_rest.front();
            m_rest.remove_prefix(1);
            if (c == '\n' && !isInside) break;
            if (c == '(' || c == ')') {
                isInside = c == '(';
            } else if (c == ';') {
                m_rest.remove_prefix(std::min(m_rest.find('\n'), m_rest.size()));
            } else if (c == '"') {
                tokens.push_back(quoted());
            } else if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
                const auto end = std::min(m_rest.find_first_of(" \t\r\n();\""), m_rest.size());
                tokens.push_back(c + std::string(m_rest.substr(0, end)));
                m_rest.remove_prefix(end);
            }
        }
        return tokens;
    }
    std::string quoted() {
        std::string text;
        while (!m_rest.empty() && m_rest.front() != '"') {
            text += character();
        }
        m_rest.remove_prefix(std::min<std::size_t>(1, m_rest.size()));
        return text;
    }
    /// One character of a quoted text: itself, one behind a backslash, or a backslash and the three decimal
    /// digits of its byte (RFC 1035, section 5.1).
    char character() {
        const bool isEscaped = m_rest.front() == '\\' && m_rest.size() > 1;
        if (isEscaped) m_rest.remove_prefix(1);
        const std::string_view digits = m_rest.substr(0, 3);
        int byte = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte);
        const bool isNumber = isEscaped && digits.size() == 3 && end == digits.data() + 3 && byte <= 255;
        const char c = isNumber && error == std::errc() ? static_cast<char>(byte) : m_rest.front();
        m_rest.remove_prefix(isNumber ? 3 : 1);
        return c;
    }

    std::string_view m_rest;
};

}  // namespace

KeyList readKeyList(std::string_view bytes, const std::string& file, Date now) {
    Reading reading(file, now);
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);  // the byte order mark of some editors
    const std::string_view begin = trimmed(bytes.substr(0, 1000));
    if (begin.starts_with('{') || begin.starts_with('[')) {
        const JSON document = parsedJSON(bytes, largestList);
        const auto member = [&](const char* name) -> const JSON* {
            const auto found = document.is_object() ? document.find(name) : document.end();
            return found != document.end() ? &*found : nullptr;
        };
        const JSON *keys = document.is_array() ? &document : member("keys"), *answers = member("answers");
        if (answers && answers->is_object()) {
            reading.addAnswers(document, *answers);
        } else if (keys && keys->is_array()) {
            for (const JSON& entry : *keys) reading.add(entry);
        } else {
            throw DecodingError("expected a list of keys, or a recording");
        }
    } else {
        Zone(bytes).read(reading);
        if (reading.list.keys.empty() && reading.list.passedOver == 0)
            throw DecodingError("neither JSON nor TXT records of keys");
    }
    return std::move(reading.list);
}

std::string keyListJSON(std::span<const KnownKey> keys) {
    JSON document = {{"version", 1}, {"keys", JSON::array()}};
    for (const KnownKey& key : keys) {
        JSON entry = {{"name", key.name},
                      {"record", key.record},
                      {"firstSeenAt", rfc3339(key.firstSeen)},
                      {"lastSeenAt", rfc3339(key.lastSeen)},
                      {"service", key.service},
                      {"validated", key.isValidated}};
        if (key.file) entry["source"] = {{"file", key.file->name}, {"addedAt", rfc3339(key.file->addedAt)}};
        document["keys"].push_back(std::move(entry));
    }
    constexpr int indent = 2;
    return document.dump(indent, ' ', true, JSON::error_handler_t::replace) + "\n";
}

std::string fingerprint(const DKIMKeyRecord& key) {
    if (key.keyType == "ed25519")
        return sha256(std::string("\x30\x2A\x30\x05\x06\x03\x2B\x65\x70\x03\x21\x00"sv) + key.publicKey);
    return sha256(rsaPublicKeyInfo(rsaKeyBytes(key.publicKey)));
}

std::optional<int> rsaBits(const DKIMKeyRecord& record) {
    if (record.keyType != "rsa") return std::nullopt;
    const auto key = RSAPublicKey::fromPKCS1(rsaKeyBytes(record.publicKey));
    return key ? std::optional(static_cast<int>(key->blockSize() * 8)) : std::nullopt;
}

}  // namespace quillmark
