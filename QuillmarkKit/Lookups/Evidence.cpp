#include "QuillmarkKit/Lookups/Evidence.h"

#include <utility>
#include <variant>

#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Serialization.h"

namespace quillmark {

namespace {

JSON value(const DNSAnswer& answer) {
    if (std::holds_alternative<DNSAnswer::NXDomain>(answer.value)) return "nxdomain";
    if (std::holds_alternative<DNSAnswer::NoData>(answer.value)) return "noData";
    return std::get<DNSAnswer::Records>(answer.value).data;
}

JSON value(const std::optional<Date>& registered) {
    return registered ? JSON(rfc3339(*registered)) : JSON(nullptr);
}

JSON value(const std::string& failure) { return failure; }

template <typename Value>
JSON values(const Record<Value>& record) {
    JSON object = JSON::object();
    for (const auto& [question, entry] : record.entries()) object[question] = value(entry.value);
    return object;
}

template <typename Value>
JSON sources(const Record<Value>& record) {
    JSON object = JSON::object();
    for (const auto& [question, entry] : record.entries()) {
        if (!entry.source.empty()) object[question] = entry.source;
    }
    return object;
}

}  // namespace

std::string sha256(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char c : hash(HashAlgorithm::sha256, bytes)) {
        const auto byte = static_cast<unsigned char>(c);
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

std::string recordingJSON(std::string_view by, const RecordingTimes& times, const RecordedAnswers& answers,
                          Registrations registrations,
                          const std::map<std::string, RecordedMessage>& messages) {
    JSON document;
    document["at"] = rfc3339(times.at);
    document["answers"] = values(answers.dns);
    for (const auto& [question, entry] : answers.dns.entries()) {
        if (entry.value.isValidated) document["validated"].push_back(question);
    }
    if (registrations == Registrations::asked) document["registrations"] = values(answers.registrations);
    document["sources"] = {{"answers", sources(answers.dns)},
                           {"registrations", sources(answers.registrations)}};
    document["recorded"] = {{"by", by}, {"begun", rfc3339(times.begun)}, {"ended", rfc3339(times.ended)}};
    JSON& all = document["messages"] = JSON::object();
    for (const auto& [digest, recorded] : messages) {
        JSON& message = all[digest] = {{"files", recorded.files}};
        if (!recorded.failures) continue;
        if (JSON errors = values(recorded.failures->dns); !errors.empty())
            message["errors"] = std::move(errors);
        if (JSON errors = values(recorded.failures->registrations); !errors.empty())
            message["registrationErrors"] = std::move(errors);
    }
    // In ASCII: it is looked at in terminals, and nothing in it may play tricks there.
    constexpr int indent = 2;
    return document.dump(indent, ' ', true, JSON::error_handler_t::replace) + "\n";
}

}  // namespace quillmark
