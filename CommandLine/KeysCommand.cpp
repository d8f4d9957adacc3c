#include "CommandLine/KeysCommand.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <utility>
#include <variant>

#include "CommandLine/CheckInputs.h"
#include "CommandLine/Output.h"
#include "CommandLine/OutputFile.h"
#include "CommandLine/Restriction.h"
#include "CommandLine/UserKeyBook.h"
#include "QuillmarkKit/Checks/DKIM.h"
#include "QuillmarkKit/Checks/KeyDerivation.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Mail/MessageSummary.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/DecodingError.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"
#include "Sandbox/ProgramSandbox.h"
#include "Settings/CurrentTime.h"
#include "Wording/Details.h"
#include "Wording/Direction.h"
#include "Wording/HistoryWording.h"
#include "Wording/KeyWording.h"
#include "Wording/Quoted.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::size_t largestFile = 1'000'000'000;  // bytes of a list
constexpr std::size_t largestReply = 50'000'000;    // of an archive
constexpr std::size_t mostSignatures = 10;          // of one message

/// Why a command ends early: the line that says so, and the exit status.
struct Problem {
    std::string line;
    int status = 1;
};

void write(const std::string& text, const Reader& reader) {
    if (writeOutput(text)) return;
    throw Problem{reader.translate("The keys couldn’t be written: %1", {systemErrorText(errno, reader)})};
}

KeyBook bookOf(const Reader& reader) {
    auto book = userKeyBook();
    if (!book) throw Problem{reader.translate("There is no folder for the key book.")};
    return *book;
}

/// What `use` makes of the book.
template <typename Use>
auto withBook(const Reader& reader, Use use) {
    const KeyBook book = bookOf(reader);
    try {
        return use(book);
    } catch (const Problem&) {
        throw;
    } catch (const OutputFileError&) {
        throw;
    } catch (const std::exception& error) {
        throw Problem{keyBookProblem(error, book.url, reader)};
    }
}

std::vector<KnownKey> keysNamed(const KeysCommand& command) {
    return withBook(command.reader, [&](const KeyBook& book) {
        std::vector<KnownKey> keys;
        book.forEach(command.name, [&](const KnownKey& key) { keys.push_back(key); });
        return keys;
    });
}

void list(const KeysCommand& command) {
    for (const KnownKey& key : keysNamed(command))
        write(inertLine(keyLine(key, command.reader), command.reader.language) + "\n", command.reader);
}

void show(const KeysCommand& command) {
    const auto keys = keysNamed(command);
    if (keys.empty()) {
        throw Problem{
            command.reader.translate("The key book has no key of “%1”.", {quillmark::quoted(command.name)})};
    }
    if (command.json) return write(keyListJSON(keys), command.reader);
    for (const KnownKey& key : keys) {
        for (const std::string& line : keyLines(key, command.reader))
            write(inertLine(line, command.reader.language) + "\n", command.reader);
    }
}

void exportKeys(const KeysCommand& command, OutputFile& output) {
    output.write(keyListJSON(keysNamed(command)));
    output.commit();
}

KeyList listIn(const std::string& file, const Reader& reader) {
    const auto bytes = fileContents(file, largestFile);
    if (!bytes) throw Problem{reader.translate("“%1” can’t be read.", {quillmark::quoted(file)})};
    try {
        return readKeyList(*bytes, lastComponent(file), currentTime());
    } catch (const DecodingError& error) {
        throw Problem{reader.translate("“%1” is no list of keys: %2",
                                       {quillmark::quoted(file), detailText(error.what(), reader)}),
                      2};
    }
}

