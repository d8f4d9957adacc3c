#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "QuillmarkKit/Support/HTTP.h"
#include "Wording/Reader.h"

namespace quillmark {

/// Why an authority gave no stamp.
struct StampError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Asks an authority to stamp a digest. Its reply, which is a stamp of it. Throws `StampError` and
/// `HTTPError`.
std::string stampOf(HTTP& http, const std::string& url, std::string_view digest);

/// Where the stamp of a file lies: "now.json.tsr".
std::string stampFileOf(const std::string& file);

/// What the stamp beside a file says of it, in one line; nothing when there is none. `trusted`: a file of
/// certificates (PEM), beside the system's.
std::optional<std::string> stampLine(const std::string& file, const std::optional<std::string>& trusted,
                                     const Reader& reader);

/// `quillmark stamp`: has an authority sign that a recording existed now.
struct StampCommand {
    std::string file = {}, authority = {};
    std::optional<std::string> trusted = {};
    Reader reader = {};

    /// Returns the exit status: 0 when the stamp is beside the file, 1 when it isn't, 2 when the arguments
    /// are at fault.
    int run() const;
};

}  // namespace quillmark
