#include "CommandLine/StampCommand.h"

#include <filesystem>

#include "CommandLine/KeysCommand.h"
#include "CommandLine/Output.h"
#include "CommandLine/OutputFile.h"
#include "CommandLine/Restriction.h"
#include "QuillmarkKit/Support/Crypto.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/TimeStamp.h"
#include "Wording/Details.h"
#include "Wording/Direction.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

constexpr std::size_t largestFile = 1'000'000'000, largestStamp = 1'000'000;  // bytes

}  // namespace

std::string stampOf(HTTP& http, const std::string& url, std::string_view digest) {
    const HTTPRequest request{
        .url = url,
        .headers = {"Content-Type: application/timestamp-query", "Accept: application/timestamp-reply"},
        .body = timeStampRequest(digest),
        .timeOut = std::chrono::seconds(60),
        .bodyLimit = largestStamp};
    HTTPResponse response = http.get(request, {});
    if (response.status != 200) throw StampError("HTTP " + std::to_string(response.status));
    if (!timeStamp(response.body, digest)) throw StampError("no time stamp of this file");
    return std::move(response.body);
}

std::string stampFileOf(const std::string& file) { return file + ".tsr"; }

namespace {

/// `stampLine` for what the file beside it holds.
std::string lineOf(const std::optional<std::string>& reply, const std::string& file,
                   const std::optional<std::string>& trusted, const Reader& reader) {
    const std::string name = quillmark::quoted(file), stampName = quillmark::quoted(stampFileOf(file));
    const auto bytes = fileContents(file, largestFile);
    const auto authorities = trusted ? fileContents(*trusted, largestStamp) : std::nullopt;
    const auto stamp =
        reply && bytes ? timeStamp(*reply, hash(HashAlgorithm::sha256, *bytes), authorities) : std::nullopt;
    if (!stamp) {
        return reader.translate("“%1” is no time stamp of “%2”: it proves nothing.", {stampName, name});
    }
    if (!stamp->isTrusted) {
        return reader.translate(
            "“%1” bears the time stamp of an unknown authority, “%2”, which proves nothing. --tsa-ca names "
            "authorities that you trust.",
            {name, quillmark::quoted(stamp->authority)});
    }
    return reader.translate("“%1” was time-stamped by “%2” on %3: it existed by then.",
                            {name, quillmark::quoted(stamp->authority), reader.time(stamp->at)});
}

}  // namespace

std::optional<std::string> stampLine(const std::string& file, const std::optional<std::string>& trusted,
                                     const Reader& reader) {
    const std::string beside = stampFileOf(file);
    std::error_code error;
    if (!std::filesystem::exists(beside, error)) return std::nullopt;
    return lineOf(fileContents(beside, largestStamp), file, trusted, reader);
}

int StampCommand::run() const {
    const auto fail = [](const std::string& line, int status) {
        writeProblem(line);
        return status;
    };
    if (!authority.starts_with("https://")) {
        return fail(reader.translate("--tsa takes an address that begins with https://, not “%1”",
                                     {quillmark::quoted(authority)}),
                    2);
    }
    Sandbox sandbox{.read = {file}, .isNetworked = true};
    if (trusted) sandbox.read.emplace_back(*trusted);
    std::optional<OutputFile> stampFile;
    try {
        stampFile.emplace(stampFileOf(file));
        restricted(sandbox, {&*stampFile});
    } catch (const OutputFileError& error) {
        return fail(unwritable(error, reader), 1);
    }
    const auto bytes = fileContents(file, largestFile);
    if (!bytes) return fail(reader.translate("“%1” can’t be read.", {quillmark::quoted(file)}), 1);
    const std::string host = quillmark::quotedWord(hostOf(authority));
    std::string reply;
    try {
        HTTPEngine http(HTTPOptions::ofEnvironment());
        reply = stampOf(http, authority, hash(HashAlgorithm::sha256, *bytes));
        stampFile->write(reply);
        stampFile->commit();
    } catch (const OutputFileError& error) {
        return fail(unwritable(error, reader), 1);
    } catch (const std::runtime_error& error) {  // of HTTP, or StampError
        return fail(reader.translate("%1 gave no time stamp: %2", {host, detailText(error.what(), reader)}),
                    1);
    }
    writeOutput(inertLine(lineOf(reply, file, trusted, reader), reader.language) + "\n");
    return 0;
}

}  // namespace quillmark
