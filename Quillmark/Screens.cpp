/// Renders every state of the window into PNG files, without a screen and without a network, so that anyone
/// can see the application without running it:
///   quillmark-screens SAMPLES FOLDER

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QPalette>
#include <QScrollBar>
#include <QToolButton>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>

#include "CommandLine/FixedAnswers.h"
#include "Quillmark/HelpView.h"
#include "Quillmark/MailboxView.h"
#include "Quillmark/MainView.h"
#include "Quillmark/MessageTextView.h"
#include "Quillmark/Panels.h"
#include "Quillmark/PasteView.h"
#include "Quillmark/ReportView.h"
#include "Quillmark/SettingsView.h"
#include "Quillmark/TextPanel.h"
#include "Quillmark/WelcomeView.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Verifier.h"
#include "WindowBaseline/FusionEdges.h"
#include "Wording/NoteSentences.h"
#include "Wording/Wording.h"

namespace quillmark {

namespace {

struct Checked {
    ProofReport report;
    std::vector<PathStep> path;
    std::vector<SignedText> signedTexts = {};
};

/// A sample, checked with its recorded answers.
Checked check(const QString& samples, const QString& name) {
    const QString base = QDir(samples).filePath(name);
    FixedAnswers fixed = FixedAnswers::read((base + ".dns.json").toStdString());
    const auto resolver = std::make_shared<StaticResolver>(fixed.answers, fixed.failing, fixed.errors);
    std::shared_ptr<RegistrationLookup> registry;
    if (fixed.registrations) registry = std::make_shared<StaticRegistry>(*fixed.registrations);
    auto bytes = readFile((base + ".eml").toStdString());
    const auto message =
        std::get<MailMessage>(messageIn(std::get<ByteBuffer>(std::move(bytes)), ParseMode::strict));
    const Date now = fixed.at.value_or(Date(std::chrono::sys_days(std::chrono::January / 15 / 2026)));
    Verification verification =
        Verifier(resolver, registry).examine(message, (name + ".eml").toStdString(), now, UUID::random());
    Checked checked{std::move(verification.report), receivedPath(message)};
    for (std::size_t i = 0; const ReportNote& note : checked.report.notes) {
        if (const auto* undone = std::get_if<ReportNote::Undone>(&note.value))
            checked.signedTexts.push_back(signedText(message, verification.asSigned[i++], undone->fields));
    }
    return checked;
}

/// A report with everything: three signatures, five warning signs, a chain of three.
Checked everything(const QString& samples) {
    Checked all = check(samples, "mailing-list");
    ProofReport& report = all.report;
    const DKIMResult first = report.dkim.empty() ? DKIMResult{} : report.dkim.front();
    report.dkim.assign(3, first);
    report.dkim[1].status = DKIMResult::Status::pass;
    report.dkim[1].domain = "xn--mnchen-3ya.example";
    report.dkim[1].bodyChecked = true;
    report.dkim[1].unsignedImportant = {"Subject", "Reply-To"};
    report.dkim[1].unsignedBodyBytes = 1234;
    report.dkim[2].status = DKIMResult::Status::keyNotPublished;
    report.flags = {
        {LookAlikeFlag::ReplyToDiffers{"collector@other.example", "bank@known.example"}},
        {LookAlikeFlag::DisplayNameMismatch{"service@bank.example", "x@evil.example"}},
        {LookAlikeFlag::Punycode{"xn--mnchen-3ya.example", "münchen.example"}},
        {LookAlikeFlag::MixedScripts{"xn--bnk-7cd.example"}},
        {LookAlikeFlag::YoungDomain{"evil.example", report.checkedAt - std::chrono::days(12), 12}}};
    ARCFinding::Hop hop = report.arc.hops.empty() ? ARCFinding::Hop{1, "list.example", first, true, {}}
                                                  : report.arc.hops.front();
    report.arc.hops.assign(3, hop);
    for (int i = 0; ARCFinding::Hop & each : report.arc.hops) each.instance = ++i;
    report.arc.hops[1].sealer = "forwarder.example";
    report.arc.hops[2].sealer = "lists.university.example";
    report.summary.subject =
        "A rather long subject that has to be wrapped in the report and cut short in the list, with "
        "aVeryLongWordThatNobodyCanBreakAnywhereExceptInTheMiddleOfItself";
    return all;
}

enum class Colors { light, dark, contrast };

/// White and yellow on black, as a theme of high contrast has it.
QPalette contrastPalette() {
    QPalette palette(Qt::black);
    for (const auto role :
         {QPalette::Window, QPalette::Base, QPalette::AlternateBase, QPalette::Button, QPalette::ToolTipBase})
        palette.setColor(role, Qt::black);
    for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText, QPalette::BrightText,
                            QPalette::ToolTipText, QPalette::PlaceholderText})
        palette.setColor(role, Qt::white);
    palette.setColor(QPalette::Highlight, Qt::yellow);
    palette.setColor(QPalette::HighlightedText, Qt::black);
    return palette;
}