void import(const KeyList& added, const std::string& file, const Reader& reader) {
    const std::size_t count = withBook(reader, [&](const KeyBook& book) { return book.add(added.keys); });
    write(inertLine(reader.translateCount("%n key of “%1” was added to your key book.",
                                          "%n keys of “%1” were added to your key book.",
                                          static_cast<std::int64_t>(count), {quillmark::quoted(file)}),
                    reader.language) +
              "\n",
          reader);
    if (added.passedOver > 0) {
        writeProblem(reader.translateCount("%n entry of “%1” is no key, and was passed over.",
                                           "%n entries of “%1” are no keys, and were passed over.",
                                           static_cast<std::int64_t>(added.passedOver),
                                           {quillmark::quoted(file)}));
    }
}

/// The exit status: 1 when there was none.
int forget(const KeysCommand& command) {
    if (!command.all && command.name.empty() && !command.file) {
        throw Problem{command.reader.translate("name what is to be forgotten: a key, --file or --all"), 2};
    }
    KeyBook::Selection selection;
    if (!command.name.empty()) {
        selection.name = KeyBook::keyName(command.name);
        if (!selection.name) {
            throw Problem{
                command.reader.translate("“%1” is no name of a key", {quillmark::quoted(command.name)}), 2};
        }
    }
    selection.file = command.file;
    const std::size_t count =
        withBook(command.reader, [&](const KeyBook& book) { return book.remove(selection); });
    write(command.reader.translateCount("%n key was forgotten.", "%n keys were forgotten.",
                                        static_cast<std::int64_t>(count)) +
              "\n",
          command.reader);
    return count > 0 ? 0 : 1;
}

// Keys out of signatures

/// What the messages of all files say of their signatures.
struct Signatures {
    KeyDerivation derivation{};
    std::vector<std::optional<Date>> dates = {};  // by the number of the signature
    std::size_t ofEd25519 = 0;
};

void add(Signatures& all, const MailMessage& message) {
    StaticResolver nobody{{}};
    std::optional<BodyHashes> hashes;
    if (message.body()) hashes.emplace(*message.body());
    const SignatureChecker checker{message, hashes ? &*hashes : nullptr, nobody, currentTime()};
    const auto positions = message.positions("DKIM-Signature");
    for (const auto position : positions.first(std::min(positions.size(), mostSignatures))) {
        auto signature = withoutKey(checker, message.headers()[position]);
        if (!signature) continue;
        if (!signature->rsaHash) {
            ++all.ofEd25519;
            continue;
        }
        const auto at = signature->signedAt ? signature->signedAt : summary(message).date;
        all.derivation.add(std::move(*signature), all.dates.size(), at);
        all.dates.push_back(at);
    }
}

Signatures signaturesIn(const KeysCommand& command) {
    Signatures all;
    CheckInputs inputs(command.files, false);
    while (auto input = inputs.next()) {
        if (auto* problem = std::get_if<FoundProblem>(&input->found)) {
            const auto path = problem->place.pathName();
            writeProblem(problemLine(problem->refusal, path ? path : problem->place.name(), command.reader));
            continue;
        }
        auto& found = std::get<FoundMessage>(input->found);
        const auto taken = messageIn(std::move(found.bytes), found.mode);
        if (const auto* message = std::get_if<MailMessage>(&taken)) add(all, *message);
    }
    return all;
}

/// A derived key as lists have it; seen is when its signatures say that they were made.
KnownKey listed(const DerivedKey& key, const Signatures& all) {
    std::optional<Date> first, last;
    for (const std::size_t number : key.signatures) {
        const auto& at = all.dates[number];
        if (at) first = std::min(first.value_or(*at), *at), last = std::max(last.value_or(*at), *at);
    }
    return {key.selector + "._domainkey." + key.domain,
            "v=DKIM1; k=rsa; p=" + encodedBase64(key.publicKey),
            first.value_or(Date()),
            last.value_or(Date()),
            {},
            false,
            {}};
}

