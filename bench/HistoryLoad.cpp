// Time and peak memory of a history of many reports: each figure is of a process of its own.
//   history_load [REPORTS]

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "QuillmarkKit/HistoryFile.h"

namespace {

using namespace quillmark;
namespace fs = std::filesystem;

/// What a signed message that passed everything leaves behind.
ProofReport ordinaryReport(std::uint32_t number) {
    ProofReport report;
    for (std::size_t i = 0; i < 4; ++i) report.id.bytes[i] = static_cast<std::uint8_t>(number >> (8 * i));
    report.checkedAt = referenceDate + std::chrono::milliseconds(816'948'000'123);
    report.fileName = "message " + std::to_string(number) + ".eml";
    report.summary = {{{"Alice Example", "alice@example.org"}},
                      {},
                      {{"Bob", "bob@example.com"}, {"Carol", "carol@example.com"}},
                      "Minutes of our meeting of last Tuesday",
                      report.checkedAt,
                      "<20261121100000.1234567890@mail.example.org>",
                      "bounces@example.org"};
    DKIMResult& signature = report.dkim.emplace_back();
    signature.status = DKIMResult::Status::pass;
    signature.domain = "example.org";
    signature.selector = "key2026";
    signature.signedHeaders = {"from", "to", "subject", "date", "message-id", "mime-version", "content-type"};
    signature.keyBits = 2048;
    signature.signedAt = report.checkedAt;
    report.spf = {{SPFFinding::Status::Judged{SPFResult::pass}},
                  "example.org",
                  SenderIP{"192.0.2.1", {SenderIP::Source::Received{"mx.example.com"}}, "mail.example.org"},
                  "ip4:192.0.2.0/24 in example.org",
                  std::nullopt};
    report.dmarc.record = "v=DMARC1; p=reject; rua=mailto:reports@example.org";
    report.receiverResults = {{"mx.example.com",
                               {{"dkim", "pass", {{"header.d", "example.org"}}},
                                {"spf", "pass", {{"smtp.mailfrom", "bounces@example.org"}}},
                                {"dmarc", "pass", {{"header.from", "example.org"}}}}}};
    report.domainAge = {"example.org", {DomainAge::Status::Known{referenceDate}}};
    report.verdict = {VerdictKind::verified, Tone::good, "example.org", "example.org", {}};
    report.limits = {Limit::domainNotCompany, Limit::compromisedMailbox};
    return report;
}

void measure(const char* name, const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    rusage usage = {};
    wait4(child, &status, 0, &usage);
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    const auto seconds = [](timeval time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    std::printf("%-32s CPU %6.2f s, wall %6.2f s, peak %6.0f MB%s\n", name,
                seconds(usage.ru_utime) + seconds(usage.ru_stime), wall.count(),
                double(usage.ru_maxrss) * 1024 / 1e6, status == 0 ? "" : " FAILED");
}

}  // namespace

int main(int count, char** values) {
    const auto reports = static_cast<std::uint32_t>(count > 1 ? std::atoi(values[1]) : 100'000);
    std::string pattern = (fs::temp_directory_path() / "quillmark-bench-XXXXXX").string();
    const fs::path folder = mkdtemp(pattern.data());
    const HistoryFile file{folder / "history.json"};
    const Date now = {};
    const auto filled = [&] {
        History history;
        history.reports.reserve(reports);
        for (std::uint32_t i = 0; i < reports; ++i) history.reports.push_back(ordinaryReport(i));
        return history;
    };
    measure("making the reports", [&] { filled(); });
    measure("and saving them", [&] { file.save(filled()); });
    std::printf("%.0f MB on disk\n", double(fs::file_size(file.url)) / 1e6);
    measure("loading", [&] {
        if (file.load(now).reports.size() != reports) std::abort();
    });
    measure("adding one", [&] {
        HistoryChange change;
        if (!change.add(ordinaryReport(reports))) std::abort();
        file.apply(change, now);
    });
    measure("removing one", [&] {
        HistoryChange change;
        change.remove(ordinaryReport(0).id);
        file.apply(change, now);
    });
    fs::remove_all(folder);
}
