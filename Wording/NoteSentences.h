#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// The words for what a person must know that the verdict does not say.
namespace quillmark {

std::string sentence(const ReportNote& note, const Reader& reader);

/// The lines that stand under it where there is room: what was and what is, as it is written. Each is inert;
/// two blanks more for each step in.
std::vector<std::string> details(const ReportNote& note, const Reader& reader);

/// A few words, without a full stop, for one that stands beside the headline with a caution; of another, its
/// sentence.
std::string shortSentence(const ReportNote& note, const Reader& reader);

/// What the bytes show, or what a field says: never that the message was genuine before.
std::string damageInWords(const Damage& damage, const Reader& reader);

/// The parts of a report.
enum class NoteSection {
    message,
    signatures,
    sendingServer,
    policy,
    chain,
    receiverResults,
    sender,        ///< in none: a note that stands in place of the sender
    warningSigns,  ///< where no note stands
};
/// The part that a note belongs to.
NoteSection sectionOf(const ReportNote& note);

/// Caution, or nothing for what only informs.
std::optional<Tone> tone(const ReportNote& note);

/// Whether the headline of a verdict of this tone alone would mislead: such a note is also said beside it.
bool standsBesideHeadline(const ReportNote& note, Tone verdict);

/// What stands in place of the sender where From holds no address; nothing where it holds one.
std::optional<std::string> insteadOfSender(const ProofReport& report, const Reader& reader);

/// What came of checking a signature of `report.dkim`, by its key and the others under the key's name.
std::string signatureSentence(const ProofReport& report, const DKIMResult& signature, const Reader& reader);

/// What is known of what the verdict's domain signed, though the message is another one by now; else null.
const ReportNote::Undone* undoneOf(const ProofReport& report);

/// What must be taken back of what a person reads, without a full stop; empty when that is the same.
std::string changesInWords(const ReportNote::Undone& note, const Reader& reader);

/// What came of the policy of the domain in From. A signature by it that fits a part of the message, or the
/// message as it was, is proven, and counts for nothing there.
std::string policySentence(const ProofReport& report, const Reader& reader);

/// Whether a signature of From's organization holds whole with a key that this computer saw in DNS once.
bool formerKeyHolds(const ProofReport& report);

/// Whether a signature by this domain fits another key than the one that counts.
bool otherKeyFits(const ProofReport& report, std::string_view domain);

}  // namespace quillmark
