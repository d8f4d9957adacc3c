#include "CommandLine/AsSignedFolder.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "CommandLine/OutputFile.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"
#include "Wording/Signatures.h"

namespace quillmark {

namespace {

/// A name as it may stand in a folder: its end, which tells messages of one mailbox apart.
std::string fileNameOf(std::string_view name) {
    constexpr std::size_t longest = 120;
    std::string text(name.substr(name.size() > longest ? name.size() - longest : 0));
    for (char& c : text) {
        if (!isASCIILetter(c) && !isDigit(c) && c != '.' && c != '-') c = '_';
    }
    if (text.empty() || text.front() == '.' || text.front() == '-') text.insert(0, "_");
    return text;
}

/// The names of fields that one message has and the other hasn't.
std::vector<std::string> leftOut(const MailMessage& shown, const MailMessage& asSigned) {
    constexpr std::size_t most = 100;
    std::set<std::string> known;
    std::vector<std::string> names;
    for (const HeaderField& field : shown.headers()) {
        if (names.size() == most) break;
        if (asSigned.first(field.name) || !known.insert(asciiLowered(field.name)).second) continue;
        names.emplace_back(field.name);
    }
    return names;
}

void writeNew(const std::string& path, std::string_view bytes) {
    OutputFile file(path);
    file.write(bytes);
    file.commit();
}

}  // namespace

void AsSignedFolder::make(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directory(folder, error);
    if (!error && !std::filesystem::is_directory(folder, error))
        error = std::make_error_code(std::errc::not_a_directory);
    if (error) throw OutputFileError(folder, error.value());
}

void AsSignedFolder::write(const std::optional<std::string>& name, const MailMessage& shown,
                           const Verification& verification) {
    auto next = verification.asSigned.begin();
    for (const ReportNote& note : verification.report.notes) {
        const auto* undone = std::get_if<ReportNote::Undone>(&note.value);
        if (!undone || next == verification.asSigned.end()) continue;
        const MailMessage& asSigned = *next++;
        ++m_found;
        std::string file = fileNameOf(name.value_or("message")) + "." + fileNameOf(undone->domain) + "." +
                           (undone->of == SignatureKind::dkim ? "" : "arc") + std::to_string(undone->index);
        const std::string path = (std::filesystem::path(m_folder) / file).string();
        std::string text = m_reader.translate(
            "This file’s neighbour, “%1”, holds what %2 signed of “%3”, and nothing else.",
            {file + ".eml", quotedDomain(undone->domain), quillmark::quoted(name.value_or("-"))});
        text += "\n\n" + sentence(note, m_reader) + '\n';
        for (const std::string& line : details(note, m_reader)) text += "    " + line + '\n';
        if (const auto names = leftOut(shown, asSigned); !names.empty()) {
            text += '\n' +
                    m_reader.translate("Header lines that were left out, because %1 didn’t sign them: %2.",
                                       {quotedDomain(undone->domain), fieldNames(names, m_reader)}) +
                    '\n';
        }
        writeNew(path + ".eml", asSigned.bytes());
        writeNew(path + ".txt", text);
        ++m_written;
    }
}

std::optional<std::string> AsSignedFolder::summary() const {
    if (m_found == 0) {
        return m_reader.translate(
            "Nothing was written into “%1”: no broken signature holds again once changes are taken back.",
            {quillmark::quoted(m_folder)});
    }
    if (m_written == 0) return std::nullopt;
    return m_reader.translateCount(
        "%n message as it was signed is now in “%1”, with a text that tells of it.",
        "%n messages as they were signed are now in “%1”, each with a text that "
        "tells of it.",
        m_written, {quillmark::quoted(m_folder)});
}

}  // namespace quillmark
