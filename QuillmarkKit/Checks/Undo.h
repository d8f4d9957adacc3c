#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Checks/ChangedTexts.h"
#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Checks/Reversals.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Fields.h"

/// Takes back what lists, gateways and mail programs do to a message on its way, until a signature that was
/// broken holds again. What is told is never which change was taken back, but what the message as it was
/// signed and the message as it is shown differ in.
namespace quillmark {

/// The fields of one name, where they differ: their values, topmost first.
struct ChangedField {
    std::string name = {};  ///< lower-case
    std::vector<std::string> shown = {}, signedValues = {};
    bool operator==(const ChangedField&) const = default;
};
constexpr auto fieldsOf(const ChangedField*) {
    using T = ChangedField;
    return std::tuple{Field{"name", &T::name}, Field{"shown", &T::shown}, Field{"signed", &T::signedValues}};
}

/// A signature that holds again.
struct UndoneSignature {
    std::size_t signature = 0;  ///< its place among those that were given
    /// What was signed: the signed fields, the signature, the fields that say what the body is, and the body.
    /// It passes the check that the message as it is shown doesn't.
    MailMessage message = {};
    std::vector<ChangedField> fields = {};
    std::vector<ChangedText> texts = {};    ///< in message order
    std::vector<RewrittenForm> forms = {};  ///< each once, in the order of their declaration
    std::int64_t links = 0;                 ///< that a protection service had rewritten
    std::int64_t signedBytes = 0;           ///< of the text
    std::int64_t addedBytes = 0;            ///< by which the text that is shown is longer where it differs
};

/// A signature whose header lines hold again, while the text that it was made over wasn't found.
struct UndoneHeader {
    std::size_t signature = 0;              ///< its place among those that were given
    std::vector<ChangedField> fields = {};  ///< never empty
};

struct UndoFindings {
    std::vector<UndoneSignature> undone = {};
    std::vector<UndoneHeader> headers = {};
    /// Finds that the check didn't confirm and that are not told: a fault of the search.
    std::size_t unconfirmed = 0;
};

/// Searches for what the broken signatures of a message were made over. Bounded in bytes and tests, never in
/// time: the same message gives the same findings everywhere. Asks nobody. Nothing is found once `stop` is
/// requested.
UndoFindings undo(const MailMessage& message, std::span<const BrokenSignature> signatures, Date now,
                  const std::stop_token& stop = {});

}  // namespace quillmark
