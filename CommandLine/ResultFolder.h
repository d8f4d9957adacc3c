#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CommandLine/CheckCommand.h"
#include "CommandLine/FixedAnswers.h"
#include "CommandLine/InputParts.h"
#include "CommandLine/OrderedRun.h"
#include "CommandLine/OutputFile.h"
#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Lookups/RDAP.h"

namespace quillmark {

/// The folder of `--out`: a result file for each part of the input, there once the part is done. Its name is
/// made of the digest of the part and of all that its reports follow from, so that what is there is what
/// would be made again.
class ResultFolder {
public:
    /// Throws `AnswersFileError` when a file with answers can't be read. `command` must outlive this.
    explicit ResultFolder(const CheckCommand& command);
    /// Makes the folder where it is missing. Throws `OutputFileError`.
    static void make(const std::string& folder);

    /// Where what comes of a part is, or will be.
    struct Place {
        std::string digest = {};     ///< hexadecimal
        std::string result = {};     ///< the paths of: reports, a line of JSON each
        std::string problems = {};   ///< what could not be checked, a line each; there when there is any
        std::string recording = {};  ///< what the checks were told; there when somebody was asked
        bool isDone() const;
        /// Those of a part that is done.
        std::vector<std::string> problemLines() const;
    };
    Place placeOf(const InputPart& part) const;

private:
    const std::filesystem::path m_folder;
    std::string m_ways;  // a digest of all but the input
};

/// The result file of one part in the making.
class ResultFile {
public:
    /// Throws `OutputFileError`. `reader` must outlive this.
    ResultFile(ResultFolder::Place place, const Reader& reader);

    /// As `OrderedRun::Receiver`. Ends the process when nothing more can be written.
    void take(const OrderedRun::Outcome& outcome);
    void tellCount(std::size_t) {}

    /// Puts it in its place, with what belongs to it before. `recording`: its bytes, if somebody was asked.
    /// Throws `OutputFileError`.
    void commit(const std::optional<std::string>& recording);
    bool hasProblems() const { return !m_problems.empty(); }
    /// To the person: they are kept until it is sure that there won't be another try.
    void sayProblems() const;

private:
    const ResultFolder::Place m_place;
    const Reader& m_reader;
    std::optional<OutputFile> m_file;
    std::vector<std::string> m_problems = {};
};

/// What the checks of parts were told that another run has done, before whoever is asked for all else: a key
/// is asked for once for all parts. Only what is a day old at most. Notes whether somebody who might have
/// answered wasn't asked since he gave no answers lately.
class EarlierAnswers : public DNSResolver {
public:
    explicit EarlierAnswers(std::shared_ptr<DNSResolver> resolver) : m_resolver(std::move(resolver)) {}

    /// It is read when the next part begins. What can't be read isn't known.
    void addRecording(std::string path) { m_unread.push_back(std::move(path)); }
    /// Before a part. Not while anything is looked up.
    void begin();
    /// Of this part.
    bool wentWithout() const { return m_wentWithout; }

    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    bool mayKnow(std::string_view name, DNSRecordType type) override;
    std::string source(std::string_view name, DNSRecordType type) override;

    /// The same for registration dates, before `registry`. It must not outlive this.
    std::shared_ptr<RegistrationLookup> before(std::shared_ptr<RegistrationLookup> registry) const;

private:
    const std::shared_ptr<DNSResolver> m_resolver;
    FixedAnswers m_known = {.registrations = StaticRegistry::Entries()};
    std::vector<std::string> m_unread = {};
    std::atomic<bool> m_wentWithout = false;
};

}  // namespace quillmark
