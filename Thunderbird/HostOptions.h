#pragma once

#include "Manual/CommandTable.h"

namespace quillmark {

/// The host of the add-on, for its man page.
CommandTable hostTable();

}  // namespace quillmark
