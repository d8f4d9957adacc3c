#include "CommandLine/CheckInputs.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "QuillmarkKit/Intake/PastedText.h"

namespace quillmark {

namespace {

constexpr const char* standardInput = "-";

}  // namespace

// A list names files only: one that is called "-" is a file.
std::optional<CheckInputs::File> CheckInputs::nextFile() {
    if (m_taken < m_files.size()) {
        const std::string& name = m_files[m_taken++];
        return File{name, name == standardInput};
    }
    auto name = m_list ? m_list->next() : std::nullopt;
    return name ? std::optional(File{*std::move(name), false}) : std::nullopt;
}

std::optional<CheckInputs::Input> CheckInputs::next() {
    const auto placeOf = [](const std::string& name, bool isStandardInput) {
        return isStandardInput ? MessagePlace() : MessagePlace{.path = name};
    };
    try {
        for (;; m_current.reset()) {
            try {
                if (!m_current) m_current = nextFile();
            } catch (const std::system_error& error) {  // of the list
                return Input{FoundProblem{unreadable(error.code().value()),
                                          placeOf(m_list->path(), m_list->path() == standardInput)}};
            }
            if (!m_current) return std::nullopt;
            if (auto input = nextOf(*m_current)) return input;
        }
    } catch (const std::bad_alloc&) {
        m_reader.reset();
        const File file = std::exchange(m_current, std::nullopt).value_or(File{"", true});
        return Input{FoundProblem{unreadable(ENOMEM), placeOf(file.name, file.isStandardInput)}};
    }
}

std::optional<CheckInputs::Input> CheckInputs::nextOf(const File& file) {
    if (!m_reader) {
        m_reader = file.isStandardInput ? std::make_unique<MailboxReader>(STDIN_FILENO)
                                        : std::make_unique<MailboxReader>(file.name);
    }
    if (auto found = m_reader->next()) {
        auto* message = std::get_if<FoundMessage>(&*found);
        const bool isOneOfSeveral = message && (message->place.number > 0 || !message->place.inside.empty());
        const MessagePlace& place = placeOf(*found);
        const bool isOfFolder =
            !file.isStandardInput && place.path != file.name && place.number == 0 && place.inside.empty();
        if (!m_isPasted || !message || isOneOfSeveral) return Input{std::move(*found), false, isOfFolder};
        PastedText source = pastedText(message->bytes.view());
        message->bytes = ByteBuffer(source.source);
        message->mode = ParseMode::lenient;
        message->facts.dropped = std::move(source.dropped);
        return Input{std::move(*found), source.withoutLinesBefore.has_value(), isOfFolder};
    }
    m_bytesRead += m_reader->bytesRead();
    m_passedOver += m_reader->passedOver();
    m_reader.reset();
    return std::nullopt;
}

std::optional<std::uint64_t> CheckInputs::expectedBytes() const {
    if (m_list) return std::nullopt;
    std::uint64_t sum = 0;
    for (const std::string& file : m_files) {
        const auto bytes = file == standardInput ? std::nullopt : MailboxReader::expectedBytes(file);
        if (!bytes) return std::nullopt;
        sum += *bytes;
    }
    return sum;
}

}  // namespace quillmark
