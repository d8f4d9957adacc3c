#include "CommandLine/CheckInputs.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "QuillmarkKit/Intake/PastedText.h"

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
            return Input{FoundProblem{unreadable(ENOMEM),
                                      isStandardInput(file) ? MessagePlace() : MessagePlace{.path = file}}};
        }
    }
    return std::nullopt;
}

std::optional<CheckInputs::Input> CheckInputs::nextOf(const std::string& file) {
    if (!m_reader) {
        m_reader = isStandardInput(file) ? std::make_unique<MailboxReader>(STDIN_FILENO)
                                         : std::make_unique<MailboxReader>(file);
    }
    if (auto found = m_reader->next()) {
        auto* message = std::get_if<FoundMessage>(&*found);
        const bool isOneOfSeveral = message && (message->place.number > 0 || !message->place.inside.empty());
        if (!m_isPasted || !message || isOneOfSeveral) return Input{std::move(*found)};
        PastedText source = pastedText(message->bytes.view());
        message->bytes = ByteBuffer(source.source);
        message->mode = ParseMode::lenient;
        message->facts.dropped = std::move(source.dropped);
        return Input{std::move(*found), source.withoutLinesBefore.has_value()};
    }
    m_bytesRead += m_reader->bytesRead();
    m_passedOver += m_reader->passedOver();
    m_reader.reset();
    return std::nullopt;
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
