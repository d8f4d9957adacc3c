#include "Wording/Wording.h"

#include <algorithm>
#include <variant>

#include "QuillmarkKit/Support/Text.h"
#include "Wording/Details.h"
#include "Wording/FailedLookups.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"
#include "Wording/Signatures.h"

namespace quillmark {

std::string headline(const Verdict& verdict, const Reader& reader) {
    const std::string domain = quotedWord(verdict.domain), sender = quotedWord(verdict.fromDomain);
    switch (verdict.kind) {
        case VerdictKind::verified:
            return reader.translate("Signed by %1, unchanged since sent", {domain});
        case VerdictKind::verifiedHeadersOnly:
            return reader.translate("Signed by %1; the body wasn’t checked", {domain});
        case VerdictKind::signedByOther:
            if (sender.empty()) return reader.translate("Signed by %1, not by the sender", {domain});
            return reader.translate("Signed by %1, not by %2", {domain, sender});
        case VerdictKind::signatureBroken:
            return reader.translate("Signature broken: changed after sending or forwarded");
        case VerdictKind::keyGone:
            return reader.translate("Can’t check: %1’s signing key is no longer published", {domain});
        case VerdictKind::couldNotCheck:
            return reader.translate("Couldn’t check: the key lookup failed");
        case VerdictKind::allowedServerOnly:
            if (sender.empty())
                return reader.translate("Not signed, but sent from a server the sender allows");
            return reader.translate("Not signed, but sent from a server %1 allows", {sender});
        case VerdictKind::cannotProve:
            break;
    }
    return reader.translate("Can’t prove who sent this");
}

namespace {

/// Whether the header lines that the verdict's domain signed are proven, though the signature is broken.
bool signedLinesHold(const ProofReport& report) {
    return std::ranges::any_of(report.notes, [&](const ReportNote& note) {
        const auto* lines = std::get_if<ReportNote::SignedLinesHold>(&note.value);
        return lines && equalsIgnoringCase(lines->domain, report.verdict.domain);
    });
}

/// What is said of other keys, when nothing shows that the message was changed: each broken signature of the
/// verdict's domain is over this text, and made with another key than the one that the domain publishes now.
const ReportNote* otherKeysAlone(const ProofReport& report) {
    const ReportNote* said = nullptr;
    for (const DKIMResult& signature : report.dkim) {
        const bool isBroken = signature.status == DKIMResult::Status::bodyChanged ||
                              signature.status == DKIMResult::Status::headersChanged;
        if (!isBroken || !equalsIgnoringCase(signature.domain, report.verdict.domain)) continue;
        const auto note = std::ranges::find_if(report.notes, [&](const ReportNote& each) {
            const auto* other = std::get_if<ReportNote::OtherKey>(&each.value);
            return other && other->of == SignatureKind::dkim &&
                   other->index == &signature - report.dkim.data();
        });
        if (signature.status == DKIMResult::Status::bodyChanged || note == report.notes.end()) return nullptr;
        said = &*note;
    }
    return said;
}

std::string withoutKey(const std::string& domain, const Reader& reader) {
    return reader.translate(
        "Without %1’s key, the signature can be neither confirmed nor refuted. That is usual for an "
        "old message, because senders change their keys; in a new one it is suspicious.",
        {domain});
}

/// The signature by which a key is said to be gone, when nobody was asked for that key.
const DKIMResult* unaskedSignature(const ProofReport& report) {
    const auto gone = std::ranges::find_if(report.dkim, [](const DKIMResult& result) {
        return result.status == DKIMResult::Status::keyNotPublished ||
               result.status == DKIMResult::Status::keyRevoked;
    });
    return gone != report.dkim.end() && keyFault(*gone) ? &*gone : nullptr;
}

}  // namespace

std::string explanation(const ProofReport& report, const Reader& reader) {
    const Verdict& verdict = report.verdict;
    const std::string domain = quotedDomain(verdict.domain), sender = quotedDomain(verdict.fromDomain);
    switch (verdict.kind) {
        case VerdictKind::verified:
            return reader.translate(
                "The owner of %1 sent this, or somebody who may use its mail servers, and nothing that was "
                "signed has changed.",
                {domain});
        case VerdictKind::verifiedHeadersOnly:
            return reader.translate(
                "The owner of %1 signed these header lines, or somebody who may use its mail servers. "
                "Whether the text of the message is still the one that was sent isn’t known.",
                {domain});
        case VerdictKind::signedByOther:
            if (verdict.fromDomain.empty()) {
                return reader.translate(
                    "%1 vouches for this message, but From doesn’t hold exactly one usable address, so "
                    "nobody can tell whose word that is.",
                    {domain});
            }
            return reader.translate(
                "%1 vouches for this message, but From names another organization, %2. Newsletters and shops "
                "often send this way; so do forgers.",
                {domain, sender});
        case VerdictKind::signatureBroken:
            if (otherKeyFits(report, verdict.domain)) {
                return reader.translate(
                    "By the first of several keys that %1 publishes under one name, this isn’t the message "
                    "that %1 signed; by another it is, and unchanged.",
                    {domain});
            }
            if (const auto* undone = undoneOf(report)) {
                std::string changed = reader.translate(
                    "This isn’t the message as %1 signed it: it was changed since.", {domain});
                if (!undone->fromIsOfDomain) return changed;
                return sentences(
                    {changed, reader.translate("Once the changes are taken back, %1’s signature holds again.",
                                               {domain})});
            }
            if (signedLinesHold(report)) {
                if (!verdict.arcVouchers.empty()) {
                    return reader.translate(
                        "This isn’t the text that %1 signed: it was changed since, or put under lines "
                        "that %1 signed. Mailing lists often change messages in this way. Forwarders left "
                        "marks that are intact, as anyone can: %2. Unless you know and trust them, don’t "
                        "rely on what it says; if it matters, ask the sender in another way.",
                        {domain, quotedList(verdict.arcVouchers, reader)});
                }
                return reader.translate(
                    "This isn’t the text that %1 signed: it was changed since, or put under lines that "
                    "%1 signed.",
                    {domain});
            }
            if (!verdict.arcVouchers.empty()) {
                return reader.translate(
                    "This isn’t the message that %1 signed: something was changed since, or %1 never "
                    "signed it. Mailing lists often change messages in this way. Forwarders left marks that "
                    "are intact, as anyone can: %2. Unless you know and trust them, don’t rely on what it "
                    "says; if it matters, ask the sender in another way.",
                    {domain, quotedList(verdict.arcVouchers, reader)});
            }
            if (const ReportNote* note = otherKeysAlone(report))
                return sentences({sentence(*note, reader), withoutKey(domain, reader)});
            return reader.translate(
                "This isn’t the message that %1 signed: something was changed since, or %1 never signed "
                "it.",
                {domain});
        case VerdictKind::keyGone:
            if (const DKIMResult* signature = unaskedSignature(report)) return sentence(*signature, reader);
            return withoutKey(domain, reader);
        case VerdictKind::couldNotCheck:
            return sentences(
                {reader.translate(
                     "The key of %1 couldn’t be asked for, so nothing is known yet, good or bad.", {domain}),
                 likelyCause(report, reader)});
        case VerdictKind::allowedServerOnly:
            return reader.translate(
                "No usable signature was found. The server is one that %1 allows, as far as the message’s "
                "own lines can be trusted; others who use the same mail service may send through it too.",
                {sender});
        case VerdictKind::cannotProve:
            break;
    }
    std::string usual = reader.translate(
        "Anybody could have written this. That doesn’t mean that it is a forgery; it means that nothing "
        "shows that it isn’t.");
    for (const DKIMResult& signature : report.dkim) {
        if (const auto version = otherRecordVersion(signature))
            return sentences({otherRecordSentence(signature.domain, *version, reader), usual});
    }
    return usual;
}

namespace {

/// Takes a label and the number behind it off the end of a name, and the comma before them: the number, or
/// nothing.
std::string_view takeNumber(std::string_view& name, std::string_view label, std::string_view digits) {
    const std::size_t begin = name.find_last_not_of(digits) + 1;
    const std::string_view number = name.substr(begin);
    std::string_view head = name.substr(0, begin);
    if (number.empty() || !head.ends_with(label)) return {};
    head.remove_suffix(label.size());
    constexpr std::string_view comma = ", ";
    if (!head.empty() && !head.ends_with(comma)) return {};
    if (!head.empty()) head.remove_suffix(comma.size());
    name = head;
    return number;
}

}  // namespace

std::string_view marker(Tone tone) {
    switch (tone) {
        case Tone::good:
            return "[OK]";
        case Tone::caution:
            return "[!]";
        case Tone::bad:
            return "[X]";
        case Tone::unknown:
            break;
    }
    return "[?]";
}

namespace {

/// What a form is, what it is called, and the command that unpacks it.
struct Unpacking {
    enum { compressed, archive, store } kind;
    const char *name, *command;
};

Unpacking unpacking(PackedForm form) {
    switch (form) {
        case PackedForm::gzip:
            return {Unpacking::compressed, "gzip", "gzip -dc FILE > UNPACKED"};
        case PackedForm::bzip2:
            return {Unpacking::compressed, "bzip2", "bzip2 -dc FILE > UNPACKED"};
        case PackedForm::xz:
            return {Unpacking::compressed, "xz", "xz -dc FILE > UNPACKED"};
        case PackedForm::zstandard:
            return {Unpacking::compressed, "Zstandard", "zstd -dc FILE > UNPACKED"};
        case PackedForm::lz4:
            return {Unpacking::compressed, "LZ4", "lz4 -dc FILE > UNPACKED"};
        case PackedForm::zip:
            return {Unpacking::archive, "zip", "unzip FILE -d FOLDER"};
        case PackedForm::sevenZip:
            return {Unpacking::archive, "7z", "7z x FILE -oFOLDER"};
        case PackedForm::rar:
            return {Unpacking::archive, "RAR", "unrar x FILE FOLDER/"};
        case PackedForm::tar:
            return {Unpacking::archive, "tar", "tar -xf FILE"};
        case PackedForm::dbox:
            return {Unpacking::store, "dbox", "doveadm backup -u USER maildir:FOLDER"};
        case PackedForm::pst:
            return {Unpacking::store, "pst", "pffexport -m all FILE"};
        case PackedForm::dbx:
        case PackedForm::olm:  // no program does
            break;
    }
    return {Unpacking::store, "dbx", "undbx FILE FOLDER"};
}

/// The command names no file of the person's, lest a file's name become a part of it.
std::string packedLine(PackedForm form, const std::optional<std::string>& name, const std::string& file,
                       const Reader& reader) {
    if (form == PackedForm::olm) {
        const std::string how = reader.translate(
            "It keeps messages in pieces, without the bytes that were signed. In Outlook, drag each message "
            "into a folder of your computer, which makes an .eml file of it, and check those.");
        return sentences({name ? reader.translate("“%1” is an archive of Outlook for Mac (olm).", {file})
                               : reader.translate("That is an archive of Outlook for Mac (olm)."),
                          how});
    }
    const Unpacking packed = unpacking(form);
    if (packed.kind == Unpacking::compressed) {
        if (!name) {
            return reader.translate("That is compressed (%1). Unpack it, and check what comes out: %2",
                                    {packed.name, packed.command});
        }
        return reader.translate("“%1” is compressed (%2). Unpack it, and check what comes out: %3",
                                {file, packed.name, packed.command});
    }
    if (packed.kind == Unpacking::archive) {
        if (!name) {
            return reader.translate("That is an archive (%1). Unpack it, and check what was in it: %2",
                                    {packed.name, packed.command});
        }
        return reader.translate("“%1” is an archive (%2). Unpack it, and check what was in it: %3",
                                {file, packed.name, packed.command});
    }
    if (!name) {
        return reader.translate(
            "That is another program’s store (%1). Copy the messages out of it, and check those: %2",
            {packed.name, packed.command});
    }
    return reader.translate(
        "“%1” is another program’s store (%2). Copy the messages out of it, and check those: %3",
        {file, packed.name, packed.command});
}

std::string archiveLine(ArchiveFault fault, const std::optional<std::string>& name, const std::string& file,
                        const Reader& reader) {
    switch (fault) {
        case ArchiveFault::encrypted:
            if (!name) {
                return reader.translate(
                    "That is encrypted. Unpack it with its password, and check what comes out.");
            }
            return reader.translate(
                "“%1” is encrypted. Unpack it with its password, and check what comes out.", {file});
        case ArchiveFault::tooLarge:
            if (!name) {
                return reader.translate(
                    "Far more comes out of that than is read of it, as of a file that is made to fill a "
                    "disk. "
                    "What is behind that isn’t checked.");
            }
            return reader.translate(
                "Far more comes out of “%1” than is read of it, as of a file that is made to fill a disk. "
                "What "
                "is behind that isn’t checked.",
                {file});
        case ArchiveFault::tooDeep:
            if (!name) {
                return reader.translate(
                    "That lies in too many archives: three in each other are read. Unpack the outermost, and "
                    "check what comes out.");
            }
            return reader.translate(
                "“%1” lies in too many archives: three in each other are read. Unpack the outermost, and "
                "check "
                "what comes out.",
                {file});
        case ArchiveFault::damaged:
            break;
    }
    if (!name) return reader.translate("That is damaged or cut off, and can’t be unpacked to its end.");
    return reader.translate("“%1” is damaged or cut off, and can’t be unpacked to its end.", {file});
}

}  // namespace

std::string problemLine(const Refusal& refusal, const std::optional<std::string>& name,
                        const Reader& reader) {
    const std::string file = quoted(placeName(name.value_or(""), reader));
    if (const auto* unreadable = std::get_if<Refusal::Unreadable>(&refusal.value)) {
        const std::string reason = quoted(systemErrorText(unreadable->reason, reader));
        if (!name) return reader.translate("The input couldn’t be read: %1", {reason});
        return reader.translate("“%1” couldn’t be read: %2", {file, reason});
    }
    if (std::holds_alternative<Refusal::TooLarge>(refusal.value)) {
        if (!name) return reader.translate("That is larger than 50 MB, too large for a single email.");
        return reader.translate("“%1” is larger than 50 MB, too large for a single email.", {file});
    }
    if (std::holds_alternative<Refusal::Moved>(refusal.value)) {
        return reader.translate(
            "“%1” isn’t where it was: its file has changed since. Open the file again to check what it holds "
            "now.",
            {file});
    }
    if (std::holds_alternative<Refusal::Ended>(refusal.value)) {
        if (!name)
            return reader.translate("That wasn’t checked: the process that read it ended unexpectedly.");
        return reader.translate("“%1” wasn’t checked: the process that read it ended unexpectedly.", {file});
    }
    if (const auto* packed = std::get_if<Refusal::Packed>(&refusal.value))
        return packedLine(packed->form, name, file, reader);
    if (const auto* archive = std::get_if<Refusal::Archive>(&refusal.value))
        return archiveLine(archive->fault, name, file, reader);
    if (std::holds_alternative<Refusal::EmptyFolder>(refusal.value))
        return noMessageLine(name.value_or(""), reader);
    if (std::holds_alternative<Refusal::AttachedLeftOut>(refusal.value)) {
        if (!name) {
            return reader.translate(
                "That holds more attached messages than are checked: 100, and those inside each other 8 "
                "deep.");
        }
        return reader.translate(
            "“%1” holds more attached messages than are checked: 100, and those inside each other 8 deep.",
            {file});
    }
    if (std::holds_alternative<Refusal::Converted>(refusal.value)) {
        const std::string line = problemLine({Refusal::NotAnEmail{}}, name, reader);
        return sentences(
            {line, reader.translate(
                       "It is in a format that keeps messages in pieces, without the bytes that were signed. "
                       "Save the message as .eml in the program it came from, or copy its source.")});
    }
    std::string advice;
    if (const auto* none = std::get_if<Refusal::NotAnEmail>(&refusal.value); none && none->damage) {
        advice = sentences(
            {damageInWords({*none->damage, {}}, reader),
             reader.translate("Save the message as .eml in the program it came from, and check that.")});
    }
    if (!name) {
        return sentences(
            {reader.translate(
                 "That doesn’t look like an email: no From, Received or DKIM-Signature header was found. "
                 "Paste the message’s full source or its headers."),
             advice});
    }
    return sentences(
        {reader.translate(
             "“%1” doesn’t look like an email: no From, Received or DKIM-Signature header was found.",
             {file}),
         advice});
}

std::string noMessageLine(const std::string& name, const Reader& reader) {
    return reader.translate("No email was found in “%1”.", {quoted(name)});
}

std::string placeName(std::string_view fileName, const Reader& reader) {
    const auto attached = takeNumber(fileName, "attached message ", "0123456789.");
    const auto number = takeNumber(fileName, "message ", "0123456789");
    std::string name(fileName);
    if (!number.empty() && name.empty()) {
        name = reader.translate("message %1", {number});
    } else if (!number.empty()) {
        name = reader.translate("%1, message %2", {name, number});
    }
    if (attached.empty()) return name;
    return name.empty() ? reader.translate("attached message %1", {attached})
                        : reader.translate("%1, attached message %2", {name, attached});
}

std::string displayForm(const MailAddress& address) {
    std::string real = quotedWord(address.address);
    if (!address.displayName) return real;
    const std::string name = quoted(*address.displayName);
    // One that holds an address must not look like one, or like several of the list.
    const bool isPlain = name.find_first_of("<>@") == std::string::npos;
    return (isPlain ? name : "“" + name + "”") + " <" + real + ">";
}

}  // namespace quillmark