void usePalette(Colors colors) {
    if (colors == Colors::contrast) return QApplication::setPalette(contrastPalette());
    const bool dark = colors == Colors::dark;
    QPalette palette(dark ? QColor(0x2b, 0x2b, 0x2e) : QColor(0xef, 0xef, 0xef));
    if (dark) {
        palette.setColor(QPalette::Base, QColor(0x1f, 0x1f, 0x22));
        palette.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x29));
        for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
            palette.setColor(role, QColor(0xee, 0xee, 0xee));
            palette.setColor(QPalette::Disabled, role, QColor(0x8a, 0x8a, 0x8a));
        }
        palette.setColor(QPalette::PlaceholderText, QColor(0xa0, 0xa0, 0xa0));
    }
    palette.setColor(QPalette::Highlight, dark ? QColor(0x5b, 0x9b, 0xd9) : QColor(0x1b, 0x5e, 0x9e));
    palette.setColor(QPalette::HighlightedText, dark ? Qt::black : Qt::white);
    QApplication::setPalette(palette);
}

/// One look of the application.
struct Look {
    QString name;
    QSize size;
    Colors colors = Colors::light;
    double fontScale = 1;
    Language language = Language::english;
};

class Renderer {
public:
    Renderer(QString samples, QString folder) : m_samples(std::move(samples)), m_folder(std::move(folder)) {
        for (const char* name : {"rfc8463", "library-notice", "newsletter", "forged", "old-message",
                                 "unsigned", "mailing-list", "added-text", "look-alike", "gateway"}) {
            m_reports.emplace(name, check(m_samples, name));
        }
        m_reports.emplace("everything", everything(m_samples));
    }

