#include "CommandLine/UserKeyBook.h"

#include <filesystem>

#include "CommandLine/Output.h"
#include "QuillmarkKit/HistoryFile.h"
#include "Settings/CurrentTime.h"
#include "Settings/UserFolders.h"
#include "Wording/KeyWording.h"

namespace quillmark {

std::optional<KeyBook> userKeyBook() {
    try {
        return KeyBook{KeyBook::besideHistory(HistoryFile::defaultLocation(dataFolderName))};
    } catch (const std::filesystem::filesystem_error&) {
        return std::nullopt;
    }
}

std::shared_ptr<KeptKeys> userKeptKeys(bool remembers, const Reader& reader) {
    auto book = userKeyBook();
    if (!book) return nullptr;
    const KeptKeys::Options options{.remembers = remembers,
                                    .now = currentTime,
                                    .problem = [file = book->url, reader](const std::exception& error) {
                                        writeProblem(keyBookProblem(error, file, reader));
                                    }};
    return std::make_shared<KeptKeys>(std::move(*book), options);
}

}  // namespace quillmark
