#include <future>

#include <QLineEdit>
#include <QRadioButton>
#include <QRegularExpression>
#include <QScrollBar>

#include "Quillmark/HelpView.h"
#include "Quillmark/KeyBookView.h"
#include "Quillmark/KnownSenders.h"
#include "Quillmark/ListPanel.h"
#include "Quillmark/MainView.h"
#include "Quillmark/MessageWaysView.h"
#include "Quillmark/PasteView.h"
#include "Quillmark/PlainText.h"
#include "Quillmark/ReportList.h"
#include "Quillmark/ReportRows.h"
#include "Quillmark/ReportView.h"
#include "Quillmark/SettingsView.h"
#include "Quillmark/SingleInstance.h"
#include "Quillmark/Tones.h"
#include "Quillmark/WelcomeView.h"
#include "tests/WindowTest.h"

namespace quillmark {
namespace {

const Words english{{.zone = [](Date) { return ZoneOffset{}; }}};

TEST(Words, foreignTextIsInertAndIsolated) {
    EXPECT_EQ(shown(std::string_view("a\nb\u202E<b>")), u"\u2068a b‹U+202E›<b>\u2069");
    EXPECT_LE(shown(std::string_view(std::string(1'000'000, 'x'))).size(), 510);
    EXPECT_EQ(shown(std::string_view("[OK]   \t Signed")), u"\u2068[OK] Signed\u2069");
    EXPECT_EQ(withoutIsolation(shown(std::string_view("a-b@c-d.example"))), "a-b@c-d.example");
    const QString end = withoutIsolation(shownDomain(std::string(1'000, 'x') + "ü.evil.example"));
    EXPECT_TRUE(end.contains(u"x…x") && end.endsWith(u"xü.evil.example") && end.size() <= 500);
    const struct {
        const char* sentence;
        const char* isolated;
    } rows[] = {
        {"plain", "plain"},
        {"from אבג.example, not דהו", "from \u2068אבג\u2069.example, not \u2068דהו\u2069"},
        {"שלום עולם 5", "\u2068שלום עולם\u2069 5"},
        {"שלום ", "\u2068שלום\u2069 "},
        {"[OK]   \u00A0 \u3000Signed", "[OK] Signed"},
        {"a re-check of a-b.example", "a re-check of a-\u2060b.example"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(isolatedRuns(row.sentence), QString::fromUtf8(row.isolated)) << row.sentence;
}

TEST(ReportRows, theEndOfADomainStays) {
    const QFontMetrics metrics(QApplication::font());
    const QString long_ = QString(200, u'b');
    const struct {
        QString text, end;
    } rows[] = {
        {"bank.example." + long_ + ".evil.example", ".evil.example"},
        {long_ + " <service@evil.example>", "…@evil.example>"},
        {"<service@bank.example." + long_ + ".evil.example>", ".evil.example>"},
    };
    for (const auto& row : rows) {
        const QString elided =
            elidedBeforeDomain(row.text, metrics, metrics.horizontalAdvance(QString(25, u'b')));
        EXPECT_TRUE(elided.endsWith(row.end) && elided.contains(u'…')) << elided.toStdString();
    }
    EXPECT_EQ(elidedBeforeDomain("a@b.example", metrics, 10'000), "a@b.example");
}

TEST(Tones, contrastInEveryPalette) {
    const QPalette palettes[] = {QPalette(QColor(0xef, 0xef, 0xef)), QPalette(QColor(0x2b, 0x2b, 0x2e)),
                                 QPalette(Qt::white), QPalette(Qt::black),
                                 QPalette(QColor(0x80, 0x80, 0x80))};
    for (const QPalette& palette : palettes) {
        for (const Tone tone : {Tone::good, Tone::caution, Tone::bad, Tone::unknown}) {
            for (const QColor& ground : {palette.color(QPalette::Base), toneGround(tone, palette)}) {
                SCOPED_TRACE(ground.name().toStdString() + " " + nameOf(tone));
                EXPECT_GE(contrast(toneColor(tone, ground, palette), ground), 4.5);
            }
        }
    }
    EXPECT_NEAR(contrast(Qt::black, Qt::white), 21, 0.01);
}

/// Ten thousand reports of the history and two of this run.
class ReportLists : public testing::Test {
protected:
    ReportLists() {
        for (int i = 0; i < 10'002; ++i) {
            ProofReport report;
            report.id = UUID::random();
            report.checkedAt = Date(std::chrono::days(20'000));
            report.summary.date = Date(std::chrono::days(20'000 - i / 10));
            report.summary.from = {{"Bank of b.example", "a@d.example"}};
            report.summary.subject = "Subject " + std::to_string(i);
            report.verdict = {VerdictKind::verified, Tone::good, "d.example", "d.example", {}};
            if (i == 0) report.summary.subject = "<img src=x> \u202E" + std::string(1'000'000, 'y');
            if (i == 1) report.summary.subject = "";
            m_reports.push_back(std::make_shared<ProofReport>(report));
        }
        setEntries();
    }

    void setEntries() {
        std::vector<ListEntry> entries = {{ListEntry::Kind::running, UUID::random(), "file.eml"}};
        for (std::size_t i = 0; i < m_reports.size(); ++i) {
            entries.push_back({i < 2 ? ListEntry::Kind::session : ListEntry::Kind::history,
                               m_reports[i]->id,
                               {},
                               0,
                               m_reports[i]});
        }
        list.setEntries(entries);
    }

    QString text(int row, int role = Qt::DisplayRole) {
        return list.data(list.index(row, 0), role).toString();
    }

    std::vector<std::shared_ptr<ProofReport>> m_reports;
    ReportList list{[] { return Date(std::chrono::days(20'000)); }, english};
};

TEST_F(ReportLists, rowsAndHeadings) {
    EXPECT_EQ(list.rowCount(), 1 + 3 + 1 + 10'000);
    EXPECT_EQ(text(0), "This session");
    EXPECT_EQ(list.flags(list.index(0, 0)), Qt::NoItemFlags);
    EXPECT_EQ(text(1, ReportList::secondLineRole), "Checking…");
    EXPECT_LE(text(2).size(), 600);
    EXPECT_TRUE(text(2, Qt::ToolTipRole).startsWith("<span>")) << "a tooltip that is told to be markup";
    EXPECT_FALSE(text(2, Qt::ToolTipRole).contains("<img"));
    EXPECT_EQ(text(3), "(no subject)");
    EXPECT_EQ(text(4), "History");
    EXPECT_EQ(withoutIsolation(text(5, Qt::AccessibleTextRole)),
              "Good: Subject 2, d.example, “Bank of b.example”, 00:00");
    EXPECT_EQ(text(10'004, ReportList::dateRole), "8 Jan 2022");
    m_reports[2]->summary.from.push_back({"B", "b@e.example"});
    EXPECT_EQ(text(5, ReportList::senderNameRole), "") << "nobody's, where there are two";
}

TEST_F(ReportLists, aGoodVerdictWithWarningSignsIsMarked) {
    m_reports[2]->flags.assign(2, {LookAlikeFlag::MultipleFrom{}});
    EXPECT_EQ(withoutIsolation(text(5, Qt::AccessibleTextRole)),
              "Good: Subject 2, d.example, “Bank of b.example”, 2 warning signs, 00:00");
    EXPECT_TRUE(list.data(list.index(5, 0), ReportList::hasMoreRole).toBool());
    EXPECT_FALSE(list.data(list.index(6, 0), ReportList::hasMoreRole).toBool());
}

TEST_F(ReportLists, whatComesMeanwhileLeavesTheRowsInTheirPlace) {
    ListPanel panel(list, english);
    panel.resize(300, 600);
    panel.show();
    panel.select(m_reports[3]->id);
    QApplication::processEvents();
    for (const bool isTable : {false, true}) {
        panel.setTable(isTable);
        QApplication::processEvents();
        QAbstractItemView* view = panel.tableView();
        if (!isTable) view = panel.listView();
        EXPECT_TRUE(view->selectionModel()->isSelected(list.indexOf(m_reports[3]->id)));
        view->verticalScrollBar()->setValue(view->verticalScrollBar()->maximum() / 2);
        const int place = view->verticalScrollBar()->value();
        m_reports.pop_back();
        setEntries();
        QApplication::processEvents();
        EXPECT_EQ(view->verticalScrollBar()->value(), place);
        EXPECT_TRUE(view->selectionModel()->isSelected(list.indexOf(m_reports[3]->id)));
    }
}

TEST_F(ReportLists, onlyAPersonChooses) {
    ListPanel panel(list, english);
    panel.show();
    std::vector<std::optional<UUID>> chosen;
    QObject::connect(&panel, &ListPanel::chosen, [&](const auto& id) { chosen.push_back(id); });
    const UUID first = list.entry(list.index(1, 0)).id;  // below the heading
    for (const bool isTable : {false, true}) {
        panel.setTable(isTable);
        QAbstractItemView* view = panel.tableView();
        if (!isTable) view = panel.listView();
        panel.select(UUID::random());  // which was taken in and isn't listed yet, while a dialog closes
        QFocusEvent focus(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
        QApplication::sendEvent(view, &focus);
        EXPECT_TRUE(chosen.empty());
        QTest::keyClick(view, Qt::Key_Down);
        EXPECT_EQ(chosen, std::vector{std::optional(first)});
        chosen.clear();
    }
}

TEST_F(ReportLists, whatTheFilterHidesIsNotTakenForWhatItFound) {
    ListPanel panel(list, english);
    panel.show();
    panel.select(m_reports[3]->id);
    auto* all = test::button(panel, "List All");
    EXPECT_FALSE(all->isVisible());
    panel.findChild<QLineEdit*>("filter")->setText("Subject 4");
    EXPECT_TRUE(all->isVisible());
    panel.select(m_reports[4]->id);
    EXPECT_FALSE(all->isVisible());
    panel.select(m_reports[3]->id);
    all->click();
    EXPECT_FALSE(all->isVisible());
    EXPECT_TRUE(panel.listView()->selectionModel()->isSelected(list.indexOf(m_reports[3]->id)));
}

ReportContent sampleContent() {
    ReportContent content{Tone::bad, "Can’t prove who sent this", "Anybody could have written this."};
    content.remarks.push_back({Tone::caution, "Beside it"});
    ReportSection section{"Signatures (DKIM)", {}, {}, {}, {}, {"and 3 more"}};
    section.facts = {{"Subject", shown(std::string_view("<b>bold</b> <img src='http://x.example/'>"))}};
    for (int i = 0; i < 3; ++i) {
        section.rows.push_back({Tone::good, "Valid", "It holds.", {{{}, "A note."}}, {{"Selector", "s1"}}});
    }
    section.chain = section.rows;
    content.sections.push_back(section);
    return content;
}

TEST(ReportView, detailsAreOneClickDeeper) {
    ReportView view(english);
    view.resize(700, 500);
    view.setContent(sampleContent());
    view.show();
    const auto selectors = [&] {
        int count = 0;
        for (const PlainText* each : view.findChildren<PlainText*>()) {
            count += each->isVisible() && each->toPlainText() == "s1";
        }
        return count;
    };
    QList<QToolButton*> disclosures = view.findChildren<QToolButton*>();
    disclosures.removeIf([](const QToolButton* each) { return each->text() != "Details"; });
    ASSERT_EQ(disclosures.size(), 6);
    EXPECT_EQ(selectors(), 0);
    QTest::keyClick(disclosures[0], Qt::Key_Space);
    EXPECT_EQ(selectors(), 1);
    for (const bool expanded : {true, false}) {
        view.expandAll(expanded);
        EXPECT_TRUE(QTest::qWaitFor([&] { return selectors() == (expanded ? 6 : 0); }));
    }
}

TEST(ReportView, aWordIsExplainedAndMoreExactlyOneStepDeeper) {
    ProofReport report;
    report.dmarc.record = "v=DMARC1; p=reject";
    ReportView view(english);
    view.setContent(reportContent(report, std::nullopt, {}, english));
    view.show();
    const auto isShown = [&](const char* begin) {
        return std::ranges::any_of(view.findChildren<PlainText*>(), [&](const PlainText* each) {
            return each->isVisible() && withoutIsolation(each->toPlainText()).startsWith(begin);
        });
    };
    QAbstractButton* explain = test::button(view, "Explain: Domain policy (DMARC)");
    QTest::keyClick(explain, Qt::Key_Space);
    EXPECT_TRUE(isShown("Here the owner of the domain in From"));
    EXPECT_FALSE(isShown("Defined in RFC 7489"));
    QAbstractButton* more = test::button(view, "More exactly: DMARC");
    EXPECT_EQ(explain->nextInFocusChain(), more->parentWidget()) << "the keyboard goes where the eye does";
    QTest::keyClick(more, Qt::Key_Space);
    EXPECT_TRUE(isShown("Defined in RFC 7489") && isShown("v=DMARC1; p=reject"));
    QTest::keyClick(explain, Qt::Key_Space);
    EXPECT_FALSE(isShown("Here the owner of the domain in From"));
}

TEST(ReportView, aLongWordForAFindingTakesASecondLine) {
    ReportContent content = sampleContent();
    content.sections[0].rows[0].label = QStringLiteral("Schlüssel nicht mehr veröffentlicht ").repeated(5);
    ReportView view(english);
    view.setContent(content);
    EXPECT_LT(view.widget()->minimumSizeHint().width(), 400) << "nothing scrolls sideways";
}

TEST(ReportView, markupIsTextAndCopiesAreClean) {
    ReportView view(english);
    view.setContent(sampleContent());
    PlainText* subject = nullptr;
    for (PlainText* each : view.findChildren<PlainText*>()) {
        if (each->accessibleName() == "Subject") subject = each;
    }
    ASSERT_TRUE(subject);
    EXPECT_EQ(withoutIsolation(subject->toPlainText()), "<b>bold</b> <img src='http://x.example/'>");
    subject->selectAll();
    subject->copy();
    EXPECT_EQ(QApplication::clipboard()->text(), "<b>bold</b> <img src='http://x.example/'>");
    EXPECT_FALSE(QApplication::clipboard()->mimeData()->hasHtml());
}

TEST(BannerView, eachLineLeadsToItsCard) {
    ProofReport report;
    report.flags.assign(1, {LookAlikeFlag::ReplyToDiffers{"a@b.example", "c@d.example"}});
    report.notes = {{ReportNote::SigningDomainNoHost{"x"}}};
    ReportView view(english);
    view.setContent(reportContent(report, std::nullopt, {}, english));
    view.show();
    for (const char* name :
         {"Replies go somewhere else: to a@b.example", "The signing domain, “x”, isn’t a valid host name"}) {
        QTest::keyClick(test::button(view, name), Qt::Key_Return);
        ASSERT_TRUE(view.focusWidget());
        const QString place = view.focusWidget()->accessibleName();
        EXPECT_TRUE(place.startsWith("Caution")) << place.toStdString();
    }
}

TEST(PlainText, breaksInsideAWordThatIsTooLong) {
    PlainText text(QString(500, 'a') + ".evil.example");
    EXPECT_GT(text.heightForWidth(200), 10 * text.fontMetrics().height());
    EXPECT_LT(text.minimumSizeHint().width(), 200);
}

TEST(PasteView, takesTextAndHoldsWhatIsTooLongToShow) {
    for (const std::string& source :
         {std::string("From: a@b.example\n\nhi"), "From: a\n\n" + std::string(3'000'000, 'x')}) {
        PasteView view(english);
        QSignalSpy submitted(&view, &PasteView::submitted);
        view.show();
        auto* check = view.findChildren<QPushButton*>().first();
        EXPECT_FALSE(check->isEnabled());
        QApplication::clipboard()->setText(QString::fromStdString(source));
        auto* edit = view.findChild<QPlainTextEdit*>();
        edit->paste();
        EXPECT_LE(edit->document()->characterCount(), 500'001);
        check->click();
        ASSERT_EQ(submitted.size(), 1);
        EXPECT_EQ(submitted[0][0].value<std::string>(), source);
    }
}

TEST(MessageWaysView, aProgramIsFoundByWhatPeopleCallIt) {
    MessageWaysView view(english);
    view.show();
    auto* search = view.findChild<QLineEdit*>();
    const auto* programs = view.findChild<QListWidget*>();
    const int all = programs->count();
    EXPECT_GE(all, 12 + 4) << "with headings";
    const std::pair<const char*, const char*> rows[] = {
        {"HOTMAIL", "Outlook, new and on the web"},
        {"gmx", "GMX, web.de"},
        {"save mbox", "Evolution"},
        {"nosuchmail", "Another mail program"},
    };
    for (const auto& [typed, program] : rows) {
        search->setText(typed);
        ASSERT_EQ(programs->count(), 2) << typed;
        EXPECT_EQ(programs->currentItem()->text(), program);
        EXPECT_EQ(view.findChild<QScrollArea*>()->findChild<PlainText*>()->toPlainText(), program);
    }
    search->clear();
    EXPECT_EQ(programs->count(), all);
    HelpView help({}, english);
    help.showPage(HelpPage::message);
    help.show();
    QTest::keyClick(help.findChild<QLineEdit*>(), Qt::Key_Return);
    EXPECT_TRUE(help.isVisible());
    EXPECT_EQ(help.focusWidget(), help.findChild<QListWidget*>("ways"));
}

TEST(KeyBookView, returnGoesFromTheSearchIntoTheList) {
    const QTemporaryDir folder;
    const KeyBook book{folder.filePath("keys.db").toStdString()};
    book.add(std::vector{KnownKey{.name = "s1._domainkey.example.org", .record = "v=DKIM1; p=1"}});
    KeyBookView view(book, english);
    view.show();
    const auto* list = view.findChild<QListWidget*>();
    ASSERT_EQ(list->count(), 1);
    EXPECT_EQ(view.findChild<PlainText*>()->toPlainText(), "") << "nothing that speaks of an empty list";
    QTest::keyClick(view.findChild<QLineEdit*>(), Qt::Key_Return);
    EXPECT_TRUE(view.isVisible());
    EXPECT_EQ(view.focusWidget(), list);
}

TEST(SettingsView, switchesAndTheQuestionBeforeClearing) {
    SettingsView view({.checkDomainAge = true, .keepHistory = false, .lockedHistory = {}}, english);
    QSignalSpy age(&view, &SettingsView::checkDomainAgeChanged),
        history(&view, &SettingsView::keepHistoryChanged), keys(&view, &SettingsView::rememberKeysChanged),
        newer(&view, &SettingsView::judgeByRFC9989Changed);
    bool isCleared = false;
    QObject::connect(&view, &SettingsView::clearHistoryWanted, &view, [&] {
        view.askWhetherToClear("The history holds 2 reports.", [&] { isCleared = true; });
    });
    view.show();
    const auto boxes = view.findChildren<QCheckBox*>();
    ASSERT_EQ(boxes.size(), 4);
    for (QCheckBox* each : boxes) each->click();
    EXPECT_EQ(keys.at(0).at(0).toBool(), false);
    EXPECT_EQ(newer.at(0).at(0).toBool(), true);
    EXPECT_EQ(age.at(0).at(0).toBool(), false);
    EXPECT_EQ(history.at(0).at(0).toBool(), true);
    for (const char* answer : {"Cancel", "Clear History"}) {
        test::button(view, "Clear History…")->click();
        auto* question = view.findChild<QMessageBox*>();
        ASSERT_TRUE(question);
        EXPECT_EQ(question->textFormat(), Qt::PlainText);
        EXPECT_EQ(question->text(), "Clear the whole history?");
        EXPECT_EQ(question->informativeText(),
                  "This removes every saved check from this computer. It can’t be undone.\n\n"
                  "The history holds 2 reports.");
        test::button(*question, answer)->click();
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_EQ(isCleared, answer == std::string("Clear History"));
    }
    SettingsView locked({.lockedHistory = "Your history was saved by a newer version of Quillmark."},
                        english);
    EXPECT_FALSE(test::button(locked, "Clear History…")->isEnabled());
}

TEST(SettingsView, whoIsAsked) {
    SettingsView view({}, english);
    QSignalSpy chosen(&view, &SettingsView::resolverChanged), accepted(&view, &QDialog::accepted);
    view.show();
    const auto buttons = view.findChildren<QRadioButton*>();
    auto* service = view.findChild<QLineEdit*>();
    ASSERT_EQ(buttons.size(), 3);
    EXPECT_TRUE(buttons[0]->isChecked());
    EXPECT_FALSE(service->isEnabled());
    buttons[1]->click();
    buttons[2]->click();
    for (const char* none : {"", "http://dns.example/", "system"}) {
        service->setText(none);
        test::button(view, "Done")->click();
        EXPECT_EQ(accepted.size(), 0);
    }
    EXPECT_TRUE(view.findChild<PlainText*>("outcome")->isVisible());
    service->setText(" https://dns.example/q ");
    test::button(view, "Done")->click();
    EXPECT_EQ(accepted.size(), 1);
    std::vector<std::string> choices;
    for (const auto& each : chosen) choices.push_back(each[0].value<std::string>());
    EXPECT_EQ(choices, (std::vector<std::string>{"system", "https://dns.example/q"}));
    SettingsView again({.resolver = choices[1], .lockedHistory = {}}, english);
    EXPECT_EQ(again.findChild<QLineEdit*>()->text(), "https://dns.example/q");
}

QString mnemonicOf(const QString& text) {
    const qsizetype mark = text.indexOf(u'&');
    return mark < 0 ? QString() : text.mid(mark + 1, 1).toLower();
}

/// Each has a letter of its own; of several buttons that read the same, one.
void expectMnemonics(const QStringList& texts) {
    std::map<QString, QString> letters, byText;
    for (const QString& text : texts) {
        static const QRegularExpression mark(QStringLiteral("\\(&.\\)|&"));
        const QString letter = mnemonicOf(text), plain = QString(text).remove(mark);
        if (letter.isEmpty()) {
            byText.emplace(plain, QString());
            continue;
        }
        byText[plain] = letter;
        EXPECT_NE(letter[0].script(), QChar::Script_Han) << "no key has it: " << text.toStdString();
        EXPECT_TRUE(letters.emplace(letter, text).second)
            << text.toStdString() << " has the letter of " << letters[letter].toStdString();
    }
    for (const auto& [text, letter] : byText) EXPECT_FALSE(letter.isEmpty()) << text.toStdString();
}

TEST(Mnemonics, everyCommandAndButtonHasItsOwn) {
    for (const Language language : allLanguages()) {
        SCOPED_TRACE(factsOf(language).code);
        const Words words{{.language = language, .platform = Platform::other}};
        ReportList list([] { return Date(); }, words);
        MainView window(list, words);
        ReportContent content = sampleContent();
        content.hasFailedLookup = true;
        window.showReport(content);
        QStringList bar;
        for (const QAction* menu : window.menuBar()->actions()) {
            bar << menu->text();
            QStringList entries;
            for (const QAction* each : menu->menu()->actions()) {
                if (!each->isSeparator()) entries << each->text();
            }
            expectMnemonics(entries);
        }
        const auto buttons = [](const QWidget& in) {
            QStringList texts;
            for (const QAbstractButton* each : in.findChildren<QAbstractButton*>()) {
                if (!qobject_cast<const QToolButton*>(each) && !each->text().isEmpty()) texts << each->text();
            }
            return texts;
        };
        expectMnemonics(bar + buttons(window));
        expectMnemonics(buttons(PasteView(words)));
        expectMnemonics(buttons(SettingsView({}, words)));
        expectMnemonics(buttons(WelcomeView(words)));
        expectMnemonics(buttons(HelpView({}, words)));
        expectMnemonics(buttons(KeyBookView({}, words)));
    }
}

TEST(KeyBookView, whatIsChosenIsForgotten) {
    const QTemporaryDir folder;
    const KeyBook book{std::filesystem::path(folder.path().toStdString()) / "keys.db"};
    std::vector<KnownKey> keys;
    for (const char* domain : {"a.example", "b.example", "c.example"})
        keys.push_back(
            {std::string("s._domainkey.") + domain, "v=DKIM1; p=AAAA", {}, {}, "dns.example", false, {}});
    book.add(keys);
    KeyBookView view(book, english);
    auto* list = view.findChild<QListWidget*>();
    const QAbstractButton* forget = test::button(view, "Forget");
    EXPECT_EQ(list->count(), 3);
    EXPECT_FALSE(forget->isEnabled());
    view.findChild<QLineEdit*>()->setText("b.example");
    ASSERT_EQ(list->count(), 1);
    list->setCurrentRow(0);
    EXPECT_TRUE(view.findChild<PlainText*>()->toPlainText().contains("b.example"));
    test::button(view, "Forget")->click();
    EXPECT_EQ(list->count(), 0);
    EXPECT_FALSE(forget->isEnabled());
    view.findChild<QLineEdit*>()->clear();
    EXPECT_EQ(list->count(), 2);
    EXPECT_TRUE(book.keysOf("s._domainkey.b.example").empty());
}

TEST(ReportView, needsNoScrollingSidewaysInAnyLanguage) {
    ProofReport report;
    report.verdict.domain = "a.example";
    for (int i = 0; i < 10; ++i)
        report.dkim.push_back(
            {.status = static_cast<DKIMResult::Status>(i), .selector = "mail", .algorithm = "rsa-sha256"});
    for (const Language language : allLanguages()) {
        const Words words{{.language = language}};
        ReportList list([] { return Date(); }, words);
        MainView window(list, words);
        list.setEntries(
            {{ListEntry::Kind::session, report.id, {}, 0, std::make_shared<const ProofReport>(report)}});
        window.resize(700, 500);
        window.show();
        window.showReport(reportContent(report, std::nullopt, {}, words));
        do QApplication::processEvents();
        while (!window.reportView()->isComplete());
        QApplication::processEvents();
        EXPECT_EQ(window.reportView()->horizontalScrollBar()->maximum(), 0) << factsOf(language).code;
    }
}

TEST(SingleInstance, theSecondHandsItsFilesOver) {
    const QTemporaryDir folder;
    SingleInstance first(folder.path());
    ASSERT_TRUE(first.isFirst());
    QSignalSpy received(&first, &SingleInstance::received);
    SingleInstance second(folder.path());
    EXPECT_FALSE(second.isFirst());
    for (const QStringList& paths : {QStringList{"/tmp/a b.eml", "/tmp/ü\nx"}, QStringList{}}) {
        auto isTaken = std::async(std::launch::async, [&] { return second.handOver(paths); });
        ASSERT_TRUE(!received.isEmpty() || received.wait());
        EXPECT_EQ(received.takeFirst().at(0).toStringList(), paths);
        EXPECT_TRUE(isTaken.get());
    }
    // One that is connected, but whose window is about to close, or hangs.
    EXPECT_FALSE(second.handOver({"/tmp/a.eml"}, std::chrono::milliseconds(100)));
    QTest::qWait(50);
    EXPECT_TRUE(received.isEmpty()) << "the second has opened it";
}

TEST(SingleInstance, oneOfTheTwoOpensTheFiles) {
    const QTemporaryDir folder;
    SingleInstance first(folder.path());
    ASSERT_TRUE(first.isFirst());
    int opened = 0, handedOver = 0;
    QObject::connect(&first, &SingleInstance::received, [&] { ++opened; });
    SingleInstance second(folder.path());
    EXPECT_FALSE(second.isFirst());
    // The first answers at any moment of the second's giving up.
    for (int i = 0; i < 200; ++i) {
        const auto time = std::chrono::milliseconds(i % 3);
        auto isTaken = std::async(std::launch::async, [&] { return second.handOver({"/tmp/a.eml"}, time); });
        while (isTaken.wait_for(std::chrono::microseconds(i)) != std::future_status::ready)
            QApplication::processEvents();
        handedOver += isTaken.get() ? 1 : 0;
    }
    QTest::qWait(50);
    EXPECT_EQ(opened, handedOver);
}

TEST(KnownSenders, countEachProvenMessageOfTheOrganizationOnce) {
    const auto report = [](VerdictKind kind, const char* domain, const char* messageID) {
        auto made = std::make_shared<ProofReport>();
        made->id = UUID::random();
        made->checkedAt = *parsedRFC3339("2024-05-01T10:00:00Z");
        made->verdict.kind = kind;
        made->verdict.domain = made->verdict.fromDomain = domain;
        made->summary.messageID = messageID;
        return made;
    };
    std::vector<std::shared_ptr<const ProofReport>> history{
        report(VerdictKind::verified, "mail.example.org", "<1@x>"),
        report(VerdictKind::verified, "mail.example.org", "<1@x>"),
        report(VerdictKind::keyGone, "example.org", "<2@x>"),
        report(VerdictKind::verified, "example.net", "<3@x>")};
    const auto told = [&](VerdictKind kind, const char* domain, const char* messageID) {
        return knownInWords(*report(kind, domain, messageID), history, Reader());
    };
    EXPECT_EQ(told(VerdictKind::verified, "news.example.org", "<9@x>"),
              "You have checked 1 other message that is proven to be from example.org, since 2024.");
    EXPECT_EQ(
        told(VerdictKind::signatureBroken, "example.org", "<9@x>"),
        "You have checked 1 message that is proven to be from example.org, since 2024; this one isn’t.");
    EXPECT_EQ(told(VerdictKind::verified, "example.net", "<3@x>"),
              "The first message from this domain in your history.");
    EXPECT_EQ(told(VerdictKind::signatureBroken, "example.com", "<9@x>"), "");
    const auto odd = report(VerdictKind::verified, "evil.test", "<4@x>");
    odd->flags = {{LookAlikeFlag::MultipleFrom{}}};
    history.push_back(odd);
    EXPECT_EQ(knownDomains(history), (std::vector<std::string>{"example.org", "example.net"}));
}

}  // namespace
}  // namespace quillmark
