#pragma once

#include <optional>
#include <string>
#include <vector>

#include "QuillmarkKit/Checks/KeyLists.h"
#include "QuillmarkKit/Support/HTTP.h"
#include "Wording/Reader.h"

namespace quillmark {

/// `quillmark keys`: the key book, and keys out of signatures.
struct KeysCommand {
    enum class Action { list, show, exportKeys, import, forget, derive, compare, ask };
    Action action = Action::list;
    std::string name = {};                 ///< of a key, or a part of it; empty: all
    std::string out = {};                  ///< the new file of an export; "-" is standard output
    std::vector<std::string> files = {};   ///< to be imported, derived from or compared
    std::optional<std::string> file = {};  ///< forgets what this one says
    bool all = false;                      ///< forgets everything
    bool json = false;
    int pairs = 100;           ///< at most, of which a key is derived
    std::string archive = {};  ///< its URL
    std::string domain = {};   ///< that it is asked for
    Reader reader = {};

    /// Returns the exit status: 0 when it was done, 1 when there was nothing of the kind, or a file or the
    /// book couldn't be read or written, 2 when the arguments are at fault.
    int run() const;
};

/// Asks an archive for the keys of a domain: "{domain}" in `url` stands for it, else it is put behind as
/// "?domain=". Throws `HTTPError`, and `DecodingError` for a reply that is no list.
KeyList askArchive(HTTP& http, const std::string& url, const std::string& domain, Date now);

/// The host of a URL.
std::string hostOf(std::string_view url);

}  // namespace quillmark
