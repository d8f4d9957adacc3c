#include "CommandLine/ExplainCommand.h"

#include "CommandLine/Output.h"
#include "Wording/Glossary.h"
#include "Wording/Quoted.h"
#include "Wording/Wrapped.h"

namespace quillmark {

int ExplainCommand::run() const {
    endOnSignals();  // it reads nothing of anybody's
    std::string text;
    if (words.empty()) {
        for (const GlossaryEntry& each : glossary()) text += each.wordIn(reader) + '\n';
        return writeWhole(text, reader);
    }
    std::string word;
    for (const std::string& each : words) word += (word.empty() ? "" : " ") + each;
    const GlossaryEntry* entry = glossaryEntry(word, reader);
    if (!entry) {
        writeProblem(reader.translate(
            "“%1” isn’t a word that is explained. Those that are: quillmark explain", {quoted(word)}));
        return 1;
    }
    text = entry->wordIn(reader) + "\n" + wrapped(entry->textIn(reader), 4, width) + '\n';
    if (!entry->source.empty())
        text += wrapped(reader.translate("Defined in %1.", {entry->source}), 4, width) + '\n';
    return writeWhole(text, reader);
}

}  // namespace quillmark
