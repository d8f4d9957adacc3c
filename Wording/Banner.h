#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/DomainIdentity.h"
#include "Wording/NoteSentences.h"
#include "Wording/Remark.h"

/// What a reader must see first of a report, and in which order: the same in the text report, in the window,
/// on paper and in the panel of the add-on.
namespace quillmark {

/// What changes the headline's meaning, or decides on it.
struct BannerLine {
    std::optional<Tone> tone = {};
    std::string text = {};                    ///< a few words, without a full stop
    std::string sentence = {};                ///< all of it, as it stands in its section
    std::optional<NoteSection> section = {};  ///< where that is; nothing when it stands in none
    std::optional<std::size_t> note = {};     ///< the one of the report's notes that it is
    std::optional<std::size_t> row = {};      ///< or the one of its warning signs or signatures
    bool operator==(const BannerLine&) const = default;
};

struct Banner {
    Tone tone = Tone::bad;
    std::string headline = {};
    std::string explanation = {};                 ///< what the headline proves, and what it doesn't
    std::optional<DomainIdentity> identity = {};  ///< of whom something was proven
    std::optional<BannerLine> decider = {};       ///< the finding that speaks against the sender most
    std::string lead = {};                        ///< how many cautions there are; empty when there is none
    std::vector<BannerLine> cautions = {};        ///< the one that weighs most first; each once, at most 50
    std::size_t more = 0;                         ///< cautions that aren't among them
    std::vector<Remark> remarks = {};             ///< what is good to know with the headline
    std::string whatToDo = {};                    ///< a line that begins with a verb; always there
};

Banner bannerOf(const ProofReport& report, const Reader& reader);

/// Whether there are cautions, that is: whether the headline alone would mislead. Fit to be asked for each
/// row of a list.
bool hasCautions(const ProofReport& report);

/// "Good", "Caution", "Bad" or "Unknown": a tone for those who hear it.
std::string toneWord(Tone tone, const Reader& reader);

}  // namespace quillmark
