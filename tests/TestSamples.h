#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CommandLine/FixedAnswers.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Verifier.h"

namespace quillmark {

inline std::string samplePath(const std::string& name) { return QUILLMARK_SAMPLES "/" + name; }

/// A resolver with a sample's recorded answers.
inline std::shared_ptr<DNSResolver> sampleResolver(const std::string& name) {
    FixedAnswers fixed = FixedAnswers::read(samplePath(name + ".dns.json"));
    return std::make_shared<StaticResolver>(fixed.answers, fixed.failing, fixed.errors);
}

/// A sample, checked.
struct Sample {
    ProofReport report;
    std::vector<PathStep> path;
};
inline Sample checkedSample(const std::string& name) {
    auto bytes = readFile(samplePath(name + ".eml"));
    const auto message =
        std::get<MailMessage>(messageIn(std::get<ByteBuffer>(std::move(bytes)), ParseMode::strict));
    const Date now = std::chrono::sys_days(std::chrono::November / 21 / 2026);
    return {Verifier(sampleResolver(name)).verify(message, name + ".eml", now), receivedPath(message)};
}

}  // namespace quillmark
