#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// What a person reads: plain words for findings, free of any window. Text that somebody else wrote goes
/// through `forDisplay` before it stands in a sentence, so that every result is safe to show on one line.
namespace quillmark {

/// The report's first line: what can be proven about the sender.
std::string headline(const Verdict& verdict, const Reader& reader);
/// The paragraph under the headline: what that proves, and what it doesn't.
std::string explanation(const ProofReport& report, const Reader& reader);
/// "[OK]", "[!]", "[X]" or "[?]".
std::string_view marker(Tone tone);

/// The line that says why something was not taken in. `name` is the file's; without one it was pasted or came
/// through standard input.
std::string problemLine(const Refusal& refusal, const std::optional<std::string>& name, const Reader& reader);

/// The line for a mailbox or a folder, called `name`, in which there was nothing that could be checked.
std::string noMessageLine(const std::string& name, const Reader& reader);

/// A report's `fileName` as a person reads it: the end that says where in its file a message lies, such as
/// ", message 12", is in the reader's language. As little filtered as it was.
std::string placeName(std::string_view fileName, const Reader& reader);

/// "Name <address>", or the address alone. A name that holds an address itself is in quotation marks.
std::string displayForm(const MailAddress& address);

}  // namespace quillmark
