#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Remark.h"
#include "Wording/Signatures.h"

/// The words for the findings on a message's way: a label of a few words, the tone of its marker, one
/// sentence, and what else is to be known, each remark a line of its own.
namespace quillmark {

/// The label of a result; "Not judged" when there is none.
std::string label(const SPFFinding& finding, const Reader& reader);
Tone tone(const SPFFinding& finding);
std::string sentence(const SPFFinding& finding, const Reader& reader);
/// The term that decided and the domain in whose record it stands, inert; empty where none did.
std::string decidingTerm(const SPFFinding& finding, const Reader& reader);
/// What decided, where the address comes from, and what SPF does not say.
std::vector<Remark> remarks(const SPFFinding& finding, const Reader& reader);

std::string label(const DMARCFinding& finding, const Reader& reader);
Tone tone(const DMARCFinding& finding);
std::string sentence(const DMARCFinding& finding, const Reader& reader);
std::vector<Remark> remarks(const DMARCFinding& finding, const Reader& reader);
/// What a policy asks for, such as "reject failing mail"; one that is unknown as it is written.
std::string policyInWords(std::string_view policy, const Reader& reader);

std::string label(const ARCFinding& finding, const Reader& reader);
/// None when no forwarder left a mark.
std::optional<Tone> tone(const ARCFinding& finding);
std::string sentence(const ARCFinding& finding, const Reader& reader);
/// What each forwarder says, oldest first.
std::vector<Remark> remarks(const ARCFinding& finding, const Reader& reader);
/// The same of one forwarder alone.
std::vector<Remark> remarks(const ARCFinding::Hop& hop, const Reader& reader);
/// What becomes of such chains.
std::string futureOfARC(const Reader& reader);

/// How old the sender's domain is, to stand behind its name and a comma: "registered on 3 May 2004, 21 years
/// ago".
std::string ageInWords(const DomainAge& age, Date checkedAt, const Reader& reader);

}  // namespace quillmark
