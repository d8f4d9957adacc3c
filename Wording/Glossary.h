#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// The technical words of a report, explained.
namespace quillmark {

struct GlossaryEntry {
    std::string_view word;    ///< in English, as reports have it
    std::string_view names;   ///< other names of it, in lower case, between commas
    std::string_view text;    ///< one paragraph in plain words, in English
    std::string_view source;  ///< where it is defined: "RFC 6376, section 3.5"; may be empty

    std::string wordIn(const Reader& reader) const { return reader.translate(word); }
    std::string textIn(const Reader& reader) const { return reader.translate(text); }
};

/// All of it, in the order of the English words.
std::span<const GlossaryEntry> glossary();

/// The entry of a word, whatever its case, in English or in the reader's language; null when there is none.
const GlossaryEntry* glossaryEntry(std::string_view word, const Reader& reader);

/// The same of a word that a report has, in English; quick.
const GlossaryEntry* glossaryEntry(std::string_view word);

/// What a report holds of DKIM, SPF, DMARC or ARC, as it stands in the message and in DNS: lines such as
/// "d=example.org; s=k1", inert, at most 20.
std::vector<std::string> rawValues(const GlossaryEntry& entry, const ProofReport& report);

}  // namespace quillmark
