// A message, a zero byte, and what resolver and registry answer, behind a line "9989" where that RFC's rules
// are to be used: the whole way from bytes to a report, which follows from its own findings. So that more
// inputs are tried, for every eighth length of input only: it is the same the second time, and reads back
// from its JSON; and for every 64th only, what was changed is looked for, which costs more than all else.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "QuillmarkKit/Checks/Verdict.h"
#include "QuillmarkKit/Notes.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Verifier.h"
#include "fuzz/InputResolver.h"

namespace {

using namespace quillmark;
using fuzz::require;

/// The next line of the input is a date, "!" a failure; anything else is no date.
struct InputRegistry : RegistrationLookup {
    std::shared_ptr<fuzz::InputResolver> answers;
    int questions = 0;
    std::optional<Date> registrationDate(std::string_view domain, const Patience& = {}) override {
        require(!domain.empty());
        ++questions;
        const std::string_view line = takePiece(answers->rest, '\n');
        if (line == "!") throw RDAPError("no answer");
        return parsedRFC3339(line);
    }
};

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");

/// Remembers the fixed key under each name that begins with "gone", as a file's where it goes on with "-".
struct FixedMemory : KeyMemory {
    std::vector<KnownKey> keysOf(std::string_view name) override {
        if (!name.starts_with("gone")) return {};
        KnownKey key{
            std::string(name), std::string(fuzz::fixedKeyRecord), now, now, "dns.example", false, {}};
        if (name.starts_with("gone-")) key.file = {"keys.json", now};
        return {std::move(key)};
    }
    void saw(std::string_view, std::span<const std::string> records, const std::string&, bool) override {
        require(!records.empty());
    }
};

ProofReport checked(const MailMessage& message, std::string_view answers, Undoing undoing) {
    constexpr std::string_view newer = "9989\n";
    CheckRules rules{.undoing = undoing};
    if (answers.starts_with(newer)) {
        answers.remove_prefix(newer.size());
        rules.dmarc = DMARCRules::rfc9989;
    }
    // A record at the top and at each counted term, or ten hosts and their MX answer in place of it.
    constexpr int mostSPF = 1 + 10 * 11, mostDKIM = 10, mostARC = 2 * 50, mostDMARC = 2;
    const auto resolver = std::make_shared<fuzz::InputResolver>();
    resolver->rest = answers;
    const auto registry = std::make_shared<InputRegistry>();
    registry->answers = resolver;
    const Verifier verifier(resolver, registry, PublicSuffixList::shared(), {}, rules,
                            std::make_shared<FixedMemory>());
    auto report = verifier.verify(message, "a.eml", now, UUID{});
    require(resolver->questions <= mostSPF + mostDKIM + mostARC + mostDMARC);
    require(registry->questions <= 6);
    return report;
}

void checkJSON(const ProofReport& report) {
    const std::string json = compactJSON(report);
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    require(isUTF8(json) && std::ranges::none_of(json, isControl));
    require(reportFromJSON(json) == report);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const auto message = MailMessage::parse(takePiece(rest, '\0'));
    const Undoing undoing = size % 64 == 0 ? Undoing::on : Undoing::off;
    const ProofReport report = checked(message, rest, undoing);
    if (size % 8 == 0) {
        require(report == checked(message, rest, undoing));
        checkJSON(report);
    }

    const auto& suffixes = PublicSuffixList::shared();
    const bool hasBody = message.body().has_value();
    require(report.verdict ==
            verdict(report.verdict.fromDomain, report.dkim, report.dmarc, report.arc, suffixes));
    require(report.verdict.fromDomain.empty() || report.summary.from.size() == 1);
    require(report.limits == limits(report.dkim, report.arc.status, report.spf.status, hasBody));
    require(report.headersOnly == !hasBody);

    constexpr std::size_t mostNotes = 16, longestNotes = 16 * 1024;  // of a message of any size
    require(report.notes.size() <= mostNotes);
    ProofReport onlyNotes;
    onlyNotes.notes = report.notes;
    require(compactJSON(onlyNotes).size() <= longestNotes);
    require(!(message.earlyEnd() && hasBody));
    return 0;
}
