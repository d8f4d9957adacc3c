#include "Wording/KeyWording.h"

#include "QuillmarkKit/Lookups/KeyBook.h"
#include "Wording/HistoryWording.h"
#include "Wording/Quoted.h"

namespace quillmark {

std::string keyBookProblem(const std::exception& error, const std::filesystem::path& book,
                           const Reader& reader) {
    using Kind = KeyBookError::Kind;
    const auto* ours = dynamic_cast<const KeyBookError*>(&error);
    const std::string file = quillmark::quoted(book.string());
    switch (ours ? ours->kind : Kind::failed) {
        case Kind::damaged:
            return reader.translate(
                "The key book “%1” is damaged, so its keys aren’t used and none are added. Nothing in it was "
                "changed.",
                {file});
        case Kind::foreign:
            return reader.translate(
                "“%1” isn’t a key book, or it is damaged, so it isn’t used. Nothing in it was changed.",
                {file});
        case Kind::newerVersion:
            return reader.translate(
                "The key book “%1” was saved by a newer version of Quillmark, so it isn’t used. Nothing in "
                "it "
                "was changed.",
                {file});
        case Kind::failed:
            break;
    }
    return reader.translate("The key book can’t be used: %1", {quillmark::quoted(reasonOf(error, reader))});
}

}  // namespace quillmark
