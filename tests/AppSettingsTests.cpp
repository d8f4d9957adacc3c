#include "Quillmark/AppSettings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QFile>
#include <QTemporaryDir>

#include "tests/TestFiles.h"

namespace quillmark {
namespace {

TEST(AppSettings, loadedFromWhateverIsStored) {
    const AppSettings defaults{false, true, true};
    const struct {
        std::optional<std::string> stored;
        AppSettings expected;
    } rows[] = {
        {std::nullopt, defaults},
        {"{}", defaults},
        {R"({"keepHistory":false})", {false, true, false}},
        {R"({"onboardingDone":true,"checkDomainAge":false,"keepHistory":false,"later":[1]})",
         {true, false, false}},
        {R"({"onboardingDone":true,"keepHistory":5})", defaults},
        {R"({"onboardingDone":true,"keepHistory":null})", defaults},
        {R"({"onboardingDone":true)", defaults},
        {"[true,true,true]", defaults},
        {std::string("\0\xff", 2), defaults},
        {"", defaults},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored.value_or("nothing"));
        MemorySettingsStore store;
        if (row.stored) store.setBytes("settings", *row.stored);
        EXPECT_EQ(loadSettings(store), row.expected);
    }
}

TEST(AppSettings, outlastTheRun) {
    const QTemporaryDir folder;
    const QString file = folder.filePath("deep/quillmark.conf");
    const AppSettings chosen{true, false, true};
    {
        UserSettingsStore store(file);
        EXPECT_EQ(loadSettings(store), AppSettings());
        saveSettings({true, true, true}, store);
        saveSettings(chosen, store);
        EXPECT_EQ(store.bytes("settings"),
                  R"({"checkDomainAge":false,"keepHistory":true,"onboardingDone":true})");
    }
    EXPECT_EQ(loadSettings(UserSettingsStore(file)), chosen);
    EXPECT_EQ(storedSettings(file.toStdString()), chosen);  // as the command line reads them
    EXPECT_EQ(storedOptions(file.toStdString()), AppOptions());
    const AppOptions options{.resolver = "https://dns.example/q{?dns}", .judgeByRFC9989 = true};
    {
        UserSettingsStore store(file);
        saveOptions(options, store);
        EXPECT_EQ(loadOptions(store), options);
    }
    EXPECT_EQ(storedOptions(file.toStdString()), options);
    EXPECT_EQ(loadSettings(UserSettingsStore(file)), chosen);
    const std::string unusual("{\"a\\b\" : [\n\t;,=)]\0}", 19);
    UserSettingsStore(file).setBytes("other", unusual);
    EXPECT_EQ(storedBytes(test::contents(file.toStdString()), "other"), unusual);

    QFile broken(file);
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("[General]\nsettings=@ByteArray(\x01{)\n");
    broken.close();
    EXPECT_EQ(loadSettings(UserSettingsStore(file)), AppSettings());
    ASSERT_TRUE(broken.resize(30'000'000));
    const QString pipe = folder.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toLocal8Bit().constData(), 0600), 0);
    for (const QString& unfit : {file, pipe, folder.path()}) {
        UserSettingsStore store(unfit);
        EXPECT_EQ(loadSettings(store), AppSettings());
        saveSettings(chosen, store);  // which leaves it alone
    }
    EXPECT_EQ(broken.size(), 30'000'000);
}

}  // namespace
}  // namespace quillmark
