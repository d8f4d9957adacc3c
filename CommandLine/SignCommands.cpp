#include "CommandLine/SignCommands.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "CommandLine/Output.h"
#include "CommandLine/OutputFile.h"
#include "CommandLine/Restriction.h"
#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Text.h"
#include "Settings/CurrentTime.h"
#include "Wording/Details.h"
#include "Wording/Quoted.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr const char* terminalFile = "/dev/tty";

constexpr std::string_view lineEnd = "\r\n";

/// Fields that make a message what a reader takes it for (RFC 6376, section 5.4.1).
constexpr const char* usualHeaders[] = {
    "From",        "Reply-To",   "Subject",    "Date",         "To",           "Cc",
    "In-Reply-To", "References", "Message-ID", "MIME-Version", "Content-Type", "Content-Transfer-Encoding"};
constexpr std::size_t overSigned = 6;  // of these

enum ExitStatus { done = 0, inputAtFault = 1, argumentsAtFault = 2 };

/// Why a command ends without having written anything.
struct Fault : std::runtime_error {
    Fault(ExitStatus exitStatus, const std::string& line) : std::runtime_error(line), status(exitStatus) {}
    ExitStatus status;
};

/// Runs a command that throws when it cannot be carried out, and says why.
template <typename Command>
int exitStatus(const Reader& reader, const Command& command) {
    const auto failed = [](ExitStatus status, const std::string& line) {
        writeProblem(line);
        return status;
    };
    try {
        command();
        return done;
    } catch (const Fault& fault) {
        return failed(fault.status, fault.what());
    } catch (const UnsealableMessage& error) {
        return failed(inputAtFault, error.what());
    } catch (const OutputFileError& error) {
        return failed(inputAtFault, unwritable(error, reader));
    } catch (const SigningError& error) {
        return failed(argumentsAtFault, error.what());
    } catch (const std::bad_alloc&) {
        return failed(inputAtFault, systemErrorText(ENOMEM, reader));
    }
}

/// `more`: what to do if it can't be.
void print(std::string_view bytes, const Reader& reader, const std::string& more = {}) {
    if (writeOutput(bytes)) return;
    throw Fault(
        inputAtFault,
        reader.translate("The output couldn’t be written: %1", {systemErrorText(errno, reader)}) + more);
}

void printRecord(const SigningKey& key, const Reader& reader, const std::string& more = {}) {
    print("Name:  SELECTOR._domainkey.DOMAIN\nValue: " + Signer::keyRecord(key) + "\n", reader, more);
}