int derive(const KeysCommand& command) {
    Signatures all = signaturesIn(command);
    std::mutex access;  // to the keys
    std::vector<KnownKey> keys;
    std::size_t pairs = 0;
    const BeforeEnd whenStopped([&] {
        const std::lock_guard lock(access);
        if (command.json) writeOutput(keyListJSON(keys));
    });
    const auto progress = [&](const std::string& domain, const std::string& selector, std::size_t left) {
        ++pairs;
        if (canShowProgress()) {
            showProgress(command.reader.translateCount(
                "Pair %1: %n signature of %2 has no key yet", "Pair %1: %n signatures of %2 have no key yet",
                static_cast<std::int64_t>(left),
                {std::to_string(pairs), forDisplay(selector + "._domainkey." + domain, 100)}));
        }
    };
    const auto found = [&](const DerivedKey& key) {
        {
            const std::lock_guard lock(access);
            keys.push_back(listed(key, all));
        }
        if (command.json) return;
        clearProgress();
        for (const std::string& line :
             derivedKeyLines(keys.back(), key.signatures.size(), key.bits, command.reader))
            write(inertLine(line, command.reader.language) + "\n", command.reader);
    };
    bool isComplete = false;
    try {
        isComplete = all.derivation.run(static_cast<std::size_t>(command.pairs), progress, found);
    } catch (const std::runtime_error& error) {
        throw Problem{detailText(error.what(), command.reader)};
    }
    clearProgress();
    if (command.json) {
        write(keyListJSON(keys), command.reader);
    } else if (!keys.empty()) {
        write(derivedKeysMeaning(command.reader) + "\n", command.reader);
    }
    if (all.ofEd25519 > 0) {
        writeProblem(command.reader.translateCount(
            "%n signature is of the kind Ed25519, out of which no key can be derived.",
            "%n signatures are of the kind Ed25519, out of which no key can be derived.",
            static_cast<std::int64_t>(all.ofEd25519)));
    }
    if (!isComplete) {
        writeProblem(
            command.reader.translateCount("After %n pair of signatures it was ended; --pairs allows more.",
                                          "After %n pairs of signatures it was ended; --pairs allows more.",
                                          static_cast<std::int64_t>(command.pairs)));
    }
    if (keys.empty())
        writeProblem(command.reader.translate(
            "No key was found that made three of the signatures. Of each name and month three pairs are "
            "tried."));
    return keys.empty() ? 1 : 0;
}

/// The names under which a list has each key, by its fingerprint.
std::map<std::string, std::string> names(const KeyList& list) {
    std::map<std::string, std::string> names;
    for (const KnownKey& key : list.keys) {
        const auto record = DKIMKeyRecord::parse(key.record);
        if (const auto* parsed = std::get_if<DKIMKeyRecord>(&record))
            names.emplace(fingerprint(*parsed), key.name);
    }
    return names;
}

int compare(const KeysCommand& command) {
    const auto one = names(listIn(command.files[0], command.reader)),
               other = names(listIn(command.files[1], command.reader));
    bool isAny = false;
    for (const auto& [print, name] : one) {
        const auto same = other.find(print);
        if (same == other.end()) continue;
        isAny = true;
        write(inertLine(command.reader.translate(
                            "Both have the key with the fingerprint %1: “%2” as %3, “%4” as %5.",
                            {print, quillmark::quoted(command.files[0]), quotedWord(name),
                             quillmark::quoted(command.files[1]), quotedWord(same->second)}),
                        command.reader.language) +
                  "\n",
              command.reader);
    }
    write((isAny ? command.reader.translate("That says something of whose key it is only as far as neither "
                                            "file was made from the other, or by the same person.")
                 : command.reader.translate("No key stands in both.")) +
              "\n",
          command.reader);
    return isAny ? 0 : 1;
}

