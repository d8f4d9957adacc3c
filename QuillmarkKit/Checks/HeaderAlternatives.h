#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Mail/Message.h"

/// How the header of a message may have stood when it was signed: lists, gateways and mail programs write
/// subjects, senders and fields of their own in known ways, and each of those ways can be taken back.
namespace quillmark {

/// All fields of one name.
struct NamedFields {
    std::string name = {};  ///< lower-case
    std::vector<std::string> fields =
        {};  ///< each as it stands in a message, without its last CR LF; topmost first
    bool operator==(const NamedFields&) const = default;
};

/// What a reading of the body says of one name: how its fields stood before the body was changed, the
/// likeliest first.
struct HeaderHint {
    std::string name = {};  ///< lower-case
    std::vector<std::vector<std::string>> alternatives = {};
    bool isCertain = false;  ///< the fields as they stand cannot have been signed
};

/// What may still be tried for one message.
struct HeaderBudget {
    std::size_t tests = 24'000;  ///< digests of a header that are compared
    std::size_t verifies = 600;  ///< signatures of a kind that doesn't give the digest back
};

/// Searches for a header over which the signature's `b=` verifies, the least unusual first: a bounded number
/// of them, the same ones each time. What comes back are the names of which the fields stood otherwise, of
/// all signed names and those of hints; nothing when none of the tries fits. Every field with more than eight
/// thousand bytes is taken as it stands.
std::optional<std::vector<NamedFields>> signedHeader(const MailMessage& message,
                                                     const BrokenSignature& signature,
                                                     std::span<const HeaderHint> hints, HeaderBudget& budget,
                                                     const std::stop_token& stop);

}  // namespace quillmark
