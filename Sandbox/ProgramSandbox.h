#pragma once

#include <string>
#include <vector>

#include "Sandbox/Sandbox.h"
#include "Wording/Reader.h"

/// What the sandboxes of the programs have in common.
namespace quillmark {

/// Adds the folders of the user's history and key book, and of what links lead to from there.
enum class UserData {
    asItIs,  ///< only where they are
    made     ///< makes them if they can be
};
void allowUserData(Sandbox& sandbox, UserData data);

/// Adds the folder of what can be fetched again, and makes it if it can be.
void allowCache(Sandbox& sandbox);

/// What holds on this system, line by line. Restricts the process to find out.
std::vector<std::string> linesOfSandbox(const Reader& reader);

/// What standard error says when all of that is left out, as the person asks.
std::string sandboxLeftOut(const Reader& reader);

}  // namespace quillmark
