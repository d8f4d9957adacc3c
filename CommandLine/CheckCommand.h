#pragma once

#include <optional>
#include <string>
#include <vector>

#include "QuillmarkKit/Verifier.h"
#include "Settings/StoredSettings.h"
#include "Wording/Reader.h"
#include "Wording/TextReport.h"

namespace quillmark {

/// `quillmark check`. What changes a report belongs into the digest of `ResultFolder`, too.
struct CheckCommand {
    std::vector<std::string> files = {};        ///< messages, mailboxes and folders; "-" is standard input
    std::optional<std::string> filesFrom = {};  ///< a list of more of them; "-" is standard input
    bool areNamesZeroEnded = false;             ///< in that list; else each is a line
    bool json = false;
    bool each = false;     ///< a line in place of each report
    bool onePage = false;  ///< for somebody else to read, in place of each report
    bool sha256 = false;   ///< of each message, in JSON and CSV
    bool pasted = false;
    std::optional<bool> domainAge = {};      ///< asks how old domains are, or does not
    std::optional<bool> save = {};           ///< puts the reports into the user's history, or does not
    std::optional<bool> keyBook = {};        ///< looks into the user's key book and adds to it, or does not
    std::vector<std::string> dnsFiles = {};  ///< of which the first that knows an answer gives it
    std::optional<std::string> tsaCA = {};   ///< a file of certificates, for time stamps of those
    std::optional<std::string> registrationsFile = {};
    std::optional<std::string> resolver = {};  ///< as `chosenResolver` takes it
    std::optional<std::string> at = {};        ///< RFC 3339
    std::optional<std::string> record = {};    ///< a file to write what the checks were told into
    bool summary = false;                      ///< tables at the end in place of reports
    std::optional<std::string> csv = {};       ///< a file to write a table of the reports into
    std::optional<std::string> html = {};      ///< a file to write a page about all of them into
    std::optional<std::string> only = {};      ///< tones, with commas: no other report is written or kept
    std::optional<std::string> failOn = {};    ///< a tone
    std::optional<std::string> expect = {};    ///< a domain or address: text reports say whether it is that
    bool noUndo = false;                       ///< doesn't look for what was changed
    std::string dmarc = "7489";                ///< the RFC that judges by a domain's DMARC record, or "9989"
    bool noAttached = false;                   ///< passes over messages that are attached to others
    std::optional<std::string> asSigned = {};  ///< a folder to write what was signed into
    std::optional<std::string> out = {};       ///< a folder for a result file of each part of the input
    int jobs = 0;                              ///< how many messages are checked at once; 0: as suits
    int timeout = 0;                           ///< seconds for the lookups of one message; 0: as usual
    Reader reader = {};                        ///< whom reports and problems are for
    TextLayout layout = {};                    ///< of text reports
    AppOptions options = {};                   ///< and, below, what
    std::optional<AppSettings> settings = {};  ///< what the person chose in the window, if anything

    CheckRules rules() const {
        return {noUndo ? Undoing::off : Undoing::on,
                dmarc == "9989" ? DMARCRules::rfc9989 : DMARCRules::rfc7489};
    }
    /// Whether registries may be asked: what the options say, else the settings.
    bool asksRegistries() const;
    /// Whether the reports go into the history: what the options say, else the settings. Without either, and
    /// for a check that is repeated from a file, they do not.
    bool keepsReports() const;

    /// Whether keys that are gone are looked for in the key book: by itself where DNS is asked, never with
    /// --out.
    bool usesKeyBook() const;
    /// Whether keys that DNS gives are added to it: what the options say, else the settings; never answers of
    /// a file.
    bool remembersKeys() const;

    /// Checks every file and writes the reports in input order as soon as they are ready. Returns the exit
    /// status: 0 when every message was checked, 1 when some input could not be or the recording, the history
    /// or the CSV file could not be written, 2 when the arguments or the answers file are at fault, 3 when a
    /// verdict has the tone `failOn` or a worse one.
    int run() const;
};

}  // namespace quillmark
