#include "CommandLine/CheckInputs.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "QuillmarkKit/PastedText.h"

namespace quillmark {

namespace {

bool isStandardInput(const std::string& file) { return file == "-"; }

}  // namespace

std::optional<CheckInputs::Input> CheckInputs::next() {
    for (; m_current < m_files.size(); ++m_current) {
        const std::string& file = m_files[m_current];
        try {
            if (auto input = nextOf(file)) return input;
        } catch (const std::bad_alloc&) {
            m_reader.reset();
            ++m_current;
            const Refusal refusal{Refusal::Unreadable{std::generic_category().message(ENOMEM)}};
            return Input{FoundProblem{refusal, {.file = m_isPasted ? std::nullopt : std::optional(file)}}};
        }
    }
    return std::nullopt;
}

std::optional<CheckInputs::Input> CheckInputs::nextOf(const std::string& file) {
    if (m_isPasted) {
        ++m_current;
        return pasted(file);
    }
    if (!m_reader) {
        m_reader = isStandardInput(file) ? std::make_unique<MailboxReader>(STDIN_FILENO)
                                         : std::make_unique<MailboxReader>(file);
    }
    if (auto found = m_reader->next()) return Input{std::move(*found)};
    m_bytesRead += m_reader->bytesRead();
    m_reader.reset();
    return std::nullopt;
}

CheckInputs::Input CheckInputs::pasted(const std::string& file) {
    auto bytes = isStandardInput(file) ? readDescriptor(STDIN_FILENO) : readFile(file);
    if (auto* refusal = std::get_if<Refusal>(&bytes)) return {FoundProblem{std::move(*refusal)}};
    const ByteBuffer& text = std::get<ByteBuffer>(bytes);
    m_bytesRead += text.size();
    const PastedText source = pastedText(text.view());
    return {FoundMessage{ByteBuffer(source.source)}, ParseMode::lenient,
            source.withoutLinesBefore.has_value()};
}

std::optional<std::uint64_t> CheckInputs::expectedBytes() const {
    std::uint64_t sum = 0;
    for (const std::string& file : m_files) {
        const auto bytes = isStandardInput(file) ? std::nullopt : MailboxReader::expectedBytes(file);
        if (!bytes) return std::nullopt;
        sum += *bytes;
    }
    return sum;
}

}  // namespace quillmark
