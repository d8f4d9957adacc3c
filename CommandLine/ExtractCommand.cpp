#include "CommandLine/ExtractCommand.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "CommandLine/Output.h"
#include "CommandLine/Restriction.h"
#include "QuillmarkKit/Intake/MailboxReader.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/Details.h"
#include "Wording/Quoted.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

/// Why nothing is written, for the user.
struct Fault : std::runtime_error {
    Fault(int exitStatus, const std::string& line) : std::runtime_error(line), status(exitStatus) {}
    int status;
};

/// The numbers of "3.2.1"; nothing unless each is one from 1.
std::optional<std::vector<std::size_t>> numbersIn(std::string_view text) {
    std::vector<std::size_t> numbers;
    do {
        const auto number = decimal(takePiece(text, '.'));
        if (number.value_or(0) == 0) return std::nullopt;
        numbers.push_back(static_cast<std::size_t>(*number));
    } while (!text.empty());
    return numbers;
}

/// What a file in an archive is called, in whichever way: "Mail/Inbox".
std::string insideName(std::string name) {
    constexpr std::string_view mark = " › ";
    for (auto at = name.find(mark); at != std::string::npos; at = name.find(mark, at))
        name.replace(at, mark.size(), "/");
    return name;
}

/// The same of a place.
std::string insideName(const MessagePlace& place) {
    std::string name;
    for (const ArchivedFile& each : place.inside) name += (name.empty() ? "" : "/") + each.name;
    return name;
}

/// The message with this number among those that come.
FoundMessage messageAt(std::size_t number, const std::string& inside, MailboxReader& reader,
                       const std::optional<std::string>& name, const Reader& person) {
    std::size_t last = 0;
    while (auto found = reader.next()) {
        const std::string there = insideName(placeOf(*found));
        if (!there.empty() && inside.empty()) {
            throw Fault(2,
                        person.translate("“%1” is an archive. --inside names the file in it that is meant, "
                                         "such as “%2”.",
                                         {quillmark::quoted(name.value_or("-")), quillmark::quoted(there)}));
        }
        const bool isWhole = there.empty() && std::holds_alternative<FoundProblem>(*found);  // of the archive
        if (there != inside && !isWhole) continue;
        // One that is alone in its file has no number.
        const std::size_t place = std::max(placeOf(*found).number, std::size_t{1});
        last = std::max(last, place);
        auto* problem = std::get_if<FoundProblem>(&*found);
        if (problem && (place == number || placeOf(*found).number == 0))
            throw Fault(1, problemLine(problem->refusal, problem->place.pathName(), person));
        if (!problem && place == number) return std::get<FoundMessage>(std::move(*found));
    }
    const std::string shown = quillmark::quoted(name.value_or("-"));
    if (last == 0) throw Fault(1, noMessageLine(name.value_or("-"), person));
    throw Fault(1, person.translate("“%1” has no message %2: its last is message %3.",
                                    {shown, std::to_string(number), std::to_string(last)}));
}

FoundMessage extracted(const ExtractCommand& command) {
    auto numbers = numbersIn(command.number);
    if (!numbers) {
        throw Fault(2, command.reader.translate("NUMBER is such as 3, or 3.2.1 for a message attached to it, "
                                                "not “%1”",
                                                {quillmark::quoted(command.number)}));
    }
    const auto name = command.file == "-" ? std::nullopt : std::optional(repairedUTF8(command.file));
    struct stat status = {};
    if (name && stat(command.file.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        throw Fault(1,
                    command.reader.translate("“%1” is a folder. Name the file in it that holds the message.",
                                             {quillmark::quoted(*name)}));
    }
    const auto quoting = command.asStored ? MailboxReader::Quoting::asStored : MailboxReader::Quoting::undone;
    const auto reader = name ? std::make_unique<MailboxReader>(command.file, std::nullopt, quoting)
                             : std::make_unique<MailboxReader>(STDIN_FILENO, quoting);
    FoundMessage outer =
        messageAt(numbers->front(), insideName(command.inside), *reader, name, command.reader);
    // Of a mailbox each message is given as it is, though it may be none; another file must hold one.
    if (outer.place.number == 0) {
        const auto taken = messageIn(ByteBuffer(outer.bytes.view()), outer.mode);
        if (const auto* refusal = std::get_if<Refusal>(&taken))
            throw Fault(1, problemLine(*refusal, name, command.reader));
    }
    if (numbers->size() == 1) return outer;
    auto attached = attachedAt({numbers->begin() + 1, numbers->end()}, std::move(outer));
    if (auto* message = std::get_if<FoundMessage>(&attached)) return std::move(*message);
    throw Fault(1, command.reader.translate(
                       "“%1” has no attached message %2.",
                       {quillmark::quoted(name.value_or("-")), quillmark::quoted(command.number)}));
}

}  // namespace

int ExtractCommand::run() const {
    restricted({.read = {file}});
    try {
        return writeWhole(extracted(*this).bytes.view(), reader);
    } catch (const Fault& fault) {
        writeProblem(fault.what());
        return fault.status;
    } catch (const std::bad_alloc&) {
        writeProblem(systemErrorText(ENOMEM, reader));
        return 1;
    }
}

}  // namespace quillmark