    void render(const Look& look) {
        usePalette(look.colors);
        QApplication::setLayoutDirection(factsOf(look.language).isRightToLeft ? Qt::RightToLeft
                                                                              : Qt::LeftToRight);
        QFont font = m_font;
        font.setPointSizeF(font.pointSizeF() * look.fontScale);
        QApplication::setFont(font);
        const Words words{{.language = look.language, .zone = [](Date) { return ZoneOffset{}; }}};
        states(look, words);
        dialogs(look, words);
    }

private:
    void states(const Look& look, const Words& words) {
        ReportList list([this] { return m_reports.at("everything").report.checkedAt; }, words);
        MainView window(list, words);
        window.resize(look.size);
        window.show();
        save(window, look, "empty");
        std::vector<ListEntry> entries;
        entries.reserve(m_reports.size());
        for (auto& [name, each] : m_reports) {
            entries.push_back({ListEntry::Kind::session, each.report.id, {}, 0, shared(each)});
        }
        list.setEntries(entries);
        for (const auto& [name, each] : m_reports) {
            ReportContent content = reportContent(each.report, each.path, {}, words);
            content.quiet << words("answers from a recording");
            window.showReport(content);
            window.select(each.report.id);
            save(window, look, "report-" + name);
            if (name == "look-alike" || name == "rfc8463") {
                const QString typed = name == "rfc8463" ? "football.example.com" : "sparbank.example";
                window.reportView()->setExpectation(
                    ReportExpectation{typed, expectedAnswer(each.report, typed.toStdString(), words.reader)});
                for (int i = 0; i < 3; ++i) QApplication::processEvents();
                save(window, look, "expected-" + name);
            }
            if (name != "everything") continue;
            for (auto* explain : window.reportView()->findChildren<QToolButton*>("explain")) explain->click();
            window.reportView()->expandAll(true);
            do QApplication::processEvents();
            while (!window.reportView()->isComplete());
            for (int i = 0; i < 3; ++i) QApplication::processEvents();
            write(window.reportView()->widget()->grab(), look, "report-everything-whole");
            // As the history has it: the message is no longer there.
            window.showReport(reportContent(each.report, std::nullopt, {}, words));
        }
        std::vector<ListEntry> many = {{ListEntry::Kind::running, UUID{}, "invoice.eml"}};
        many.insert(many.end(), entries.begin(), entries.begin() + 2);
        for (int i = 0; i < 200; ++i) {
            ListEntry entry = entries[static_cast<std::size_t>(i) % entries.size()];
            entry.kind = ListEntry::Kind::history;
            many.push_back(entry);
        }
        list.setEntries(many);
        window.setRunning({.count = 3});
        window.setProblem(
            words("“%1” doesn’t look like an email: no From, Received or DKIM-Signature header was found.",
                  QString("holiday.jpg")));
        window.showWithoutReport("invoice.eml", words("Checking…"));
        window.select(UUID{});
        save(window, look, "history");
        lists(look, words, list, window);
    }

