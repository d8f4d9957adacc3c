#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QuillmarkKit/Intake.h"
#include "QuillmarkKit/Report.h"

/// What a person reads: plain words for findings, free of any window. Text that somebody else wrote goes
/// through `forDisplay` before it stands in a sentence, so that every result is safe to show on one line.
namespace quillmark {

/// The report's first line: what can be proven about the sender.
std::string headline(const Verdict& verdict);
/// One or two sentences under the headline: what that proves and what to do now.
std::string explanation(const Verdict& verdict);
/// "[OK]", "[!]", "[X]" or "[?]".
std::string_view marker(Tone tone);

/// A few words for the outcome of one signature.
std::string_view label(DKIMResult::Status status);
/// The marker of one signature. A signature that passed without a body to check is a caution.
Tone tone(const DKIMResult& result);

/// The line that says why something was not taken in. `name` is the file's; without one it was pasted or came
/// through standard input.
std::string problemLine(const Refusal& refusal, const std::optional<std::string>& name);

/// "Name <address>", or the address alone.
std::string displayForm(const MailAddress& address);

}  // namespace quillmark
