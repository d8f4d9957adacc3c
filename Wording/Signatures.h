#pragma once

#include <optional>
#include <string>
#include <vector>

#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "Wording/Remark.h"

/// The words for one DKIM signature.
namespace quillmark {

std::string label(DKIMResult::Status status, const Reader& reader);
/// A signature that passed without a body to check is a caution.
Tone tone(const DKIMResult& result);
std::string sentence(const DKIMResult& result, const Reader& reader);
/// Why nobody was asked for a key that is not published; nothing when somebody was.
std::optional<NameFault> keyFault(const DKIMResult& result);
/// That at the name of a key of this domain stands a record of another kind, by its version.
std::string otherRecordSentence(std::string_view domain, std::string_view version, const Reader& reader);
/// The version of the record that a key can't be used for, when it is of another kind.
std::optional<std::string> otherRecordVersion(const DKIMResult& result);
/// What else is to be known of it, each a line of its own.
std::vector<Remark> remarks(const DKIMResult& result, Date checkedAt, const Reader& reader);

/// That the signature's length limit leaves a part of the body unsigned; nothing when it does not.
std::optional<Remark> unsignedBodyRemark(const DKIMResult& result, const Reader& reader);

/// A field's name as people know it: "Betreff" for "Subject" in German. Of one that only programs use, its
/// own.
std::string fieldName(std::string_view name, const Reader& reader);
/// "a, b, c", each by its name.
std::string fieldNames(const std::vector<std::string>& names, const Reader& reader);

/// A field of which the signature covers none, or not all that the message holds.
enum class Coverage { none, some };
Coverage coverage(const DKIMResult& result, std::string_view field);
/// That the fields are not covered, and that of others the message holds more than the signature covers.
/// Only one that covers the topmost field of a name covers what a reader is shown.
void addCoverageRemarks(std::vector<Remark>& remarks, const DKIMResult& result,
                        const std::vector<std::string>& fields, const Reader& reader);

}  // namespace quillmark
