#include "CommandLine/SignCommands.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include <unistd.h>

#include "CommandLine/Output.h"
#include "QuillmarkKit/Intake.h"
#include "QuillmarkKit/Signer.h"
#include "QuillmarkKit/Support/Date.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";

/// Fields that make a message what a reader takes it for (RFC 6376, section 5.4.1).
constexpr const char* usualHeaders[] = {
    "From",        "Reply-To",   "Subject",    "Date",         "To",           "Cc",
    "In-Reply-To", "References", "Message-ID", "MIME-Version", "Content-Type", "Content-Transfer-Encoding"};

enum ExitStatus { done = 0, inputAtFault = 1, argumentsAtFault = 2 };

/// Why a command ends without having written anything.
struct Fault : std::runtime_error {
    Fault(ExitStatus exitStatus, const std::string& line) : std::runtime_error(line), status(exitStatus) {}
    ExitStatus status;
};

/// Runs a command that throws when it cannot be carried out, and says why.
template <typename Command>
int exitStatus(const Command& command) {
    const auto failed = [](ExitStatus status, const std::string& line) {
        writeProblem(line);
        return status;
    };
    try {
        command();
        return done;
    } catch (const Fault& fault) {
        return failed(fault.status, fault.what());
    } catch (const SigningError& error) {
        return failed(argumentsAtFault, error.what());
    } catch (const std::bad_alloc&) {
        return failed(inputAtFault, std::generic_category().message(ENOMEM));
    }
}

void print(std::string_view bytes) {
    if (writeOutput(bytes)) return;
    throw Fault(inputAtFault, "The output couldn’t be written: " + std::generic_category().message(errno));
}

SigningKey readKey(const std::string& path, const Reader& reader) {
    const auto bytes = readFile(path);
    if (const auto* refusal = std::get_if<Refusal>(&bytes)) {
        throw Fault(argumentsAtFault, problemLine(*refusal, repairedUTF8(path), reader));
    }
    auto key = SigningKey::fromPEM(std::get<ByteBuffer>(bytes).view());
    if (!key) {
        throw Fault(argumentsAtFault, "“" + path +
                                          "” holds no private key that could be used: RSA or Ed25519, as PEM "
                                          "(PKCS#8 or PKCS#1), without a password.");
    }
    return *key;
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
        throw Fault(inputAtFault, "“" + name.value_or("-") +
                                      "” can’t be signed: its header ends at a line that is no header field, "
                                      "so that it has no body.");
    }
    return input;
}

std::optional<std::int64_t> signingTime(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    if (const auto seconds = decimal(*text)) return seconds;
    if (const auto date = parsedRFC3339(*text)) {
        return std::chrono::floor<std::chrono::seconds>(*date).time_since_epoch().count();
    }
    throw Fault(
        argumentsAtFault,
        "--time takes a time such as 2026-11-21T10:00:00Z, or seconds since 1970, not “" + *text + "”");
}

/// What the option says, with empty names kept, so that they are refused like any other that is none.
std::vector<std::string> headerNames(const std::optional<std::string>& list, const MailMessage& message) {
    std::vector<std::string> names;
    if (list) {
        const std::string text = *list + ":";
        for (std::string_view rest = text; !rest.empty();) names.emplace_back(takePiece(rest, ':'));
        return names;
    }
    for (const char* name : usualHeaders) names.insert(names.end(), message.positions(name).size(), name);
    if (!message.first("From")) names.emplace_back("From");
    return names;
}

/// A signature with a larger `l=` would verify nowhere.
void requireBodyOf(std::int64_t length, const MailMessage& message, Canonicalization canonicalization) {
    BodyHashes hashes(message.body().value());
    const auto& whole = hashes.hash(canonicalization, HashAlgorithm::sha256, {});
    const auto most = static_cast<std::int64_t>(whole.canonicalLength);
    if (length <= most) return;
    throw Fault(argumentsAtFault, "--length " + std::to_string(length) + " is more than the " +
                                      std::to_string(most) + " bytes that the body has");
}

}  // namespace

int KeygenCommand::run() const {
    return exitStatus([&] {
        if (type != "rsa" && bits) throw Fault(argumentsAtFault, "--bits is for RSA keys only");
        const auto key = type == "rsa" ? SigningKey::newRSA(bits.value_or(2048)) : SigningKey::newEd25519();
        if (!key) throw Fault(inputAtFault, "No key could be made: there are no random numbers to be had.");
        try {
            const Undisturbed whileWriting;
            createFile(out, key->pem());
        } catch (const std::filesystem::filesystem_error& error) {
            throw Fault(inputAtFault, unwritable(out, error.code().message()));
        }
        print("Name:  SELECTOR._domainkey.DOMAIN\nValue: " + Signer::keyRecord(*key) + "\n");
    });
}

int SignCommand::run() const {
    return exitStatus([&] {
        const auto pair = CanonicalizationPair::parse(canonicalization);
        if (!pair) {
            throw Fault(argumentsAtFault,
                        "--canon takes two of simple and relaxed, such as relaxed/simple, not “" +
                            canonicalization + "”");
        }
        Signer::Options options = {.domain = domain, .selector = selector, .bodyLength = length};
        options.time = signingTime(time);
        options.canonicalization = *pair;
        const SigningKey key = readKey(keyFile, reader);
        const Input input = readMessage(file, reader);
        options.headers = headerNames(headers, input.message);
        if (length) requireBodyOf(*length, input.message, pair->body);
        const std::string field = Signer::dkimSignature(input.message, options, key);
        print(input.withFieldsOnTop(field + "\r\n"));
    });
}

int SealCommand::run() const {
    return exitStatus([&] {
        Signer::ARCOptions options = {.domain = domain, .selector = selector, .results = results};
        options.time = signingTime(time);
        options.chain = chain;
        const SigningKey key = readKey(keyFile, reader);
        const Input input = readMessage(file, reader);
        const auto set = Signer::arcSet(input.message, options, key);
        print(
            input.withFieldsOnTop(set.seal + "\r\n" + set.messageSignature + "\r\n" + set.results + "\r\n"));
    });
}

}  // namespace quillmark
