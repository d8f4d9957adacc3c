#pragma once

#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/Text.h"
#include "fuzz/FixedKey.h"
#include "fuzz/Require.h"

namespace quillmark::fuzz {

/// Answers each question with the next line of the input, records separated by "|": "!" fails, "-" is a name
/// that does not exist, an empty line is no data, "=" before records a service that validated them. The fixed
/// key's name takes no line.
struct InputResolver : DNSResolver {
    std::string_view rest = {};
    int questions = 0;

    DNSAnswer lookup(std::string_view name, DNSRecordType, const Patience& = {}) override {
        if (!isUTF8(name)) std::abort();
        ++questions;
        if (name == fixedKeyName) return DNSAnswer::records({std::string(fixedKeyRecord)});
        const std::string_view line = takePiece(rest, '\n');
        if (line == "!") throw DNSLookupError("no answer");
        if (line == "-") return DNSAnswer::nxdomain();
        if (line.empty()) return DNSAnswer::noData();
        const bool isValidated = line.starts_with('=');
        std::vector<std::string> data;
        for (std::string_view texts = line.substr(isValidated); !texts.empty();)
            data.push_back(repairedUTF8(takePiece(texts, '|')));
        DNSAnswer answer = DNSAnswer::records(std::move(data));
        answer.isValidated = isValidated;
        if (isValidated) m_validated.emplace(name);
        return answer;
    }
    std::string source(std::string_view name, DNSRecordType) override {
        return m_validated.contains(name) ? "dns.example" : "";
    }

private:
    std::set<std::string, std::less<>> m_validated = {};
};

}  // namespace quillmark::fuzz
