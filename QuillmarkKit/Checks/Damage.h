#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Fields.h"

/// What became of a message while it was kept, copied or exported, as far as it can be told.
namespace quillmark {

enum class DamageKind {
    mboxLossy,  ///< its mailbox quoted lines so that only a signature tells which were quoted before
    unfinishedMultipart,  ///< its parts were begun and not closed
    doubledLineEnds,      ///< lines end with CR CR LF
    doubledDots,          ///< lines that begin with a dot begin with two (RFC 5321, section 4.5.2)
    doubleSpaced,         ///< an empty line follows each line
    protocolAnswer,       ///< what a mail server says stands behind the text
    wrappedLines,         ///< long lines were broken
    tailAdded,            ///< more stands behind the end
    clipped,              ///< the text breaks off
    charsetConverted,     ///< the letters aren't of the charset that is named
    pasted8Bit,           ///< letters beyond ASCII under an encoding that has none
    typographicQuotes,    ///< only quotation marks and dashes are beyond ASCII, where nothing may be
    noBreakBlanks,        ///< the same with blanks at which no line is broken
    tabsExpanded,         ///< tabs became blanks
    blanksCut,            ///< blanks at the ends of lines are gone
    quotedMarks,          ///< every line begins with ">"
    lineNumbers,          ///< every line begins with its number
    attachmentRemoved,    ///< what was attached is no longer there
    convertedByRelay,     ///< a server changed the transfer encoding
    exportedAnew,         ///< a program took the message to pieces and wrote it anew
};
constexpr auto namesOf(DamageKind) {
    return EnumTable<DamageKind, 20>{
        EnumStyle::word,
        {"mboxLossy",      "unfinishedMultipart", "doubledLineEnds",   "doubledDots",      "doubleSpaced",
         "protocolAnswer", "wrappedLines",        "tailAdded",         "clipped",          "charsetConverted",
         "pasted8Bit",     "typographicQuotes",   "noBreakBlanks",     "tabsExpanded",     "blanksCut",
         "quotedMarks",    "lineNumbers",         "attachmentRemoved", "convertedByRelay", "exportedAnew"}};
}

/// A likely cause why nothing of a message could be proven, and never more than likely: whoever forges one
/// can write these bytes, too.
struct Damage {
    DamageKind kind = DamageKind::mboxLossy;
    std::optional<std::string> field = {};  ///< the header field that says so; absent where the bytes show it
    bool operator==(const Damage&) const = default;
};
constexpr auto fieldsOf(const Damage*) {
    return std::tuple{Field{"kind", &Damage::kind}, Field{"field", &Damage::field}};
}

/// The damage that explains why no signature holds: empty where one does, or where there is nothing to be
/// explained. What changes the body counts only when no signature fits it, what changes the header only when
/// none covers it as it stands or it ends early. Each kind once for the bytes and once for a field. Linear
/// in the message.
std::vector<Damage> damage(const MailMessage& message, const std::vector<DKIMResult>& signatures,
                           const ARCFinding& chain);

/// Why no From, Received or DKIM-Signature field was found in a message although lines of it hold some: they
/// are numbered or quoted, or an empty line follows each. Nothing when no line does, or for another reason.
std::optional<DamageKind> damageOfUnread(const MailMessage& message);

}  // namespace quillmark
