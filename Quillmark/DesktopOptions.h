#pragma once

#include "Manual/CommandTable.h"

namespace quillmark {

/// What `quillmark-desktop` takes. Its texts are keys of their translations.
CommandTable desktopTable();

}  // namespace quillmark
