#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"
#include "Wording/Remark.h"

/// What the add-on asks for, and what it is told (docs/thunderbird.md).
namespace quillmark {

/// A request, or a piece of one: those of one follow each other, alike in everything but the message.
struct AddonRequest {
    enum class Command {
        check,  ///< what the panel says of the message
        open,   ///< hands it to the window
    };
    std::int64_t id = 0;  ///< its answer bears the same
    Command command = Command::check;
    std::string language = {};  ///< that the person reads: "de-AT"
    std::string message = {};   ///< its bytes, or the next of them, in base64
    bool more = false;          ///< whether a further piece follows
};
constexpr auto namesOf(AddonRequest::Command) {
    return EnumTable<AddonRequest::Command, 2>{EnumStyle::word, {"check", "open"}};
}
constexpr auto fieldsOf(const AddonRequest*) {
    return std::tuple{Field{"id", &AddonRequest::id}, Field{"command", &AddonRequest::command},
                      Field{"language", &AddonRequest::language}, Field{"message", &AddonRequest::message},
                      Field{"more", &AddonRequest::more}};
}

/// The panel's content. Every text is one line that is safe to show, in the person's language.
struct PanelSummary {
    struct Line {
        std::optional<Tone> tone = {};
        std::optional<std::string> toneWord = {};  ///< for those who hear the tone's symbol
        std::string text = {};
        bool operator==(const Line&) const = default;
    };
    VerdictKind verdict = VerdictKind::cannotProve;
    Tone tone = Tone::bad;
    std::string toneWord = {};
    std::string from = {}, subject = {};
    std::string headline = {}, explanation = {};
    std::optional<Line> decider = {};  ///< the finding that speaks against the sender most
    std::string lead = {};             ///< how many cautions there are; empty when there is none
    std::vector<Line> cautions = {};   ///< what changes the headline's meaning, what weighs most first
    std::vector<Line> remarks = {};    ///< what is good to know with the headline
    std::string whatToDo = {};
};
constexpr auto fieldsOf(const PanelSummary::Line*) {
    return std::tuple{Field{"tone", &PanelSummary::Line::tone},
                      Field{"toneWord", &PanelSummary::Line::toneWord},
                      Field{"text", &PanelSummary::Line::text}};
}
constexpr auto fieldsOf(const PanelSummary*) {
    return std::tuple{
        Field{"verdict", &PanelSummary::verdict},   Field{"tone", &PanelSummary::tone},
        Field{"toneWord", &PanelSummary::toneWord}, Field{"from", &PanelSummary::from},
        Field{"subject", &PanelSummary::subject},   Field{"headline", &PanelSummary::headline},
        Field{"decider", &PanelSummary::decider},   Field{"lead", &PanelSummary::lead},
        Field{"cautions", &PanelSummary::cautions}, Field{"remarks", &PanelSummary::remarks},
        Field{"whatToDo", &PanelSummary::whatToDo}, Field{"explanation", &PanelSummary::explanation}};
}

struct AddonAnswer {
    std::int64_t id = 0;
    std::optional<PanelSummary> summary = {};
    std::optional<std::string> problem = {};  ///< why what was asked for was not done
};
constexpr auto fieldsOf(const AddonAnswer*) {
    return std::tuple{Field{"id", &AddonAnswer::id}, Field{"summary", &AddonAnswer::summary},
                      Field{"problem", &AddonAnswer::problem}};
}

/// Well below the length that an answer may have, whatever the message holds.
PanelSummary panelSummary(const ProofReport& report, const Reader& reader);

}  // namespace quillmark
