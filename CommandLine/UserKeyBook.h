#pragma once

#include <memory>
#include <optional>

#include "QuillmarkKit/Lookups/KeyBook.h"
#include "Wording/Reader.h"

/// The key book of the user, which the other programs use, too.
namespace quillmark {

/// Nothing when the environment names no folder for it.
std::optional<KeyBook> userKeyBook();

/// The same for checks; a line tells when it can't be used.
std::shared_ptr<KeptKeys> userKeptKeys(bool remembers, const Reader& reader);

}  // namespace quillmark
