#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine/FileList.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Mail/Message.h"

namespace quillmark {

/// The messages of all that `quillmark check` is given, one after the other: files, mailboxes, folders,
/// standard input as "-", and those that a list names. Not safe from several threads at once.
class CheckInputs {
public:
    /// `isPasted`: what is alone in a file is text that was pasted. The messages of a mailbox are what they
    /// are.
    CheckInputs(std::vector<std::string> files, bool isPasted, std::optional<FileList> list = {})
        : m_files(std::move(files)), m_isPasted(isPasted), m_list(std::move(list)) {}

    struct Input {
        Found found;
        bool hasLinesBefore = false;  ///< of pasted text: perhaps only what stands below is the message
        bool isOfFolder = false;      ///< a file by itself, which lies in what was named
    };
    /// The next; nothing at the end. Never throws: what there is no memory for is refused.
    std::optional<Input> next();

    std::uint64_t bytesRead() const { return m_bytesRead + (m_reader ? m_reader->bytesRead() : 0); }
    /// What was passed over in the files that are done: see `MailboxReader`.
    std::int64_t passedOver() const { return m_passedOver; }
    /// What reading all of them takes; nothing when that can't be known beforehand.
    std::optional<std::uint64_t> expectedBytes() const;

private:
    struct File {
        std::string name;
        bool isStandardInput;
    };
    std::optional<File> nextFile();
    std::optional<Input> nextOf(const File& file);

    const std::vector<std::string> m_files;
    const bool m_isPasted;
    std::optional<FileList> m_list;
    std::size_t m_taken = 0;  // of `m_files`
    std::optional<File> m_current = {};
    std::unique_ptr<MailboxReader> m_reader = {};  // of the current file, when it has begun
    std::uint64_t m_bytesRead = 0;                 // of the files before
    std::int64_t m_passedOver = 0;
};

}  // namespace quillmark
