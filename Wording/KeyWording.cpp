#include "Wording/KeyWording.h"

#include <variant>

#include "QuillmarkKit/Checks/KeyLists.h"
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

std::string sourceOfKey(const KnownKey& key, const Reader& reader) {
    if (key.file) {
        return reader.translate("as the file “%1” says, added on %2",
                                {quillmark::quoted(key.file->name), reader.date(key.file->addedAt)});
    }
    const std::string service = quillmark::quotedWord(key.service);
    if (key.service.empty()) return reader.translate("as this computer saw it");
    return key.isValidated ? reader.translate("as this computer saw it, from %1, validated", {service})
                           : reader.translate("as this computer saw it, from %1", {service});
}

std::string kindOfKey(const KnownKey& key, const Reader& reader) {
    const auto parsed = DKIMKeyRecord::parse(key.record);
    const auto* record = std::get_if<DKIMKeyRecord>(&parsed);
    if (!record) return reader.translate("no key");
    if (record->keyType == "ed25519") return "Ed25519";
    if (const auto bits = rsaBits(*record)) return "RSA " + std::to_string(*bits);
    return reader.translate("no key");
}

std::string keyLine(const KnownKey& key, const Reader& reader) {
    return key.name + "  " + iso8601(key.firstSeen).substr(0, 10) + "  " +
           iso8601(key.lastSeen).substr(0, 10) + "  " + kindOfKey(key, reader) + "  " +
           sourceOfKey(key, reader);
}

std::vector<std::string> keyLines(const KnownKey& key, const Reader& reader) {
    std::vector<std::string> lines = {
        key.name,
        "  " + reader.translate("From %1 to %2, %3.", {reader.time(key.firstSeen), reader.time(key.lastSeen),
                                                       sourceOfKey(key, reader)})};
    const auto parsed = DKIMKeyRecord::parse(key.record);
    if (const auto* record = std::get_if<DKIMKeyRecord>(&parsed)) {
        lines.push_back(
            "  " + reader.translate("%1, fingerprint %2", {kindOfKey(key, reader), fingerprint(*record)}));
    }
    lines.push_back("  " + key.record);
    return lines;
}

std::vector<std::string> derivedKeyLines(const KnownKey& key, std::size_t count, int bits,
                                         const Reader& reader) {
    const auto parsed = DKIMKeyRecord::parse(key.record);
    const auto* record = std::get_if<DKIMKeyRecord>(&parsed);
    const std::string print = record ? fingerprint(*record) : std::string();
    const std::string first = iso8601(key.firstSeen).substr(0, 4), last = iso8601(key.lastSeen).substr(0, 4);
    const auto number = static_cast<std::int64_t>(count);
    std::string line;
    if (key.lastSeen == Date()) {
        line = reader.translateCount("%n message carries a signature of one key, fingerprint %1.",
                                     "%n messages carry signatures of one key, fingerprint %1.", number,
                                     {print});
    } else if (first == last) {
        line = reader.translateCount("%n message of %1 carries a signature of one key, fingerprint %2.",
                                     "%n messages of %1 carry signatures of one key, fingerprint %2.", number,
                                     {first, print});
    } else {
        line = reader.translateCount("%n message of %1 to %2 carries a signature of one key, fingerprint %3.",
                                     "%n messages of %1 to %2 carry signatures of one key, fingerprint %3.",
                                     number, {first, last, print});
    }
    return {line, "  " + reader.translate("They name it %1; RSA, %2 bits.",
                                          {quillmark::quotedWord(key.name), std::to_string(bits)})};
}

std::string derivedKeysMeaning(const Reader& reader) {
    return reader.translate(
        "That proves that whoever holds a key signed all messages of that key, not whose key it is. It "
        "becomes evidence where the same fingerprint stands in somebody else’s mailbox or list.");
}

}  // namespace quillmark
