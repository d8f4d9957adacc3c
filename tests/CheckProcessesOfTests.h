#pragma once

#include <cstdlib>
#include <memory>
#include <string_view>

#include "Apart/CheckProcesses.h"
#include "Apart/CheckWorker.h"

namespace quillmark::test {

/// Those that the tests' messages are checked by; none when QUILLMARK_TEST_CHECKS is "inside", for all of it
/// by the test's own process. First called by `main`, while there is one thread.
inline std::shared_ptr<CheckProcesses> checkProcesses() {
    static const std::shared_ptr<CheckProcesses> processes = [] {
        const char* where = std::getenv("QUILLMARK_TEST_CHECKS");
        const bool isInside = where && std::string_view(where) == "inside";
        return isInside ? nullptr : std::make_shared<CheckProcesses>(serveChecks);
    }();
    return processes;
}

}  // namespace quillmark::test
