#include "Quillmark/AppModel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/ReportJSON.h"
#include "QuillmarkKit/Support/Files.h"
#include "tests/CheckProcessesOfTests.h"
#include "tests/Gate.h"
#include "tests/TestFiles.h"

namespace quillmark {
namespace {

namespace fs = std::filesystem;
using Sheet = AppModel::Sheet;

const Date now = *parsedRFC3339("2026-11-21T10:00:00Z");
constexpr std::string_view mail = "From: a@b.example\r\nSubject: s\r\n\r\nhello\r\n";

class WaitingRegistry : public RegistrationLookup {
public:
    std::optional<Date> registrationDate(std::string_view, const Patience& patience = {}) override {
        ++asked;
        if (!gate.pass(patience.stop)) throw RDAPError("stopped");
        return now;
    }
    test::Gate gate;
    std::atomic<int> asked = 0;
};

/// A model with a folder of its own, and what it stands on.
struct Desk {
    Desk() { saveSettings({.onboardingDone = true}, *store); }

    test::TemporaryFolder folder = {};
    fs::path historyURL = file("data/history.json");
    std::atomic<int> historyUses = 0;
    std::shared_ptr<MemorySettingsStore> store = std::make_shared<MemorySettingsStore>();
    AppModel::Surroundings surroundings = {
        .resolver = std::make_shared<StaticResolver>(StaticResolver::Answers()),
        .historyFile =
            [this] {
                ++historyUses;
                return HistoryFile{historyURL};
            },
        .settings = store,
        .now = [] { return now; },
        .processes = test::checkProcesses(),
        .reader = {.language = Language::english}};
    std::unique_ptr<AppModel> model = {};

    std::string file(const std::string& name) const { return folder / name; }
    std::string write(const std::string& name, std::string_view bytes) const {
        return folder.write(name, bytes);
    }
    HistoryFile history() const { return {historyURL}; }
    AppModel& start() {
        model = nullptr;
        model = std::make_unique<AppModel>(surroundings);
        return *model;
    }
    /// Starts it and waits until it has its history, or knows why not.
    AppModel& ready() {
        start();
        waitFor([&] { return model->historyState() != HistoryState::loading; });
        return *model;
    }
    template <typename Condition>
    static void waitFor(Condition condition) {
        QElapsedTimer timer;
        timer.start();
        while (!condition() && timer.elapsed() < 60'000) {
            QCoreApplication::processEvents();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_TRUE(condition());
    }
    void idle() {
        waitFor([&] { return !model->busy(); });
    }
    /// Clears the history as the window does, with something `between` the question and the answer; gives
    /// what came of it.
    std::string clear(const std::function<void()>& between = [] {}) {
        std::string outcome;
        QObject scope;
        QObject::connect(model.get(), &AppModel::historyContentsRead, &scope, [&](const auto& contents) {
            between();
            model->clearHistory(contents);
        });
        QObject::connect(model.get(), &AppModel::historyCleared, &scope,
                         [&](const std::string& line) { outcome = line; });
        model->readHistoryContents();
        waitFor([&] { return !outcome.empty(); });
        return outcome;
    }
};

std::set<UUID> idsIn(const History& history) {
    std::set<UUID> ids;
    for (const ProofReport& report : history.reports) ids.insert(report.id);
    return ids;
}

std::vector<std::string> names(const AppModel& model) {
    std::vector<std::string> names;
    for (const auto& row : model.session()) names.push_back(row.name.value_or("(pasted)"));
    return names;
}

TEST(AppModel, whatIsTakenInAndWhatIsRefused) {
    Desk desk;
    fs::create_directory(desk.file("folder"));
    fs::create_directory(desk.file("pictures"));
    for (const char* name : {"pictures/1.jpg", "pictures/2.jpg"}) desk.write(name, "\xff\xd8\xff\xe0");
    const std::string hostile = "a\n[OK]\x1b[2J\u202e\xff.eml";
    const std::string noMail =
        " doesn’t look like an email: no From, Received or DKIM-Signature header was found.";
    const auto large = [&](const char* name, std::uintmax_t size) {
        const std::string path = desk.write(name, mail);
        fs::resize_file(path, size);
        return path;
    };
    const struct {
        std::string path;
        std::optional<std::string> problem;
    } rows[] = {
        {desk.write("good.eml", mail), std::nullopt},
        {desk.write("latin1.eml", "From: a@b.example\r\nSubject: caf\xe9\r\n\r\n\xff\xfe\r\n"), std::nullopt},
        {large("full.eml", 50'000'000), std::nullopt},
        {large("large.eml", 50'000'001), "“large.eml” is larger than 50 MB, too large for a single email."},

        {desk.file("missing.eml"), "“missing.eml” couldn’t be read: No such file or directory"},
        {desk.file("folder"), "No email was found in “folder”."},

        {desk.file("pictures"), "No email was found in “pictures”."},
        {desk.write(hostile, "x"), "“a [OK]\uFFFD[2J‹U+202E›\uFFFD.eml”" + noMail},
    };
    AppModel& model = desk.ready();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        const std::size_t before = model.session().size();
        model.openFiles({row.path});
        EXPECT_FALSE(model.problem());
        desk.idle();
        EXPECT_EQ(model.problem(), row.problem);
        EXPECT_EQ(model.session().size(), before + (row.problem ? 0 : 1));
        EXPECT_EQ(model.problem().value_or("").find('\n'), std::string::npos);
    }

