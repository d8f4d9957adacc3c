#pragma once

#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Support/Date.h"
#include "Wording/Reader.h"

namespace quillmark {

/// Why an answers file cannot be used, in one line.
class AnswersFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    AnswersFileError(const std::string& path, const std::string& what)
        : std::runtime_error("“" + path + "” can’t be used: " + what), file(path), reason(what) {}
    std::string file = {}, reason = {};  ///< what the line is made of, where it is about a file
};
/// That line for a person.
std::string unusable(const AnswersFileError& error, const Reader& reader);

/// DNS answers and registration dates from a file in place of the network (docs/formats.md).
struct FixedAnswers {
    StaticResolver::Answers answers = {};
    std::set<std::string, std::less<>> failing = {};
    std::map<std::string, std::string, std::less<>> errors = {};
    std::optional<StaticRegistry::Entries> registrations = {};
    std::optional<Date> at = {};  ///< the time of the check

    /// Who gave the answers, by question, and the dates, by domain, as far as that is told.
    std::map<std::string, std::string, std::less<>> sources = {}, registrationSources = {};
    /// When the run of a recording began and ended.
    std::optional<Date> begun = {}, ended = {};

    /// What a check of one message could not find out, though another may have: why, by question.
    struct Failures {
        std::set<std::string> files = {};  ///< the names of the message
        std::map<std::string, std::string, std::less<>> dns = {}, registrations = {};
    };
    /// By the SHA-256 of a message in hexadecimal. Only a recording has them, and it holds all that was
    /// asked.
    std::optional<std::map<std::string, Failures>> messages = {};

    /// A question to which two files have different answers, each as it is told to a person.
    struct Contradiction {
        std::string question, first, second;
    };
    /// Takes over what `other` holds and this doesn't: of each question the first answer counts, and any
    /// answer before a failure. What the answers that are here already contradict.
    std::vector<Contradiction> add(FixedAnswers other);

    /// Reads an answers file. Throws `AnswersFileError`.
    static FixedAnswers read(const std::string& path);
    /// The registration dates of a file that holds nothing else, or of an answers file.
    static StaticRegistry::Entries readRegistrations(const std::string& path);
};

}  // namespace quillmark
