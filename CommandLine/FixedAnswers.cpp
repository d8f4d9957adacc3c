#include "CommandLine/FixedAnswers.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <utility>
#include <variant>

#include "QuillmarkKit/Support/Serialization.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Wording/Details.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

using Sources = std::map<std::string, std::string, std::less<>>;

constexpr std::array types{DNSRecordType::a, DNSRecordType::mx, DNSRecordType::txt, DNSRecordType::aaaa};

/// Throws with the place of the fault: answers["example.org|A"]: …
[[noreturn]] void fail(const std::string& member, const std::string& key, const std::string& what) {
    throw AnswersFileError(member + (key.empty() ? "" : "[\"" + key + "\"]") + ": " + what);
}

std::string text(const JSON& value, const std::string& member, const std::string& key) {
    if (!value.is_string()) fail(member, key, "expected a text");
    return value.get<std::string>();
}

Date date(const JSON& value, const std::string& member, const std::string& key) {
    const auto parsed = parsedRFC3339(text(value, member, key));
    if (!parsed) fail(member, key, "expected a time such as 2026-11-21T10:00:00Z");
    return *parsed;
}

/// A name as it is asked for, which a file may hold in its letters.
std::string askedName(std::string_view written) {
    return asciiLowered(asciiDomain(written).value_or(std::string(written)));
}

/// A name and a record type: "Example.org|txt" is "example.org|TXT". Any other type would never be asked for.
std::string lookupKey(const std::string& member, const std::string& key) {
    const auto bar = key.rfind('|');
    if (bar == std::string::npos) fail(member, key, "expected a name and a type, such as example.org|TXT");
    const std::string_view name = std::string_view(key).substr(0, bar),
                           written = std::string_view(key).substr(bar + 1);
    for (const auto type : types) {
        if (equalsIgnoringCase(written, mnemonic(type))) return StaticResolver::key(askedName(name), type);
    }
    fail(member, key, "expected the type TXT, MX, A or AAAA");
}

DNSAnswer answer(const JSON& value, const std::string& key) {
    if (value == "noData") return DNSAnswer::noData();
    if (value == "nxdomain") return DNSAnswer::nxdomain();
    if (!value.is_array()) fail("answers", key, "expected a list of texts, \"noData\" or \"nxdomain\"");
    std::vector<std::string> data;
    data.reserve(value.size());
    for (const JSON& record : value) data.push_back(text(record, "answers", key));
    return data.empty() ? DNSAnswer::noData() : DNSAnswer::records(std::move(data));
}

StaticRegistry::Entries registrationDates(const JSON& object) {
    StaticRegistry::Entries entries;
    for (const auto& [domain, value] : object.items()) {
        auto& entry = entries[askedName(domain)];
        if (value.is_null()) {
            entry = std::optional<Date>();
        } else if (value.is_object() && value.size() == 1 && value.contains("error")) {
            entry = text(value["error"], "registrations", domain);
        } else {
            entry = std::optional<Date>(date(value, "registrations", domain));
        }
    }
    return entries;
}

JSON parsed(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (file) file.peek();  // a directory can be opened, but not read
    if (!file && !file.eof()) throw AnswersFileError(std::generic_category().message(errno));
    std::ostringstream text;
    text << file.rdbuf();
    try {
        JSON document = parsedJSON(text.view(), std::numeric_limits<std::size_t>::max());
        if (!document.is_object()) throw AnswersFileError("expected a JSON object");
        return document;
    } catch (const DecodingError& error) {
        throw AnswersFileError(error.what());
    }
}

/// Hands a member of the file to `use` if it is there; it must be of that type.
void read(const JSON& document, const char* member, JSON::value_t type,
          const std::function<void(const JSON&)>& use) {
    const auto found = document.find(member);
    if (found == document.end()) return;
    if (found->type() != type)
        fail(member, "", type == JSON::value_t::array ? "expected a list" : "expected an object");
    use(*found);
}

/// What `use` makes of the document in a file; its faults are told with the file's name.
template <typename Use>
auto fromFile(const std::string& path, Use use) {
    try {
        return use(parsed(path));
    } catch (const AnswersFileError& error) {
        throw AnswersFileError(path, error.what());
    }
}