/// What is typed at the terminal, unseen; nothing when there is none.
std::optional<std::string> typed(const std::string& question) {
    const int terminal = open(terminalFile, O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (terminal < 0) return std::nullopt;
    termios shown = {};
    tcgetattr(terminal, &shown);
    const auto show = [&] { tcsetattr(terminal, TCSANOW, &shown); };
    std::string line;
    {
        const BeforeEnd whenStopped(show);
        termios hidden = shown;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(terminal, TCSANOW, &hidden);
        writeBytes(question, terminal);
        char c = 0;
        while (read(terminal, &c, 1) == 1 && c != '\n') line += c;
        show();
    }
    writeBytes("\n", terminal);
    close(terminal);
    return line;
}

ByteBuffer readKeyFile(const std::string& path, const Reader& reader) {
    const bool isInput = path == "-";
    auto bytes = isInput ? readDescriptor(STDIN_FILENO) : readFile(path);
    if (const auto* refusal = std::get_if<Refusal>(&bytes)) {
        const auto name = isInput ? std::nullopt : std::optional(repairedUTF8(path));
        throw Fault(argumentsAtFault, problemLine(*refusal, name, reader));
    }
    return std::get<ByteBuffer>(std::move(bytes));
}

std::string passphraseOf(const KeyFile& key, const Reader& reader) {
    const std::string name = quillmark::quoted(key.path);
    if (key.passphraseFile) {
        const ByteBuffer bytes = readKeyFile(*key.passphraseFile, reader);
        std::string_view line = bytes.view().substr(0, bytes.view().find('\n'));
        if (line.ends_with('\r')) line.remove_suffix(1);
        return std::string(line);
    }
    if (auto line = typed(reader.translate("Passphrase of “%1”:", {name}) + " ")) return std::move(*line);
    throw Fault(
        argumentsAtFault,
        reader.translate("“%1” is encrypted. --passphrase-file names a file with its passphrase.", {name}));
}

void warnOfReaders(const std::string& path, const Reader& reader) {
    struct stat status = {};
    if (path == "-" || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    if ((status.st_mode & (S_IRGRP | S_IROTH)) == 0) return;
    writeProblem(
        reader.translate("Others can read “%1”, and who has the key can sign in your place. To keep it for "
                         "yourself: chmod 600",
                         {quillmark::quoted(path)}));
}

SigningKey readKey(const KeyFile& file, const Reader& reader) {
    const ByteBuffer bytes = readKeyFile(file.path, reader);
    bool isEncrypted = false;
    auto key = SigningKey::fromPEM(bytes.view(), [&isEncrypted] {
        isEncrypted = true;
        return std::nullopt;
    });
    if (!key && isEncrypted) {
        std::string passphrase = passphraseOf(file, reader);
        key = SigningKey::fromPEM(bytes.view(), [&passphrase] { return passphrase; });
        if (!key) {
            throw Fault(argumentsAtFault, reader.translate("The passphrase doesn’t open “%1”.",
                                                           {quillmark::quoted(file.path)}));
        }
    }
    if (!key) {
        throw Fault(argumentsAtFault,
                    reader.translate("“%1” holds no private key that could be used: RSA or Ed25519, as PEM "
                                     "(PKCS#8 or PKCS#1).",
                                     {quillmark::quoted(file.path)}));
    }
    warnOfReaders(file.path, reader);
    return *key;
}

/// For reading a key and a message, and asking for a passphrase at the terminal.
void restrictToReading(const KeyFile& key, const std::optional<std::string>& message) {
    Sandbox sandbox{.read = {key.path}, .write = {terminalFile}};
    for (const auto& file : {key.passphraseFile, message}) {
        if (file) sandbox.read.emplace_back(*file);
    }
    restricted(sandbox);
}

/// Of the key, its passphrase and the message only one can come from standard input.
void requireOneInput(const KeyFile& key, const std::optional<std::string>& message, const Reader& reader) {
    if ((key.path == "-") + (key.passphraseFile == "-") + (message == "-") > 1)
        throw Fault(argumentsAtFault, reader.translate("standard input (-) can be read only once"));
}

/// A message and the bytes it stands in.
struct Input {
    ByteBuffer bytes = {};  ///< with CR LF line ends
    MailMessage message = {};

    /// The bytes with fields, each with its line end, above the first of the message's.
    std::string withFieldsOnTop(std::string_view fields) const {
        std::size_t size = lineEnd.size() + message.body().value().size();
        for (const HeaderField& field : message.headers()) size += field.raw.size() + lineEnd.size();
        const std::string_view all = bytes.view();
        const std::size_t top = all.size() - size;  // behind what is no part of it: an mbox separator, say
        return std::string(all.substr(0, top)) + std::string(fields) + std::string(all.substr(top));
    }
};

/// A message of fields alone gets the empty line that ends them, so that all agree that its body is empty.
/// One whose fields are cut off by a line that is none is refused: what is its body, nobody can tell.
Input readMessage(const std::string& file, const Reader& reader) {
    const auto name = file == "-" ? std::nullopt : std::optional(repairedUTF8(file));
    const auto refuse = [&](const Refusal& refusal) {
        throw Fault(inputAtFault, problemLine(refusal, name, reader));
    };
    auto read = name ? readFile(file) : readDescriptor(STDIN_FILENO);
    if (const auto* refusal = std::get_if<Refusal>(&read)) refuse(*refusal);
    Input input{.bytes = Bytes::normalizedLineEnds(std::move(std::get<ByteBuffer>(read)))};
    auto message = messageIn(ByteBuffer(input.bytes.view()), ParseMode::strict);
    if (const auto* refusal = std::get_if<Refusal>(&message)) refuse(*refusal);
    input.message = std::get<MailMessage>(message);
    if (input.message.body()) return input;
    const bool isLastLineWhole = input.bytes.view().ends_with(lineEnd);
    const std::string ended = std::string(input.bytes.view()) + (isLastLineWhole ? "\r\n" : "\r\n\r\n");
    input = {.bytes = ByteBuffer(ended), .message = MailMessage::parse(ended)};
    if (!input.message.body()) {
        throw Fault(inputAtFault,
                    reader.translate("“%1” can’t be signed: its header ends at a line that is no header "
                                     "field, so that it has no body.",
                                     {quillmark::quoted(name.value_or("-"))}));
    }
    return input;
}

std::optional<std::int64_t> signingTime(const std::optional<std::string>& text, const Reader& reader) {
    if (text == "none") return std::nullopt;
    if (const auto seconds = decimal(text.value_or(""))) return seconds;
    if (const auto date = text ? parsedRFC3339(*text) : currentTime()) {
        return std::chrono::floor<std::chrono::seconds>(*date).time_since_epoch().count();
    }
    throw Fault(
        argumentsAtFault,
        reader.translate("--time takes a time such as 2026-11-21T10:00:00Z, or seconds since 1970, or "
                         "none, not “%1”",
                         {quillmark::quoted(*text)}));
}

/// What the option says, with empty names kept, so that they are refused like any other that is none.
std::vector<std::string> headerNames(const std::optional<std::string>& list, const MailMessage& message) {
    std::vector<std::string> names;
    if (list) {
        const std::string text = *list + ":";
        for (std::string_view rest = text; !rest.empty();) names.emplace_back(takePiece(rest, ':'));
        return names;
    }
    for (const auto& name : usualHeaders) {
        const bool isOnceMore = &name < usualHeaders + overSigned;
        names.insert(names.end(), message.positions(name).size() + isOnceMore, name);
    }
    return names;
}

/// A signature with a larger `l=` would verify nowhere.
void requireBodyOf(std::int64_t length, const MailMessage& message, Canonicalization canonicalization,
                   const Reader& reader) {
    BodyHashes hashes(message.body().value());
    const auto& whole = hashes.hash(canonicalization, HashAlgorithm::sha256, {});
    const auto most = static_cast<std::int64_t>(whole.canonicalLength);
    if (length <= most) return;
    throw Fault(argumentsAtFault, reader.translate("--length %1 is more than the %2 bytes that the body has",
                                                   {std::to_string(length), std::to_string(most)}));
}

}  // namespace

int KeygenCommand::run() const {
    endOnSignals();  // it reads nothing of anybody's
    return exitStatus(reader, [&] {
        if (type != "rsa" && bits)
            throw Fault(argumentsAtFault, reader.translate("--bits is for RSA keys only"));
        const auto key = type == "rsa" ? SigningKey::newRSA(bits.value_or(2048)) : SigningKey::newEd25519();
        if (!key)
            throw Fault(inputAtFault,
                        reader.translate("No key could be made: there are no random numbers to be had."));
        if (OutputFile::isStandardOutput(out)) {
            print(key->pem(), reader);
            return;
        }
        {
            OutputFile file(out);
            const Undisturbed whileWriting;
            file.write(key->pem());
            file.commit();
        }
        const std::string name = quillmark::quoted(out);
        printRecord(
            *key, reader,
            ". " + reader.translate("The key is in “%1”; quillmark record prints its DNS record.", {name}));
    });
}

int RecordCommand::run() const {
    restrictToReading(key, {});
    return exitStatus(reader, [&] {
        requireOneInput(key, std::nullopt, reader);
        printRecord(readKey(key, reader), reader);
    });
}

int SignCommand::run() const {
    restrictToReading(key, file);
    return exitStatus(reader, [&] {
        const auto pair = CanonicalizationPair::parse(canonicalization);
        if (!pair) {
            throw Fault(
                argumentsAtFault,
                reader.translate("--canon takes two of simple and relaxed, such as relaxed/simple, not “%1”",
                                 {quillmark::quoted(canonicalization)}));
        }
        Signer::Options options = {.domain = domain, .selector = selector, .bodyLength = length};
        options.time = signingTime(time, reader);
        options.canonicalization = *pair;
        requireOneInput(key, file, reader);
        const SigningKey signingKey = readKey(key, reader);
        const Input input = readMessage(file, reader);
        options.headers = headerNames(headers, input.message);
        if (length) requireBodyOf(*length, input.message, pair->body, reader);
        const std::string field = Signer::dkimSignature(input.message, options, signingKey);
        print(input.withFieldsOnTop(field + "\r\n"), reader);
    });
}

int SealCommand::run() const {
    restrictToReading(key, file);
    return exitStatus(reader, [&] {
        Signer::ARCOptions options = {.domain = domain, .selector = selector, .results = results};
        options.time = signingTime(time, reader);
        options.chain = chain;
        requireOneInput(key, file, reader);
        const SigningKey signingKey = readKey(key, reader);
        const Input input = readMessage(file, reader);
        const auto set = Signer::arcSet(input.message, options, signingKey);
        print(input.withFieldsOnTop(set.seal + "\r\n" + set.messageSignature + "\r\n" + set.results + "\r\n"),
              reader);
    });
}

}  // namespace quillmark
