#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Verifier.h"
#include "Wording/Reader.h"

namespace quillmark {

/// A folder for what was signed of messages that were changed: of each broken signature that holds again, a
/// message that any program can verify, and beside it a text that names what was left out and what was
/// changed. Nothing is ever overwritten. Safe from many threads at once.
class AsSignedFolder {
public:
    AsSignedFolder(std::string folder, const Reader& reader)
        : m_folder(std::move(folder)), m_reader(reader) {}
    /// Makes the folder where it is missing. Throws `OutputFileError`.
    static void make(const std::string& folder);

    /// Writes what holds again of a message, of which `name` tells. Throws `OutputFileError`, also where one
    /// of the files is there already.
    void write(const std::optional<std::string>& name, const MailMessage& shown,
               const Verification& verification);

    /// What came of it so far, in one sentence; nothing where all there was could not be written.
    std::optional<std::string> summary() const;

private:
    const std::string m_folder;
    const Reader& m_reader;
    std::atomic<std::int64_t> m_found = 0, m_written = 0;
};

}  // namespace quillmark
