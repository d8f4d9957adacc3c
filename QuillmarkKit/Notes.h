#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "QuillmarkKit/Checks/GoneKeys.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "QuillmarkKit/Report.h"

namespace quillmark {

/// What the checks of a message learned that its findings don't hold.
struct CheckFacts {
    /// The names, in lower case, of which DNS said that its answer was validated.
    std::set<std::string, std::less<>> validatedNames = {};
    /// Who gave answers, but for the usual services: a few of them.
    std::set<std::string> otherSources = {};
    /// The signatures, by their place in the report, whose header lines hold though the body has changed.
    std::vector<std::size_t> heldSignatures = {};
    /// Those that could be checked and don't fit, and what holds again of them once changes are taken back.
    std::vector<BrokenSignature> broken = {};
    std::vector<UndoneSignature> undone = {};
    std::vector<UndoneHeader> undoneHeaders = {};
    /// What was known of the message beforehand.
    IntakeFacts intake = {};
    /// By the place of a signature in the report: `otherRecordFits` and `versionInstead` of its check.
    std::map<std::size_t, bool> otherRecords = {};
    std::map<std::size_t, std::string> versionsInstead = {};
    /// The term by which SPF passes, if almost any server fits it.
    std::optional<std::string> anyServerTerm = {};
    /// What the newer rules of DMARC come to where the finding, by the older ones, doesn't.
    std::optional<NewerDMARC> newerDMARC = {};
    bool isJudgedByRFC9989 = false;  ///< and the finding is by those
    /// Of signatures whose keys are gone.
    std::vector<GoneKey> goneKeys = {};
};

/// What a person must know that the verdict does not say. `report` holds the findings of this message, its
/// verdict included. At most about four dozen notes come of it, each small.
std::vector<ReportNote> notes(const MailMessage& message, const ProofReport& report,
                              const PublicSuffixList& suffixes, const CheckFacts& facts = {});

}  // namespace quillmark
