// What it costs that the window has messages read and the network asked by processes of their own: the CPU
// time of all of them, and the clock's, for a folder and for a mailbox of 10,000 small messages from 200
// domains, each with one signature.
//
//     cmake --preset bench -DQUILLMARK_DESKTOP=ON && cmake --build --preset bench --target apart_load
//     build/bench/bench/apart_load folder apart 0          (or: mailbox; here; milliseconds to an answer)

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "Apart/CheckWorker.h"
#include "Apart/NetworkProcess.h"
#include "Apart/NetworkWorker.h"
#include "Quillmark/AppModel.h"
#include "Settings/CurrentTime.h"
#include "tests/TestSigner.h"

namespace {

using namespace quillmark;
using Clock = std::chrono::steady_clock;

constexpr int messages = 10'000, domains = 200;

/// Answers each question late the first time, and then at once, as the resolvers do.
class LateResolver : public DNSResolver {
public:
    LateResolver(StaticResolver::Answers answers, std::chrono::milliseconds delay)
        : m_answers(std::move(answers)), m_delay(delay) {}
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience) override {
        const std::string key = StaticResolver::key(name, type);
        {
            const std::lock_guard lock(m_mutex);
            if (const auto known = m_known.find(key); known != m_known.end()) return known->second;
        }
        std::this_thread::sleep_for(m_delay);
        const DNSAnswer answer = m_answers.lookup(name, type, patience);
        const std::lock_guard lock(m_mutex);
        return m_known.try_emplace(key, answer).first->second;
    }

private:
    StaticResolver m_answers;
    const std::chrono::milliseconds m_delay;
    std::mutex m_mutex = {};
    std::map<std::string, DNSAnswer> m_known = {};
};

double seconds(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// CPU time of a process and of those that it, or they, have started.
double processorTime(pid_t process) {
    clockid_t clock = {};
    double sum = clock_getcpuclockid(process, &clock) == 0 ? seconds(clock) : 0;
    std::ifstream children("/proc/" + std::to_string(process) + "/task/" + std::to_string(process) +
                           "/children");
    for (pid_t child = 0; children >> child;) sum += processorTime(child);
    return sum;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    const bool isFolder = argv[1] == std::string_view("folder");
    const bool isApart = argv[2] == std::string_view("apart");
    const std::chrono::milliseconds delay(std::atoi(argv[3]));

    const auto key = test::PrivateKey::rsa(2048);
    StaticResolver::Answers answers;
    for (int i = 0; i < domains; ++i) {
        const std::string domain = "sender" + std::to_string(i) + ".example";
        answers.emplace("key._domainkey." + domain + "|TXT", DNSAnswer::records({test::keyRecord(key)}));
        answers.emplace("_dmarc." + domain + "|TXT", DNSAnswer::records({"v=DMARC1; p=reject"}));
    }
    const auto resolver = [&](std::string_view) { return std::make_shared<LateResolver>(answers, delay); };

    const QTemporaryDir folder;
    const std::string path = folder.path().toStdString(), mail = path + "/mail";
    AppModel::Surroundings surroundings;
    if (isApart) {
        const auto network = std::make_shared<NetworkProcess>(
            [&](const Channel& channel) { serveNetwork(channel, {.resolver = resolver}); },
            Sandbox{.isNetworked = true});
        surroundings.processes = std::make_shared<CheckProcesses>(serveChecks);
        surroundings.resolver = std::make_shared<ApartResolver>(network, "usual");
    } else {
        surroundings.resolver = resolver("usual");
    }

    if (isFolder) std::filesystem::create_directory(mail);
    for (int i = 0; i < messages; ++i) {
        const std::string domain = "sender" + std::to_string(i * 7919 % domains) + ".example";
        const std::string number = std::to_string(i);
        std::string body;
        while (body.size() < 1'000)
            body += "Line " + number + " of a message, as long as such lines are.\r\n";
        const std::string message = test::signedMessage(
            "From: Alice <alice@" + domain + ">\r\nSubject: Minutes " + number + "\r\n\r\n" + body,
            {.tags = "v=1; d=" + domain + "; s=key; h=from:subject"}, key);
        if (isFolder) {
            std::ofstream(mail + "/" + number + ".eml", std::ios::binary) << message;
        } else {
            std::ofstream(mail, std::ios::binary | std::ios::app) << "From a Sat Jan  3 00:00:00 2026\r\n"
                                                                  << message << "\r\n";
        }
    }

    QCoreApplication application(argc, argv);
    surroundings.historyFile = [&] { return HistoryFile{path + "/history.json"}; };
    surroundings.keyBook = KeyBook::besideHistory(path + "/history.json");
    surroundings.keys =
        std::make_shared<KeptKeys>(KeyBook{surroundings.keyBook}, KeptKeys::Options{.now = currentTime});
    surroundings.settings = std::make_shared<UserSettingsStore>((folder.path() + "/settings.ini"));
    saveSettings({.onboardingDone = true}, *surroundings.settings);
    surroundings.now = currentTime;
    AppModel model(surroundings);
    const auto wait = [](const auto& isDone) {
        while (!isDone()) QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    };
    wait([&] { return model.historyState() != HistoryState::loading; });

    const double before = processorTime(::getpid());
    const auto begun = Clock::now();
    model.openFiles({mail});
    wait([&] { return !model.busy(); });
    const double time = std::chrono::duration<double>(Clock::now() - begun).count();
    std::printf("%s of %zu, %s, %lld ms: %.2f s, %.2f s of CPU time\n", argv[1], model.session().size() - 1,
                argv[2], static_cast<long long>(delay.count()), time, processorTime(::getpid()) - before);
    model.finish();
}
