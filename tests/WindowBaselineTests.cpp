#include "WindowBaseline/CloseGuard.h"
#include "WindowBaseline/EditActions.h"
#include "WindowBaseline/HelpMenu.h"
#include "WindowBaseline/QtWords.h"
#include "WindowBaseline/WindowReader.h"
#include "tests/WindowTest.h"

namespace window_baseline {
namespace {

TEST(WindowBaseline, closeGuardKeepsTheWindow) {
    QWidget window;
    bool mayClose = false;
    new CloseGuard(&window, [&] { return mayClose; });
    window.show();
    EXPECT_FALSE(window.close());
    EXPECT_TRUE(window.isVisible());
    mayClose = true;
    EXPECT_TRUE(window.close());
}

TEST(WindowBaseline, qtSpeaksTheLanguage) {
    EXPECT_FALSE(translateQt("xx"));
    EXPECT_EQ(QCoreApplication::translate("QPlatformTheme", "Cancel"), "Cancel");
    ASSERT_TRUE(translateQt("de")) << "Qt's translations are not installed";
    EXPECT_EQ(QCoreApplication::translate("QPlatformTheme", "Cancel"), "Abbrechen");
    EXPECT_TRUE(translateQt("el"));  // Qt's own, or ours
    EXPECT_NE(QCoreApplication::translate("QFileDialog", "Look in:"), "Look in:");
    EXPECT_NE(QCoreApplication::translate("QFileDialog", "Look in:"), "Suchen in:");
    for (QTranslator* each : QCoreApplication::instance()->findChildren<QTranslator*>()) delete each;
}

TEST(WindowBaseline, editActionsWorkOnWhatHasTheKeyboard) {
    QWidget window;
    QVBoxLayout layout(&window);
    QLineEdit line;
    QPlainTextEdit text;
    QTextEdit report("a report’s text");
    report.setReadOnly(true);
    QLabel label("chosen words");
    label.setTextInteractionFlags(Qt::TextSelectableByKeyboard | Qt::TextSelectableByMouse);
    label.setFocusPolicy(Qt::StrongFocus);
    for (QWidget* each : std::initializer_list<QWidget*>{&line, &text, &report, &label})
        layout.addWidget(each);
    QMenu menu;
    EditActions actions({"Undo", "Redo", "Cut", "Copy", "Paste", "Select All"}, &menu, &window);
    int pasted = 0, copied = 0;
    QObject::connect(&actions, &EditActions::pastedElsewhere, [&] { ++pasted; });
    QObject::connect(&actions, &EditActions::copiedElsewhere, [&] { ++copied; });
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    const auto perform = [&](EditActions::Command command) { actions.action(command)->trigger(); };

    line.setFocus();
    line.insert("one");
    perform(EditActions::undo);
    EXPECT_EQ(line.text(), "");
    perform(EditActions::redo);
    EXPECT_EQ(line.text(), "one");
    perform(EditActions::selectAll);
    perform(EditActions::cut);
    text.setFocus();
    perform(EditActions::paste);
    EXPECT_EQ(text.toPlainText(), "one");
    emit menu.aboutToShow();
    EXPECT_TRUE(actions.action(EditActions::undo)->isEnabled());
    EXPECT_FALSE(actions.action(EditActions::cut)->isEnabled());
    emit menu.aboutToHide();

    report.setFocus();
    emit menu.aboutToShow();
    EXPECT_TRUE(actions.action(EditActions::selectAll)->isEnabled());
    EXPECT_FALSE(actions.action(EditActions::cut)->isEnabled());
    emit menu.aboutToHide();
    perform(EditActions::selectAll);
    perform(EditActions::copy);
    EXPECT_EQ(QApplication::clipboard()->text(), "a report’s text");

    label.setFocus();
    perform(EditActions::copy);
    perform(EditActions::paste);
    EXPECT_EQ(std::pair(copied, pasted), std::pair(1, 1));
    perform(EditActions::selectAll);
    perform(EditActions::copy);
    EXPECT_EQ(QApplication::clipboard()->text(), "chosen words");
}

TEST(WindowBaseline, helpMenuOpensItsTopics) {
    QMenuBar bar;
    std::string opened;
    QMenu* menu =
        addHelpMenu(&bar, "Help", {{"How", [&] { opened += "how "; }}, {"Why", [&] { opened += "why "; }}},
                    {"About", [&] { opened += "about"; }});
    for (QAction* action : menu->actions()) action->trigger();
    EXPECT_EQ(opened, "how why about");
    EXPECT_EQ(menu->actions().last()->menuRole(), QAction::AboutRole);
}

TEST(WindowBaseline, windowComesBackWhereItWas) {
    const QTemporaryDir folder;
    QSettings settings(folder.filePath("settings.ini"), QSettings::IniFormat);
    {
        QWidget window;
        new WindowReader(&window, settings, "window");
        window.resize(431, 287);
        window.show();
        window.close();
    }
    QWidget window;
    new WindowReader(&window, settings, "window");
    EXPECT_EQ(window.size(), QSize(431, 287));
}

TEST(WindowBaseline, darkness) {
    EXPECT_FALSE(isDark(QPalette(Qt::white)));
    EXPECT_TRUE(isDark(QPalette(QColor(30, 30, 30))));
}

}  // namespace
}  // namespace window_baseline