bool isAnswersFile(const JSON& document) {
    return document.contains("answers") ||
           (document.contains("registrations") && !document["registrations"].contains("error"));
}

FixedAnswers::Failures failures(const JSON& message, const std::string& digest) {
    if (!message.is_object()) fail("messages", digest, "expected an object");
    FixedAnswers::Failures failures;
    read(message, "files", JSON::value_t::array, [&](const JSON& list) {
        for (const JSON& name : list) failures.files.insert(text(name, "files", ""));
    });
    read(message, "errors", JSON::value_t::object, [&](const JSON& object) {
        for (const auto& [key, value] : object.items()) {
            failures.dns.insert_or_assign(lookupKey("errors", key), text(value, "errors", key));
        }
    });
    read(message, "registrationErrors", JSON::value_t::object, [&](const JSON& object) {
        for (const auto& [domain, value] : object.items()) {
            failures.registrations.insert_or_assign(askedName(domain),
                                                    text(value, "registrationErrors", domain));
        }
    });
    return failures;
}

void readSources(const JSON& object, const char* member, Sources& sources) {
    read(object, member, JSON::value_t::object, [&](const JSON& each) {
        for (const auto& [question, source] : each.items())
            sources.insert_or_assign(question, text(source, "sources", question));
    });
}

FixedAnswers fixedAnswers(const JSON& document) {
    if (!document.contains("answers")) throw AnswersFileError("the member \"answers\" is missing");
    FixedAnswers fixed;
    const auto member = [&](const char* name, JSON::value_t type, const auto& use) {
        quillmark::read(document, name, type, use);
    };
    member("answers", JSON::value_t::object, [&](const JSON& object) {
        for (const auto& [key, value] : object.items()) {
            // They come sorted, so that nearly each has its place at the end.
            fixed.answers.insert_or_assign(fixed.answers.end(), lookupKey("answers", key),
                                           answer(value, key));
        }
    });
    member("validated", JSON::value_t::array, [&](const JSON& list) {
        for (const JSON& question : list) {
            const auto found = fixed.answers.find(lookupKey("validated", text(question, "validated", "")));
            if (found != fixed.answers.end()) found->second.isValidated = true;
        }
    });
    member("failing", JSON::value_t::array, [&](const JSON& list) {
        for (const JSON& name : list) fixed.failing.insert(askedName(text(name, "failing", "")));
    });
    member("errors", JSON::value_t::object, [&](const JSON& object) {
        for (const auto& [key, value] : object.items()) {
            fixed.errors.insert_or_assign(lookupKey("errors", key), text(value, "errors", key));
        }
    });
    member("registrations", JSON::value_t::object,
           [&](const JSON& object) { fixed.registrations = registrationDates(object); });
    member("messages", JSON::value_t::object, [&](const JSON& object) {
        fixed.messages.emplace();
        for (const auto& [digest, message] : object.items()) {
            fixed.messages->emplace(asciiLowered(digest), failures(message, digest));
        }
    });
    if (document.contains("at")) fixed.at = date(document["at"], "at", "");
    member("sources", JSON::value_t::object, [&](const JSON& object) {
        readSources(object, "answers", fixed.sources);
        readSources(object, "registrations", fixed.registrationSources);
    });
    member("recorded", JSON::value_t::object, [&](const JSON& object) {
        if (object.contains("begun")) fixed.begun = date(object["begun"], "recorded", "begun");
        if (object.contains("ended")) fixed.ended = date(object["ended"], "recorded", "ended");
    });
    return fixed;
}

StaticRegistry::Entries allRegistrations(const JSON& document) {
    if (!isAnswersFile(document)) return registrationDates(document);
    StaticRegistry::Entries entries;
    quillmark::read(document, "registrations", JSON::value_t::object,
                    [&](const JSON& object) { entries = registrationDates(object); });
    return entries;
}

/// The records of a set in one order: DNS gives them in any.
std::vector<std::string> sortedRecords(const DNSAnswer& answer) {
    const auto* records = std::get_if<DNSAnswer::Records>(&answer.value);
    std::vector<std::string> data = records ? records->data : std::vector<std::string>();
    std::ranges::sort(data);
    return data;
}

