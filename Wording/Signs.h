#pragma once

#include <string>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

/// The words for warning signs, and for the limits of what a check proves.
namespace quillmark {

std::string title(const LookAlikeFlag& flag, const Reader& reader);
std::string sentence(const LookAlikeFlag& flag, const Reader& reader);

/// A few words, without a full stop: what the sign comes to in this message.
std::string shortSentence(const LookAlikeFlag& flag, const Reader& reader);

std::string title(Limit limit, const Reader& reader);
std::string sentence(Limit limit, const Reader& reader);

}  // namespace quillmark