void ask(const KeysCommand& command) {
    const auto domain = asciiDomain(command.domain);
    if (!domain || !mayBeQueried("x._domainkey." + *domain)) {
        throw Problem{command.reader.translate("“%1” is no domain that can be asked for",
                                               {quillmark::quoted(command.domain)}),
                      2};
    }
    if (!command.archive.starts_with("https://")) {
        throw Problem{
            command.reader.translate("--archive takes an address that begins with https://, not “%1”",
                                     {quillmark::quoted(command.archive)}),
            2};
    }
    const std::string host = hostOf(command.archive);
    writeProblem(command.reader.translate("%1 learns now that somebody here asks for %2.",
                                          {quotedWord(host), quotedDomain(*domain)}));
    HTTPEngine http(HTTPOptions::ofEnvironment());
    try {
        import(askArchive(http, command.archive, *domain, currentTime()), host, command.reader);
    } catch (const HTTPError& error) {
        throw Problem{command.reader.translate("%1 gave no answer: %2",
                                               {quotedWord(host), detailText(error.what(), command.reader)})};
    } catch (const DecodingError& error) {
        throw Problem{
            command.reader.translate("“%1” is no list of keys: %2",
                                     {quillmark::quoted(host), detailText(error.what(), command.reader)})};
    }
}

Sandbox sandboxOf(const KeysCommand& command) {
    using Action = KeysCommand::Action;
    Sandbox sandbox{
        .read = command.action == Action::derive
                    ? readable(command.files)
                    : std::vector<std::filesystem::path>(command.files.begin(), command.files.end()),
        .isNetworked = command.action == Action::ask};
    const bool isAdded = command.action == Action::import || command.action == Action::ask;
    if (command.action != Action::derive && command.action != Action::compare)
        allowUserData(sandbox, isAdded ? UserData::made : UserData::asItIs);
    return sandbox;
}

int done(const KeysCommand& command) {
    using Action = KeysCommand::Action;
    std::optional<OutputFile> output;
    if (command.action == Action::exportKeys) output.emplace(command.out);
    restricted(sandboxOf(command), output ? std::vector{&*output} : std::vector<OutputFile*>());
    switch (command.action) {
        case Action::list:
            list(command);
            break;
        case Action::show:
            show(command);
            break;
        case Action::exportKeys:
            exportKeys(command, *output);
            break;
        case Action::import:
            for (const std::string& file : command.files)
                import(listIn(file, command.reader), lastComponent(file), command.reader);
            break;
        case Action::forget:
            return forget(command);
        case Action::derive:
            return derive(command);
        case Action::compare:
            return compare(command);
        case Action::ask:
            ask(command);
            break;
    }
    return 0;
}

}  // namespace

std::string hostOf(std::string_view url) {
    const auto begin = url.find("://");
    if (begin != std::string_view::npos) url.remove_prefix(begin + 3);
    return std::string(url.substr(0, url.find_first_of("/?#:")));
}

KeyList askArchive(HTTP& http, const std::string& url, const std::string& domain, Date now) {
    constexpr std::string_view place = "{domain}";
    HTTPRequest request{.url = url, .headers = {"Accept: application/json"}, .bodyLimit = largestReply};
    request.timeOut = std::chrono::seconds(60);
    if (const auto at = url.find(place); at != std::string::npos) {
        request.url.replace(at, place.size(), domain);
    } else {
        request.url += (url.find('?') == std::string::npos ? "?domain=" : "&domain=") + domain;
    }
    const HTTPResponse response = http.get(request, {});
    if (response.status != 200) throw DecodingError("HTTP " + std::to_string(response.status));
    KeyList list = readKeyList(response.body, hostOf(url), now);
    // Of another domain nobody asked.
    const std::string end = "._domainkey." + asciiLowered(domain);
    const auto isOther = [&](const KnownKey& key) { return !key.name.ends_with(end); };
    list.passedOver += std::erase_if(list.keys, isOther);
    return list;
}

int KeysCommand::run() const {
    try {
        return done(*this);
    } catch (const Problem& problem) {
        writeProblem(problem.line);
        return problem.status;
    } catch (const OutputFileError& error) {
        writeProblem(unwritable(error, reader));
        return 1;
    }
}

}  // namespace quillmark
