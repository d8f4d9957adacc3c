#include "QuillmarkKit/Lookups/DoHReply.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Support/Serialization.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

/// The members that must be what they should be; all others are passed over.
struct Reply {
    struct RR {
        int type = 0;
        std::optional<std::string> data = {};
    };
    int status = 0;
    std::optional<std::vector<RR>> answer = {};
};
constexpr auto fieldsOf(const Reply::RR*) {
    return std::tuple{Field{"type", &Reply::RR::type}, Field{"data", &Reply::RR::data}};
}
constexpr auto fieldsOf(const Reply*) {
    return std::tuple{Field{"Status", &Reply::status}, Field{"Answer", &Reply::answer}};
}

constexpr int noError = 0, serverFailure = 2, nameError = 3;

bool isBounded(const Reply& reply) {
    if (!reply.answer) return true;
    const auto isShort = [](const auto& rr) { return !rr.data || rr.data->size() <= DoHReply::dataLimit; };
    return reply.answer->size() <= DoHReply::recordLimit && std::ranges::all_of(*reply.answer, isShort);
}

struct Decoded {
    Reply reply = {};
    bool isValidated = false;
};

Decoded decodedReply(std::string_view json) {
    const DNSLookupError unreadable("unreadable answer");  // what exactly is wrong with it helps nobody
    try {
        const JSON document = parsedJSON(json, DoHReply::bodyLimit);
        Decoded all{.reply = decoded<Reply>(document)};
        // A mark beside the answer: one that can't be read must not take the answer away.
        if (const auto mark = document.find("AD"); mark != document.end())
            all.isValidated = mark->is_boolean() && mark->get<bool>();
        if (isBounded(all.reply)) return all;
    } catch (const DecodingError&) {
        throw unreadable;
    }
    throw unreadable;
}

/// Takes what follows a backslash off the front of `rest`, which is not empty: three digits that fit a byte
/// stand for that byte, any other byte for itself.
char takeEscaped(std::string_view& rest) {
    if (rest.size() >= 3 && isDigit(rest[0]) && isDigit(rest[1]) && isDigit(rest[2])) {
        const int value = (rest[0] - '0') * 100 + (rest[1] - '0') * 10 + (rest[2] - '0');
        if (value < 256) {
            rest.remove_prefix(3);
            return static_cast<char>(value);
        }
    }
    const char byte = rest.front();
    rest.remove_prefix(1);
    return byte;
}

/// Takes a string up to its closing quote off the front of `rest`; nothing when it is not closed.
std::optional<std::string> takeString(std::string_view& rest) {
    std::string bytes;
    while (!rest.empty()) {
        const char byte = rest.front();
        rest.remove_prefix(1);
        if (byte == '"') return bytes;
        bytes += byte == '\\' && !rest.empty() ? takeEscaped(rest) : byte;
    }
    return std::nullopt;
}

}  // namespace

std::string unquotedTXT(std::string_view data) {
    if (data.find('"') == std::string_view::npos) return std::string(data);
    std::string text;
    for (auto quote = data.find('"'); quote != std::string_view::npos; quote = data.find('"')) {
        data.remove_prefix(quote + 1);
        if (const auto bytes = takeString(data)) text += repairedUTF8(*bytes);
    }
    return text;
}

DoHReply DoHReply::parse(std::string_view json, DNSRecordType type) {
    auto [reply, isValidated] = decodedReply(json);
    if (reply.status == serverFailure) return {Servfail{}};
    const auto answered = [validated = isValidated](DNSAnswer answer) {
        answer.isValidated = validated;
        return DoHReply{std::move(answer)};
    };
    if (reply.status == nameError) return answered(DNSAnswer::nxdomain());
    if (reply.status != noError) throw DNSLookupError("DNS status " + std::to_string(reply.status));

    std::vector<std::string> records;
    for (auto& rr : reply.answer.value_or(std::vector<Reply::RR>())) {
        if (rr.type != static_cast<int>(type) || !rr.data) continue;
        records.push_back(type == DNSRecordType::txt ? unquotedTXT(*rr.data) : std::move(*rr.data));
    }
    if (records.empty()) return answered(DNSAnswer::noData());
    return answered(DNSAnswer::records(std::move(records)));
}

}  // namespace quillmark
