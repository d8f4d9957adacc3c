#pragma once

#include <span>

#include "QuillmarkKit/Checks/Reversals.h"

namespace quillmark {

/// What gateways, lists and hops do to the text parts of a message, and how each is taken back: texts written
/// in another transfer encoding or character set, links that lead through a service, lines in the headers of
/// parts. In the order of their costs.
std::span<const Reversal> partReversals();

/// How the fields that say what a text is may have stood before a program wrote them anew: hints without a
/// change of the body. Nothing for messages that are no text.
std::vector<HeaderHint> rewrittenTextFields(const MailMessage& message);

}  // namespace quillmark
