#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Checks/Canonicalization.h"

/// The canonical forms in the plainest way, as text: what the streaming code is compared with (RFC 6376,
/// section 3.4).
namespace quillmark::reference {

inline std::vector<std::string> lines(std::string_view body) {
    std::vector<std::string> list;
    while (!body.empty()) {
        const auto end = body.find("\r\n");
        list.emplace_back(body.substr(0, end));
        body = end == std::string_view::npos ? std::string_view() : body.substr(end + 2);
    }
    return list;
}

inline std::string reduced(std::string_view line) {
    std::string text;
    bool blank = false;
    for (const char c : line) {
        if (c == ' ' || c == '\t') {
            blank = true;
            continue;
        }
        if (blank) text += ' ';
        blank = false;
        text += c;
    }
    return text;
}

/// The relaxed form of a field.
inline std::string header(std::string_view raw) {
    const auto colon = raw.find(':');
    if (colon == std::string_view::npos) return std::string(raw);
    std::string name(raw.substr(0, colon)), value(raw.substr(colon + 1));
    name.resize(name.find_last_not_of(" \t") + 1);
    for (char& c : name) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    std::erase_if(value, [](char c) { return c == '\r' || c == '\n'; });
    value = reduced(value);
    return name + ':' + (value.starts_with(' ') ? value.substr(1) : value);
}

inline std::string body(std::string_view bytes, Canonicalization canonicalization) {
    std::vector<std::string> list = lines(bytes);
    if (canonicalization == Canonicalization::relaxed) {
        for (std::string& line : list) line = reduced(line);
    }
    while (!list.empty() && list.back().empty()) list.pop_back();
    std::string text;
    for (const std::string& line : list) text += line + "\r\n";
    if (list.empty() && canonicalization == Canonicalization::simple) text = "\r\n";
    return text;
}

/// A sink that keeps everything.
struct Kept : ByteSink {
    std::string text = {};
    void add(std::string_view bytes) override { text += bytes; }
};

}  // namespace quillmark::reference
