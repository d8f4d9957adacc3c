#pragma once

#include <span>
#include <string>
#include <vector>

#include "Quillmark/Session.h"
#include "Wording/Reader.h"

/// What the history has of a sender.
namespace quillmark {

/// How many other messages were proven to be from the organization that a report is of, and since when, in a
/// line; empty where there is nothing to say. Only messages count that are signed and whole, each once, so
/// that forged ones can't make a sender look known.
std::string knownInWords(const ProofReport& report,
                         std::span<const std::shared_ptr<const ProofReport>> history, const Reader& reader);

/// Organizations that messages without warning signs were proven to be from, those of the most messages
/// first, at most a hundred.
std::vector<std::string> knownDomains(std::span<const std::shared_ptr<const ProofReport>> history);

}  // namespace quillmark