    model.openFiles({rows[0].path, rows[5].path, rows[1].path});
    desk.idle();
    EXPECT_EQ(model.problem(), rows[5].problem);
    EXPECT_EQ(names(model).at(0), "good.eml");
    EXPECT_EQ(names(model).at(1), "latin1.eml");
}

TEST(AppModel, mailboxesAndFoldersGiveAllTheirMessages) {
    constexpr int count = 500;
    std::string mbox;
    for (int i = 1; i <= count; ++i) {
        mbox += "From a@b.example Sat Nov 21 10:00:00 2026\n" +
                (i == 3 ? "no mail" : "From: a@b.example\nSubject: " + std::to_string(i)) + "\n\nhello\n\n";
    }
    Desk desk;
    fs::create_directories(desk.file("Maildir/cur"));
    for (const char* name : {"new", "tmp"}) fs::create_directory(desk.file("Maildir/") + name);
    for (const char* name : {"cur/1:2,S", "new/2"}) desk.write(std::string("Maildir/") + name, mail);
    AppModel& model = desk.ready();
    model.openFiles({desk.write("Inbox", mbox), desk.file("Maildir"), desk.write("one.eml", mail)});
    EXPECT_EQ(model.session().size(), 3u);
    desk.idle();
    ASSERT_EQ(model.session().size(), 1 + count - 1 + 1 + 2 + 1u);
    EXPECT_EQ(names(model).at(0), "Inbox");
    EXPECT_TRUE(model.session()[0].isDone && !model.session()[0].isRunning);
    EXPECT_EQ(model.session()[0].found, count - 1u);
    EXPECT_EQ(names(model).at(1), "Inbox, message 1");
    EXPECT_EQ(names(model).at(3), "Inbox, message 4") << "in their order, whoever was done first";
    EXPECT_EQ(names(model).at(count - 1), "Inbox, message 500");
    EXPECT_EQ(names(model).at(count + 1), "Maildir/cur/1:2,S");
    EXPECT_EQ(names(model).back(), "one.eml");
    EXPECT_EQ(model.session()[498].report->summary.subject, "499");
    EXPECT_EQ(model.selection(), model.session()[0].id);
    EXPECT_TRUE(model.canRecheck(model.session()[7].id));
    EXPECT_EQ(model.problem(),
              "“Inbox, message 3” doesn’t look like an email: no From, Received or "
              "DKIM-Signature header was found.");
}

/// A message with others attached: "inner" in a message that is attached itself, and "second".
std::string messageWithAttached(const std::string& subject) {
    const auto multipart = [](const std::string& head, const std::string& boundary,
                              const std::vector<std::string>& parts) {
        std::string text = head + "Content-Type: multipart/mixed; boundary=" + boundary + "\n";
        for (const std::string& each : parts)
            text += "\n--" + boundary + "\nContent-Type: message/rfc822\n\n" + each;
        return text + "\n--" + boundary + "--\n";
    };
    const std::string inner = "From: c@b.example\nSubject: inner\n\nhello\n";
    return multipart("From: a@b.example\nSubject: " + subject + "\n", "b1",
                     {multipart("From: b@b.example\nSubject: first\n", "b2", {inner}),
                      "From: d@b.example\nSubject: second\n\nhello\n"});
}

TEST(AppModel, attachedMessagesAreReportsOfTheirOwn) {
    const std::string attached = messageWithAttached("outer");
    std::string mbox;
    for (const std::string& each : {attached, std::string("From: e@b.example\n\nhello\n")})
        mbox += "From a@b.example Sat Nov 21 10:00:00 2026\n" + each + "\n";
    const auto below = [](const std::string& name) {
        const std::string comma = name.empty() ? "" : name + ", ";
        return std::vector<std::string>{name.empty() ? "(pasted)" : name, comma + "attached message 1",
                                        comma + "attached message 1.1", comma + "attached message 2"};
    };
    Desk desk;
    desk.surroundings.keptBytes = 1;  // none
    AppModel& model = desk.ready();
    const std::string path = desk.write("x.eml", attached), inbox = desk.write("Inbox", mbox);
    const auto expected = [&](std::vector<std::string> names, const std::function<void()>& open) {
        SCOPED_TRACE(names[0]);
        while (!model.session().empty()) model.removeFromList({model.session()[0].id});
        open();
        desk.idle();
        EXPECT_EQ(quillmark::names(model), names);
        std::set<std::string> subjects;
        for (const auto& row : model.session()) {
            EXPECT_FALSE(row.isRunning);
            if (row.isDone) continue;
            subjects.insert(row.report->summary.subject);
            EXPECT_EQ(row.report->fileName.value_or("(pasted)"), row.name.value_or("(pasted)"));
        }
        EXPECT_TRUE(
            std::ranges::includes(subjects, std::set<std::string>{"first", "inner", "outer", "second"}));
        EXPECT_EQ(model.problem(), std::nullopt);
    };
    expected(below(""), [&] { model.paste(attached); });
    expected(below("data"), [&] { model.checkData(ByteBuffer(attached), "data"); });
    auto all = below("Inbox, message 1");
    all.insert(all.begin(), "Inbox");
    all.push_back("Inbox, message 2");
    expected(all, [&] { model.openFiles({inbox}); });
    expected(below("x.eml"), [&] { model.openFiles({path}); });

    model.openFiles({inbox});
    desk.idle();
    for (const std::size_t row : {3u, 5u, 8u}) {  // in a mailbox, there alone, in a file
        SCOPED_TRACE(row);
        const auto before = model.session();
        ASSERT_TRUE(model.canRecheck(before[row].id));
        model.recheck(before[row].id);
        desk.idle();
        EXPECT_EQ(names(model),
                  (std::vector<std::string>{
                      "Inbox", "Inbox, message 1", "Inbox, message 1, attached message 1",
                      "Inbox, message 1, attached message 1.1", "Inbox, message 1, attached message 2",
                      "Inbox, message 2", "x.eml", "x.eml, attached message 1", "x.eml, attached message 1.1",
                      "x.eml, attached message 2"}));
        EXPECT_NE(model.session()[row].id, before[row].id);
        EXPECT_EQ(model.session()[row].report->summary, before[row].report->summary);
    }
    EXPECT_EQ(model.progress(), (AppModel::Progress{1, 1}));

    desk.write("Inbox", "From a@b.example Sat Nov 21 10:00:00 2026\nFrom: f@b.example\n\nnew\n\n" + mbox);
    const auto before = model.session();
    model.recheck(before[5].id);
    desk.idle();
    EXPECT_EQ(model.problem(),
              "“Inbox, message 2” isn’t where it was: its file has changed since. Open the file again to "
              "check what it holds now.");
    EXPECT_EQ(model.session(), before);
}

TEST(AppModel, whatWasRemovedComesBack) {
    Desk desk;
    AppModel& model = desk.ready();
    const auto ids = [&] {
        std::vector<UUID> all;
        for (const auto& row : model.session()) all.push_back(row.id);
        return all;
    };
    for (int i = 0; i < 3; ++i) model.paste(mail);
    desk.idle();
    const std::vector<UUID> all = ids();
    model.removeFromList({all[0], all[2]});
    EXPECT_EQ(ids(), std::vector{all[1]});
    EXPECT_TRUE(model.isInHistory(all[0]));
    model.removeFromHistory({all[1], all[2]});
    EXPECT_FALSE(model.isInHistory(all[1]));
    model.undoRemoval();
    EXPECT_TRUE(model.isInHistory(all[1]) && model.isInHistory(all[2]));
    model.undoRemoval();
    EXPECT_EQ(ids(), all);
    EXPECT_TRUE(model.canRecheck(all[0]));
    EXPECT_FALSE(model.canUndoRemoval());
    model.removeFromHistory({all[1]});
    model.clearHistory({});
    EXPECT_FALSE(model.canUndoRemoval()) << "what is cleared can't be brought back";
    model.finish();
    EXPECT_EQ(desk.history().load(now).reports.size(), 2u);
}

TEST(AppModel, aMailboxIsStoppedInTheMiddle) {
    std::string mbox;
    for (int i = 0; i < 5'000; ++i)
        mbox += "From a@b.example Sat Nov 21 10:00:00 2026\nFrom: a@b.example\n\nhello\n\n";
    Desk desk;
    AppModel& model = desk.ready();
    model.openFiles({desk.write("Inbox", mbox)});
    desk.waitFor([&] { return model.session().size() > 1; });
    EXPECT_TRUE(model.session()[0].isRunning);
    EXPECT_GT(model.progress().found, 0u);
    EXPECT_GT(model.progress().ofMailboxes, 0.0);
    model.cancel(model.session()[0].id);
    const auto left = model.session();
    EXPECT_FALSE(model.busy());
    EXPECT_FALSE(left[0].isRunning);
    EXPECT_EQ(left[0].stopped->checked, left.size() - 1);
    desk.waitFor([&] { return model.session()[0].stopped->all.has_value(); });
    EXPECT_EQ(model.session()[0].stopped->all, 5'000u);
    model.openFiles({desk.write("one.eml", mail)});
    desk.idle();
    EXPECT_EQ(model.session().size(), left.size() + 1) << "nothing came afterwards";
    model.removeFromList({left[0].id});
    EXPECT_EQ(model.session().size(), left.size());
}

TEST(AppModel, pastedText) {
    const struct {
        std::string text, problem;  ///< how it begins
    } rows[] = {
        {"Received: from a by b; Sat, 21 Nov 2026 11:00:00 +0100", ""},
        {"  dkim-signature: v=1", ""},
        {"Hello,\n\nFrom: me", "That doesn’t look like an email"},
        {"From: a@b.example\n" + std::string(50'000'000, 'x'), "That is larger than 50 MB"},
    };
    Desk desk;
    AppModel& model = desk.ready();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 40));
        EXPECT_EQ(!model.whyNotPasted(row.text), row.problem.empty());
        const UUID id = model.paste(row.text);
        EXPECT_EQ(model.selection(), id);
        desk.idle();
        EXPECT_TRUE(model.problem().value_or("").starts_with(row.problem));
        EXPECT_EQ(model.report(id) != nullptr, row.problem.empty());
    }
    EXPECT_EQ(model.session().size(), 2u);
    EXPECT_EQ(model.selection(), std::nullopt) << "no earlier report under a refusal";
    EXPECT_EQ(model.refusal(), model.problem());
    EXPECT_EQ(model.session()[0].name, std::nullopt);
}

TEST(AppModel, bytesStayBytes) {
    const SigningKey key = SigningKey::newEd25519().value();
    const std::string sent = "From: a@b.example\r\nSubject: caf\xe9\r\n\r\nna\xefve \x80\xff\r\n";
    const Signer::Options options = {.domain = "b.example", .selector = "k", .headers = {"from", "subject"}};
    const std::string message = Signer::dkimSignature(MailMessage::parse(sent), options, key) + "\r\n" + sent;
    Desk desk;
    desk.surroundings.resolver = std::make_shared<StaticResolver>(StaticResolver::Answers{
        {"k._domainkey.b.example|TXT", DNSAnswer::records({Signer::keyRecord(key)})}});
    AppModel& model = desk.ready();
    model.openFiles({desk.write("a.eml", message)});
    model.checkData(ByteBuffer(message), "promised\xff/../name");
    desk.idle();
    ASSERT_EQ(model.session().size(), 2u);
    for (const auto& row : model.session()) {
        EXPECT_EQ(row.report->verdict.kind, VerdictKind::verified);
        EXPECT_EQ(row.report->id, row.id);
        const auto made = model.message(row.id).value();
        EXPECT_EQ(made.source.bytes->view(), message);
        EXPECT_TRUE(made.answers->dns.find("k._domainkey.b.example|TXT"));
    }
    EXPECT_EQ(names(model), (std::vector<std::string>{"promised\uFFFD/../name", "a.eml"}));
}

TEST(AppModel, asksWhoeverIsChosen) {
    Desk desk;
    std::vector<std::string> choices;
    desk.surroundings.otherResolver = [&](std::string_view choice) {
        choices.emplace_back(choice);
        return std::make_shared<StaticResolver>(
            StaticResolver::Answers{{"_dmarc.b.example|TXT", DNSAnswer::records({"v=DMARC1; p=none"})}},
            std::set<std::string, std::less<>>{}, StaticResolver::Texts{}, std::nullopt,
            StaticResolver::Texts{{"_dmarc.b.example|TXT", "system"}});
    };
    const auto resolvers = [&](AppModel& model) {
        const UUID id = model.paste("From: a@b.example\r\n\r\nx\r\n");
        desk.idle();
        std::vector<std::string> names;
        for (const ReportNote& note : model.report(id)->notes) {
            if (const auto* by = std::get_if<ReportNote::AnsweredBy>(&note.value))
                names.push_back(by->resolver);
        }
        return names;
    };
    AppModel& model = desk.ready();
    EXPECT_TRUE(resolvers(model).empty());
    model.setResolver("system");
    EXPECT_EQ(resolvers(model), std::vector<std::string>{"system"});
    EXPECT_EQ(resolvers(desk.ready()), std::vector<std::string>{"system"});  // in the next run
    desk.model->setResolver("usual");
    EXPECT_TRUE(resolvers(*desk.model).empty());
    EXPECT_EQ(choices, (std::vector<std::string>{"system", "system"}));
}

TEST(AppModel, theRulesThatWereChosenJudge) {
    Desk desk;
    const auto saysSo = [&](AppModel& model) {
        const UUID id = model.paste("From: a@b.example\r\n\r\nx\r\n");
        desk.idle();
        return std::ranges::any_of(model.report(id)->notes, [](const ReportNote& note) {
            return std::holds_alternative<ReportNote::JudgedByNewerDMARC>(note.value);
        });
    };
    AppModel& model = desk.ready();
    EXPECT_FALSE(saysSo(model));
    model.setJudgeByRFC9989(true);
    EXPECT_TRUE(saysSo(model));
    EXPECT_TRUE(saysSo(desk.ready()));  // in the next run
}

TEST(AppModel, rowsAreThereAtOnceAndCanBeCancelled) {
    Desk desk;
    const auto resolver = std::make_shared<test::GatedResolver>();
    desk.surroundings.resolver = resolver;
    AppModel& model = desk.ready();
    const std::string a = desk.write("a", mail), b = desk.write("b", mail), c = desk.write("c", mail);
    const UUID pasted = model.paste(mail);
    model.openFiles({desk.write("none", "x"), a, b, c});
    EXPECT_EQ(names(model), (std::vector<std::string>{"none", "a", "b", "c", "(pasted)"}));
    for (const auto& row : model.session()) EXPECT_TRUE(row.isRunning && !row.report);
    EXPECT_EQ(model.selection(), model.session()[0].id);
    EXPECT_TRUE(model.busy());
    desk.waitFor([&] { return model.session().size() == 4 && resolver->gate.waiting == 4; });
    EXPECT_EQ(model.progress(), (AppModel::Progress{1, 5}));
    EXPECT_EQ(model.selection(), model.session()[0].id);  // of the refused file's intake the next

    model.cancel(model.session()[0].id);
    model.removeFromList({pasted});
    EXPECT_EQ(names(model), (std::vector<std::string>{"b", "c"}));
    EXPECT_EQ(model.selection(), model.session()[0].id);
    resolver->gate.open();
    desk.idle();
    desk.waitFor([&] { return resolver->gate.waiting == 0; });
    EXPECT_EQ(names(model), (std::vector<std::string>{"b", "c"}));  // nothing cancelled comes back
    EXPECT_EQ(model.progress(), (AppModel::Progress{5, 5}));
    model.finish();
    EXPECT_EQ(desk.history().load(now).reports.size(), 2u);
}

TEST(AppModel, aPipeThatGivesNothingKeepsNobodyWaitingForEver) {
    Desk desk;
    const std::string silent = desk.file("silent"), speaking = desk.file("speaking");
    ASSERT_EQ(mkfifo(silent.c_str(), 0600) + mkfifo(speaking.c_str(), 0600), 0);
    AppModel& model = desk.ready();
    model.openFiles({silent, speaking});
    model.cancel(model.session()[0].id);
    const std::jthread writer([&] { std::ofstream(speaking) << mail; });
    desk.idle();
    EXPECT_EQ(names(model), std::vector<std::string>{"speaking"});
    model.openFiles({silent});
    model.finish();
    EXPECT_EQ(names(model), std::vector<std::string>{"speaking"});
}

TEST(AppModel, checkingAgain) {
    Desk desk;
    const auto resolver = std::make_shared<test::GatedResolver>();
    desk.surroundings.resolver = resolver;
    desk.surroundings.keptBytes = mail.size();  // one message
    resolver->gate.open();
    AppModel& model = desk.ready();
    const std::string path = desk.write("a.eml", mail);
    model.openFiles({path});
    desk.idle();
    const UUID first = model.session()[0].id;
    model.recheck(first);
    EXPECT_TRUE(model.session()[0].isRunning && model.session()[0].report);
    EXPECT_FALSE(model.canRecheck(first));
    desk.idle();
    const UUID second = model.session()[0].id;
    EXPECT_NE(second, first);
    EXPECT_EQ(model.selection(), second);
    EXPECT_EQ(model.report(second)->id, second);
    EXPECT_TRUE(model.report(first));  // in the history
    EXPECT_EQ(model.session().size(), 1u);
    EXPECT_FALSE(model.canRecheck(first));

    const UUID pasted = model.paste(mail);
    desk.idle();
    EXPECT_FALSE(model.message(second));  // let go, but its file is still there
    EXPECT_TRUE(model.message(pasted));
    model.recheck(second);
    desk.idle();
    fs::remove(path);
    const auto before = model.session();
    ASSERT_TRUE(model.canRecheck(before[1].id));
    model.recheck(before[1].id);
    desk.idle();
    EXPECT_EQ(model.problem(), "“a.eml” couldn’t be read: No such file or directory");
    EXPECT_EQ(model.session(), before);
    model.recheck(pasted);
    model.cancel(pasted);
    EXPECT_EQ(model.session(), before);
    model.finish();
    EXPECT_EQ(desk.history().load(now).reports.size(), 4u);
}

TEST(AppModel, theHistoryFromRunToRun) {
    Desk desk;
    desk.ready();
    std::vector<UUID> ids;
    for (int i = 0; i < 60; ++i) ids.push_back(desk.model->paste(mail));
    const std::string huge(6'000'000, 'x');
    desk.model->openFiles({desk.write("huge.eml", "From: a@b.example\r\nSubject: " + huge + "\r\n\r\n")});
    desk.idle();
    EXPECT_EQ(desk.model->problem(), "The report on “huge.eml” is too large to be kept in the history.");
    desk.model->removeFromHistory({ids[7]});
    desk.waitFor([&] { return desk.history().load(now).reports.size() == 59; });
    EXPECT_LE(desk.historyUses, 5);  // one save a burst, not one a report

    AppModel& model = desk.ready();
    EXPECT_TRUE(model.session().empty());
    ASSERT_EQ(model.history().size(), 59u);
    EXPECT_FALSE(model.report(ids[7]));
    const UUID newest = model.history()[58]->id;
    EXPECT_FALSE(model.canRecheck(newest));
    model.select(newest);
    model.removeFromHistory({newest});
    EXPECT_EQ(model.selection(), std::nullopt);
    model.select(model.history()[57]->id);
    model.setKeepHistory(false);
    EXPECT_TRUE(model.history().empty());
    EXPECT_EQ(model.selection(), std::nullopt);
    model.paste(mail);
    desk.idle();
    EXPECT_EQ(desk.ready().historyState(), HistoryState::off);
    EXPECT_EQ(desk.history().load(now).reports.size(), 58u);  // stays until it is cleared
    desk.model->setKeepHistory(true);
    desk.waitFor([&] { return desk.model->history().size() == 58; });
    desk.model->paste(mail);
    desk.idle();  // and not yet saved
    EXPECT_EQ(desk.clear([&] {
        desk.model->paste(mail);
        desk.idle();
    }),
              "59 reports were removed from the history.");
    desk.waitFor([&] { return desk.model->history().size() == 1; });
    desk.model->finish();
    EXPECT_EQ(idsIn(desk.history().load(now)), std::set{desk.model->session().front().id});
}

TEST(AppModel, aHistoryThatMustNotBeWrittenOver) {
    const std::string newer = R"({"reports":["of another form"],"version":2})";
    for (const bool isNewer : {true, false}) {  // or a folder, which cannot be read
        SCOPED_TRACE(isNewer);
        Desk desk;
        fs::create_directory(desk.file("data"));
        if (isNewer) std::ofstream(desk.historyURL) << newer;
        if (!isNewer) fs::create_directory(desk.historyURL);
        const std::string line =
            isNewer ? "Your history was saved by a newer version of Quillmark. Update "
                      "Quillmark to open it; nothing was changed."
                    : "Your history couldn’t be opened: " + desk.historyURL.string() + ": Is a directory";
        AppModel& model = desk.ready();
        EXPECT_EQ(model.historyState(), HistoryState::locked);
        EXPECT_EQ(model.problem(), line);
        EXPECT_EQ(model.historyLock(), line);
        const UUID id = model.paste(mail);
        desk.idle();
        EXPECT_TRUE(model.report(id));  // the list of this run goes on
        EXPECT_EQ(desk.clear(), line);
        EXPECT_EQ(model.unsaved(), "1 report isn’t saved yet. " + line);
        if (isNewer) {
            model.finish();
            EXPECT_EQ(model.problem(), "1 report wasn’t saved. " + line);
        }
        EXPECT_TRUE(isNewer ? fileContents(desk.historyURL, 1000) == newer
                            : fs::is_directory(desk.historyURL));
        if (isNewer) continue;
        fs::remove(desk.historyURL);
        desk.waitFor([&] { return model.unsaved().empty(); });
        EXPECT_EQ(idsIn(desk.history().load(now)), std::set{id});
    }
    // One that a newer program writes while we run.
    Desk desk;
    AppModel& model = desk.ready();
    fs::create_directory(desk.file("data"));
    std::ofstream(desk.historyURL) << newer;
    model.paste(mail);
    desk.waitFor([&] { return model.historyState() == HistoryState::locked; });
    model.finish();
    EXPECT_EQ(fileContents(desk.historyURL, 1000), newer);
}

TEST(AppModel, aDamagedHistoryIsKeptBeside) {
    Desk desk;
    fs::create_directory(desk.file("data"));
    const auto setAside = [&](const char* number) {
        const std::string name = std::string("history (damaged 2026-11-21T10-00-00Z") + number + ").json";
        EXPECT_EQ(desk.model->problem(),
                  "Your saved history couldn’t be read, so Quillmark started a new one. The old file was "
                  "kept as “" +
                      name + "” in the same folder.");
        return fileContents(desk.file("data/" + name), 1000);
    };
    ProofReport good;
    good.id = UUID::random();
    const std::string broken = "{\"reports\":[" + compactJSON(good) + ",{";
    std::ofstream(desk.historyURL) << broken;
    AppModel& model = desk.ready();
    EXPECT_EQ(setAside(""), broken);
    ASSERT_TRUE(model.damagedHistory());
    model.recoverHistory(*model.damagedHistory());
    desk.waitFor([&] { return !model.damagedHistory() && model.history().size() == 1; });
    EXPECT_EQ(model.history().front()->id, good.id);
    EXPECT_TRUE(model.problem()->starts_with("1 report was put back into your history. "));
    const UUID id = model.paste(mail);
    desk.waitFor([&] { return desk.history().load(now).reports.size() == 2; });

    std::ofstream(desk.historyURL) << "broken while we run";
    const UUID next = model.paste(mail);
    desk.idle();
    desk.waitFor([&] { return model.problem().has_value(); });
    EXPECT_EQ(setAside(" 2"), "broken while we run");
    desk.waitFor([&] { return model.history().size() == 1; });  // what the new file holds
    EXPECT_EQ(model.history()[0]->id, next);
    EXPECT_TRUE(model.report(id));

    const fs::path locked = desk.file("data/history (damaged 2026-11-21T10-00-00Z 2).json");
    EXPECT_EQ(desk.clear([&] {
        fs::remove(locked);
        fs::create_directories(locked / "folder");
    }),
              "1 report was removed from the history.\nNot everything could be removed: " + locked.string() +
                  ": Directory not empty");
}

TEST(AppModel, aFailedSaveIsMadeUpFor) {
    Desk desk;
    AppModel& model = desk.ready();
    std::ofstream(desk.file("data")) << "in the way";
    const UUID first = model.paste(mail), second = model.paste(mail);
    desk.waitFor([&] { return model.problem().has_value(); });
    const std::string line =
        "Quillmark couldn’t save your history: " + desk.file("data") + ": Not a directory";
    EXPECT_EQ(model.problem(), line);
    EXPECT_EQ(model.history().size(), 2u);
    EXPECT_EQ(model.unsaved(), "2 reports aren’t saved yet. " + line);
    fs::remove(desk.file("data"));
    desk.waitFor([&] {
        model.refreshHistory();
        return model.unsaved().empty();
    });
    EXPECT_EQ(idsIn(desk.history().load(now)), (std::set{first, second}));
    EXPECT_EQ(model.problem(), std::nullopt);

    // But what could not be cleared then stays.
    const fs::path lock = desk.file("data/.history.json.lock");
    fs::remove(lock);
    fs::create_directory(lock);
    EXPECT_EQ(desk.clear(), "Your history couldn’t be cleared: " + lock.string() + ": Is a directory");
    EXPECT_EQ(model.history().size(), 2u);
    EXPECT_EQ(model.unsaved(), "");
    fs::remove(lock);
    const UUID third = model.paste(mail);
    desk.idle();
    model.finish();
    EXPECT_EQ(idsIn(desk.history().load(now)), (std::set{first, second, third}));
}

TEST(AppModel, othersMayChangeTheHistoryMeanwhile) {
    Desk desk;
    AppModel& model = desk.ready();
    const UUID removedElsewhere = model.paste(mail);
    desk.waitFor([&] { return fs::exists(desk.historyURL); });
    ProofReport added;
    added.id = UUID::random();
    HistoryChange elsewhere;
    ASSERT_TRUE(elsewhere.add(added));
    elsewhere.remove(removedElsewhere);
    desk.history().apply(elsewhere, now);
    const UUID ours = model.paste(mail);
    desk.idle();
    desk.waitFor([&] { return model.history().size() == 2 && model.report(added.id); });
    EXPECT_EQ(idsIn(desk.history().load(now)), (std::set{added.id, ours}));

    // While we wait for our turn.
    ProofReport another;
    another.id = UUID::random();
    {
        const FileLock turn(desk.file("data/.history.json.lock"));
        const int uses = desk.historyUses;
        model.paste(mail);
        desk.waitFor([&] { return desk.historyUses > uses; });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        History written = desk.history().load(now);
        written.reports.push_back(another);
        HistoryFile{desk.file("elsewhere/history.json")}.save(written);
        fs::rename(desk.file("elsewhere/history.json"), desk.historyURL);
    }
    desk.waitFor([&] { return model.history().size() == 4 && model.report(another.id); });
    model.removeFromHistory({another.id});
    model.removeFromHistory({model.session().front().id});
    desk.waitFor([&] { return desk.history().load(now).reports.size() == 2; });

    HistoryChange removal;
    removal.remove(added.id);
    desk.history().apply(removal, now);
    desk.waitFor([&] {
        model.refreshHistory();  // not while our own change is being saved
        return !model.report(added.id);
    });
    EXPECT_EQ(model.history().size(), 1u);
}

TEST(AppModel, quittingCancelsChecksAndKeepsWhatIsDone) {
    Desk desk;
    const auto resolver = std::make_shared<test::GatedResolver>();
    desk.surroundings.resolver = resolver;
    AppModel& model = desk.start();  // its history is still being read
    const UUID done = model.paste("Received: from a by b");
    desk.waitFor([&] { return model.report(done) != nullptr; });
    for (int i = 0; i < 20; ++i) model.paste(mail);
    desk.waitFor([&] { return resolver->gate.waiting == 8; });
    model.finish();
    EXPECT_EQ(resolver->asked, 8);
    EXPECT_EQ(model.session().size(), 1u);
    EXPECT_FALSE(model.busy());
    EXPECT_EQ(idsIn(desk.history().load(now)), std::set{done});
    model.paste(mail);
    EXPECT_EQ(model.session().size(), 1u);
}

/// Closing the window at random moments, 50 times or as often as the environment says: nobody waits for an
/// answer that doesn't come, and what was done by then is kept.
TEST(AppModel, quittingAtRandomMoments) {
    Desk desk;
    std::vector<std::string> files;
    for (int i = 0; i < 3; ++i) files.push_back(desk.write("m" + std::to_string(i), mail));
    const char* times = std::getenv("QUILLMARK_KILLS");
    std::mt19937 random(13);
    std::set<UUID> kept;
    std::size_t unfinished = 0;
    for (int left = times ? std::atoi(times) : 50; left > 0; --left) {
        const auto resolver = std::make_shared<test::GatedResolver>();
        desk.surroundings.resolver = resolver;
        if (left % 2 == 0) resolver->gate.open();  // else answers come, if at all, in the middle
        AppModel& model = desk.start();
        const auto runsFor = static_cast<qint64>(random() % 80);
        for (int i = 0; i < 3; ++i) model.paste(mail);
        model.openFiles(files);
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < runsFor) QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        if (left % 3 == 0) resolver->gate.open();
        timer.restart();
        if (left % 5 != 0) model.finish();  // a model that is destroyed does the same
        std::set<UUID> shown;
        for (const auto& row : model.session()) {
            if (left % 5 != 0 && row.report) shown.insert(row.id);
        }
        desk.model = nullptr;
        EXPECT_LT(timer.elapsed(), 10'000);
        const auto found = idsIn(desk.history().load(now));
        EXPECT_TRUE(std::ranges::includes(found, kept));
        EXPECT_TRUE(std::ranges::includes(found, shown));
        unfinished += found.size() < kept.size() + 6;
        kept = found;
    }
    EXPECT_GT(unfinished, 0u);
    EXPECT_FALSE(kept.empty());
    for (const auto& entry : fs::directory_iterator(desk.file("data")))
        EXPECT_TRUE(entry.path().filename() == "history.json" ||
                    entry.path().filename() == ".history.json.lock");
}

TEST(AppModel, registriesAreAskedOnlyWhileTheyMayBe) {
    Desk desk;
    const auto registry = std::make_shared<WaitingRegistry>();
    desk.surroundings.registry = registry;
    AppModel& model = desk.ready();
    const auto ageOf = [&](const UUID& id) { return model.report(id)->domainAge.status.value; };
    const std::string twoDomains = "Reply-To: c@d.example\r\n" + std::string(mail);
    const UUID interrupted = model.paste(twoDomains);
    desk.waitFor([&] { return registry->gate.waiting == 1; });
    model.setCheckDomainAge(false);
    desk.idle();
    EXPECT_TRUE(std::holds_alternative<DomainAge::Status::Skipped>(ageOf(interrupted)));
    const UUID unasked = model.paste(twoDomains);
    desk.idle();
    EXPECT_TRUE(std::holds_alternative<DomainAge::Status::Skipped>(ageOf(unasked)));
    EXPECT_EQ(registry->asked, 1);
    EXPECT_FALSE(loadSettings(*desk.store).checkDomainAge);
    registry->gate.open();
    model.setCheckDomainAge(true);
    const UUID asked = model.paste(twoDomains);
    desk.idle();
    EXPECT_TRUE(std::holds_alternative<DomainAge::Status::Known>(ageOf(asked)));
    EXPECT_EQ(registry->asked, 3);
}

TEST(AppModel, sheetsProblemsAndSelection) {
    Desk desk;
    saveSettings({}, *desk.store);
    AppModel& model = desk.start();
    model.showSheet(Sheet::paste);
    EXPECT_EQ(model.sheet(), Sheet::welcome);
    model.dismissSheet();
    EXPECT_EQ(model.sheet(), std::nullopt);
    EXPECT_EQ(desk.start().sheet(), std::nullopt);
    AppModel& again = *desk.model;
    again.showProblem("The report couldn’t be saved: a\nb");
    EXPECT_EQ(again.problem(), "The report couldn’t be saved: a b");
    again.select(UUID::random());
    EXPECT_EQ(again.selection(), std::nullopt);
    again.openFiles({});
    EXPECT_EQ(again.problem(), std::nullopt);
}

TEST(AppModel, eachMessageOfManyWasToldWhatItNeeded) {
    Desk desk;
    desk.surroundings.resolver = std::make_shared<StaticResolver>(
        StaticResolver::Answers{{"key._domainkey.b.example|TXT", DNSAnswer::records({"v=DKIM1; p="})}});
    AppModel& model = desk.ready();
    for (int i = 0; i < 40; ++i)
        desk.write("mail/" + std::to_string(i),
                   "DKIM-Signature: v=1; a=rsa-sha256; d=b.example; s=key; h=from; bh=YQ==; b=YQ==\r\n"
                   "From: a@b.example\r\n\r\nText\r\n");
    model.openFiles({desk.file("mail")});
    desk.idle();
    EXPECT_EQ(model.history().size(), 40u);
    for (const SharedReport& report : model.history()) {
        const auto message = model.message(report->id);
        ASSERT_TRUE(message);
        EXPECT_TRUE(message->answers->dns.find("key._domainkey.b.example|TXT"));
    }
}

/// A process that someone has taken over does what the message says; others check as they should.
void serveHostile(const Channel& channel, std::atomic<int>* readings) {
    const Talk talk(channel);
    CheckWorker worker(channel);
    const auto report = [&](const ProofReport& each) {
        talk.tell(TalkKind::report, packed(std::vector<std::size_t>(), true, each, SentMessage()));
        talk.tell(TalkKind::done);
    };
    while (const auto piece = talk.hear(Talk::Files::taken)) {
        const auto says = [&](std::string_view what) {
            return piece->kind == TalkKind::check && piece->bytes.find(what) != std::string::npos;
        };
        if (piece->kind == TalkKind::next && ++*readings == 2) raise(SIGKILL);
        if (says("die")) raise(SIGKILL);
        if (says("many bytes")) {
            const std::uint64_t head[] = {static_cast<std::uint64_t>(TalkKind::report), ~std::uint64_t{0}};
            channel.send(head, sizeof head);
        } else if (says("no report")) {
            talk.tell(TalkKind::report, "\x01\xff");
            talk.tell(TalkKind::done);
        } else if (says("another")) {
            report({.id = UUID::random(), .checkedAt = now});
        } else if (says("begins")) {
            while (talk.tell(TalkKind::begin, packed(std::vector<std::size_t>())) &&
                   talk.hear(Talk::Files::taken)) {
            }
        } else if (says("no end")) {
            while (talk.tell(TalkKind::mayKnow, packed(std::string_view("a"), 16)))
                talk.hear(Talk::Files::taken);
        } else if (says("by drops")) {
            const std::uint64_t head[] = {static_cast<std::uint64_t>(TalkKind::report), 1'000'000};
            channel.send(head, sizeof head);
            while (channel.send("", 1)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        } else if (says("early end")) {
            talk.tell(TalkKind::done);
        } else {
            worker.answer(*piece);
        }
    }
}

TEST(AppModel, aProcessThatEndsOrLiesIsOneProblem) {
    auto* const readings = new (mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>(0);
    Desk desk;
    desk.surroundings.processes = std::make_shared<CheckProcesses>(
        [readings](const Channel& channel) { serveHostile(channel, readings); });
    AppModel& model = desk.ready();
    const auto message = [](std::string_view says) {
        return "From: a@b.example\r\nSubject: s\r\n\r\n" + std::string(says) + "\r\n";
    };
    for (const char* says : {"die", "many bytes", "no report", "another", "begins", "early end"}) {
        SCOPED_TRACE(says);
        const std::string bytes = message(says);
        model.checkData(ByteBuffer(bytes), "one.eml");
        desk.idle();
        EXPECT_EQ(model.problem(), "“one.eml” wasn’t checked: the process that read it ended unexpectedly.");
        EXPECT_TRUE(model.session().empty());
    }
    std::string mailbox;
    for (int i = 1; i <= 40; ++i)
        mailbox += "From a Sat Jan  3 00:00:00 2026\r\n" + message(i == 4 ? "die" : "hello") + "\r\n";
    model.openFiles({desk.write("box", mailbox)});
    desk.idle();
    EXPECT_GT(readings->load(), 2) << "another goes on where the one that read has ended";
    EXPECT_EQ(model.problem(),
              "“box, message 4” wasn’t checked: the process that read it ended unexpectedly.");
    std::set<std::string> checked;
    for (const std::string& name : names(model)) checked.insert(name);
    EXPECT_EQ(checked.size(), 40u) << "all messages but one, and the mailbox";
    EXPECT_FALSE(checked.contains("box, message 4"));
    EXPECT_EQ(model.session().front().stopped, StoppedMailbox{.checked = 39}) << "not to the end";
    for (const char* says : {"no end", "by drops"}) model.checkData(ByteBuffer(message(says)));
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 200) QCoreApplication::processEvents();
    EXPECT_TRUE(model.busy());
    model.cancelAll();
    model.finish();
    EXPECT_LT(timer.elapsed(), 10'000) << "Stop ends what would never end";
    EXPECT_EQ(desk.history().load(now).reports.size(), 39u);
}

}  // namespace
}  // namespace quillmark
