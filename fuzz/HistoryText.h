#pragma once

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "QuillmarkKit/History.h"

/// A history as one text, for tests and fuzz targets.
namespace quillmark::fuzz {

inline std::string written(const std::vector<ProofReport>& reports, const UnknownMembers& unknown = {}) {
    std::string text;
    HistoryWriter writer([&](std::string_view bytes) { text += bytes; });
    for (const ProofReport& report : reports) writer.add(report);
    writer.end(unknown);
    return text;
}

inline History readBack(const std::string& text) {
    std::istringstream input(text);
    std::vector<ProofReport> reports;
    History history = readHistory(input, [&](ProofReport report) { reports.push_back(std::move(report)); });
    history.reports = std::move(reports);
    return history;
}

}  // namespace quillmark::fuzz