    void lists(const Look& look, const Words& words, ReportList& list, MainView& window) {
        std::vector<ListEntry> found;
        const Date now = m_reports.at("everything").report.checkedAt;
        for (int i = 0; i < 400; ++i) {
            const Checked& each =
                std::next(m_reports.begin(), i % static_cast<int>(m_reports.size()))->second;
            ProofReport report = each.report;
            report.id = UUID::random();
            report.fileName = "Inbox, message " + std::to_string(i + 1);
            report.checkedAt = now;
            found.push_back({ListEntry::Kind::session,
                             report.id,
                             {},
                             0,
                             std::make_shared<const ProofReport>(std::move(report))});
        }
        const Checked& shownOne = m_reports.at("forged");
        const auto forged = std::ranges::find_if(found, [&](const ListEntry& each) {
            return each.report->summary.subject == shownOne.report.summary.subject;
        });
        window.showReport(reportContent(shownOne.report, shownOne.path, {}, words));
        window.setProblem({});
        window.setRunning({.count = 1, .found = 400, .part = 0.34});
        std::vector<ListEntry> running = {{ListEntry::Kind::running, UUID{}, "Inbox", 400, {}}};
        running.insert(running.end(), found.begin(), found.end());
        list.setEntries(std::move(running));
        window.select(forged->id);
        save(window, look, "mailbox");
        window.setRunning({});
        std::vector<ListEntry> stopped = {{ListEntry::Kind::stopped, UUID{}, "Inbox", 400, {}, 4'200}};
        stopped.insert(stopped.end(), found.begin(), found.end());
        list.setEntries(std::move(stopped));
        window.select(UUID{});
        window.showWithoutReport("Inbox", stoppedAfter(400, 4'200, words));
        save(window, look, "mailbox-stopped");
        MailboxContent together{QStringLiteral("Inbox"), stoppedAfter(400, 4'200, words), {}};
        for (const ListEntry& each : found) together.reports.push_back(each.report);
        window.showMailbox(std::move(together));
        while (!window.mailboxView()->isComplete()) QApplication::processEvents();
        save(window, look, "mailbox-page");
        write(window.mailboxView()->widget()->grab(), look, "mailbox-page-whole");
        window.showReport(reportContent(shownOne.report, shownOne.path, {}, words));
        list.setEntries(found);
        list.setTones({Tone::bad});
        save(window, look, "mailbox-bad-only");
        list.setTones({});
        window.action(Command::showTable)->trigger();
        list.sort(verdictColumn);
        window.select(forged->id);
        save(window, look, "table");
        window.action(Command::showTable)->trigger();
        list.sort(checkedColumn, Qt::DescendingOrder);
        list.setEntries({});
        const QString refusal = QString::fromStdString(noMessageLine("Pictures", words.reader));
        window.showRefusal(refusal);
        window.setProblem(refusal);
        save(window, look, "refused-folder");
    }

    void dialogs(const Look& look, const Words& words) {
        PasteView paste(words);
        save(paste, look, "paste");
        paste.refuse(QString::fromStdString(problemLine({Refusal::NotAnEmail{}}, {}, words.reader)));
        save(paste, look, "paste-refused");
        SettingsView settings({}, words);
        save(settings, look, "settings");
        WelcomeView welcome(words);
        save(welcome, look, "welcome");
        const Checked& changed = m_reports.at("gateway");
        MessageTextView text(
            shown(changed.report.summary.subject),
            {{"bellringers.example", words.sentence(sentence(changed.report.notes.front(), words.reader))}},
            0, MessageTextView::Page::signedText, words);
        text.resize(look.size * 0.95);
        text.setSignedTexts(changed.signedTexts);
        while (!text.panel()->isComplete()) QApplication::processEvents();
        save(text, look, "what-was-signed");
        HelpView help({{words("Open…"), "Ctrl+O"}, {words("Re-check"), "Ctrl+R"}}, words);
        for (const auto& [page, name] :
             {std::pair(HelpPage::checks, "help-checks"), std::pair(HelpPage::limits, "help-limits"),
              std::pair(HelpPage::message, "help-message"),
              std::pair(HelpPage::shortcuts, "help-shortcuts")}) {
            help.showPage(page);
            save(help, look, name);
        }
    }

    static std::shared_ptr<const ProofReport> shared(const Checked& checked) {
        return std::make_shared<const ProofReport>(checked.report);
    }

    void save(QWidget& window, const Look& look, const QString& state) {
        window.show();
        for (int i = 0; i < 3; ++i) QApplication::processEvents();
        write(window.grab(), look, state);
    }

    void write(const QPixmap& picture, const Look& look, const QString& state) const {
        const QString path = QDir(m_folder).filePath(state + "-" + look.name + ".png");
        if (!picture.save(path)) std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
    }

    const QFont m_font = QApplication::font();
    QString m_samples, m_folder;
    std::map<QString, Checked> m_reports;
};

}  // namespace

}  // namespace quillmark

int main(int argc, char** argv) {
    using namespace quillmark;
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication::setDesktopSettingsAware(false);
    QApplication application(argc, argv);
    QApplication::setStyle("Fusion");
    window_baseline::showFusionsEdges();
    QApplication::setWindowIcon(programIcon());
    if (argc < 3 || !QDir().mkpath(argv[2])) {
        std::fputs("quillmark-screens SAMPLES FOLDER [LOOK…]\n", stderr);
        return 2;
    }
    const QSize large(1000, 700), small(700, 500);
    Renderer renderer(argv[1], argv[2]);
    std::vector<Look> looks = {{"light-1000", large},
                               {"dark-1000", large, Colors::dark},
                               {"light-700", small},
                               {"dark-700", small, Colors::dark},
                               {"light-150percent", large, Colors::light, 1.5},
                               {"light-200percent", QSize(1600, 1000), Colors::light, 2},
                               {"contrast-1000", large, Colors::contrast}};
    for (const Language language : allLanguages()) {
        if (language == Language::english) continue;
        const auto& facts = factsOf(language);
        const QString code = QString::fromLatin1(facts.code.data(), static_cast<int>(facts.code.size()));
        looks.push_back({code + "-700", small, Colors::light, 1, language});
        if (language == Language::german || facts.isRightToLeft)
            looks.push_back({code + "-1000", large, Colors::light, 1, language});
    }
    const QStringList wanted = QApplication::arguments().mid(3);
    for (const Look& look : looks) {
        if (wanted.isEmpty() || wanted.contains(look.name)) renderer.render(look);
    }
    return 0;
}