bool isSame(const DNSAnswer& one, const DNSAnswer& other) {
    // cppcheck-suppress accessMoved; what was known already was not moved
    return one.value.index() == other.value.index() && sortedRecords(one) == sortedRecords(other);
}

void takeSource(const std::string& question, const Sources& from, Sources& to) {
    if (const auto known = from.find(question); known != from.end())
        to.insert_or_assign(question, known->second);
}

std::string told(const DNSAnswer& answer) {
    if (std::holds_alternative<DNSAnswer::NXDomain>(answer.value)) return "nxdomain";
    if (std::holds_alternative<DNSAnswer::NoData>(answer.value)) return "noData";
    std::string text;
    for (const std::string& record : std::get<DNSAnswer::Records>(answer.value).data)
        text += (text.empty() ? "" : " | ") + record;
    return text;
}

std::string told(const std::optional<Date>& registered) { return registered ? rfc3339(*registered) : "null"; }

/// Names whose every lookup fails as failures of each lookup, so that single ones can give way to an answer.
void spellOut(FixedAnswers& fixed) {
    for (const std::string& name : fixed.failing) {
        for (const DNSRecordType type : types)
            fixed.errors.insert_or_assign(StaticResolver::key(name, type), "no resolver answered");
    }
    fixed.failing.clear();
    // As they are looked up: a failure counts before an answer of the same file.
    for (const auto& [question, why] : fixed.errors) fixed.answers.erase(question);
}

}  // namespace

std::vector<FixedAnswers::Contradiction> FixedAnswers::add(FixedAnswers other) {
    std::vector<Contradiction> contradictions;
    spellOut(*this);
    spellOut(other);
    for (auto& [question, answer] : other.answers) {
        const auto [known, isNew] = answers.try_emplace(question, std::move(answer));
        if (isNew) {
            errors.erase(question);
            takeSource(question, other.sources, sources);
            // cppcheck-suppress accessMoved; as it is not new
        } else if (!isSame(known->second, answer)) {
            contradictions.push_back({question, told(known->second), told(answer)});
        }
    }
    for (auto& [question, why] : other.errors) {
        if (!answers.contains(question)) errors.try_emplace(question, std::move(why));
    }
    if (other.registrations && !registrations) registrations.emplace();
    for (auto& [domain, entry] : other.registrations.value_or(StaticRegistry::Entries())) {
        const auto [known, isNew] = registrations->try_emplace(domain, entry);
        const auto* date = std::get_if<std::optional<Date>>(&entry);
        const auto* knownDate = std::get_if<std::optional<Date>>(&known->second);
        if (isNew || (date && !knownDate)) {
            known->second = entry;
            takeSource(domain, other.registrationSources, registrationSources);
        } else if (!date) {
            continue;
        } else if (*knownDate != *date) {
            contradictions.push_back({domain, told(*knownDate), told(*date)});
        }
    }
    if (!at) at = other.at;
    if (other.begun) begun = std::min(begun.value_or(*other.begun), *other.begun);
    if (other.ended) ended = std::max(ended.value_or(*other.ended), *other.ended);
    if (!other.messages) return contradictions;
    if (!messages) messages.emplace();
    for (auto& [digest, theirs] : *other.messages) {
        Failures& ours = (*messages)[digest];
        ours.files.merge(theirs.files);
        ours.dns.merge(theirs.dns);
        ours.registrations.merge(theirs.registrations);
    }
    return contradictions;
}

std::string unusable(const AnswersFileError& error, const Reader& reader) {
    if (error.file.empty()) return error.what();
    return reader.translate(
        "“%1” can’t be used: %2",
        {quillmark::quoted(error.file), quillmark::quoted(systemErrorText(error.reason, reader))});
}

FixedAnswers FixedAnswers::read(const std::string& path) { return fromFile(path, fixedAnswers); }

StaticRegistry::Entries FixedAnswers::readRegistrations(const std::string& path) {
    return fromFile(path, allRegistrations);
}

}  // namespace quillmark
