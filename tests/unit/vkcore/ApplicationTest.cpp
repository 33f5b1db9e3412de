#include "Test.h"
#include "TestApplication.h"

#include <vkcore/InstallModule.h>
#include <vkcore/ProcessArgumentList.h>

#include "sqlite/InstallLogStore.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>
#include <QtCore/QTimer>

using namespace tarn::vkcore;

namespace {

// Starts pProgram, a copy of this one, which prints what its application has found.
std::string shown(const QString& pProgram, const QString& pLocale)
{
    QProcess tProcess;
    QProcessEnvironment tEnvironment = QProcessEnvironment::systemEnvironment();
    tEnvironment.insert(q("HOME"), q("/no/home"));
    tEnvironment.insert(q("LC_ALL"), pLocale);
    tEnvironment.remove(q("XDG_CONFIG_HOME"));
    tProcess.setProcessEnvironment(tEnvironment);
    tProcess.start(pProgram, {q("--show-application")});
    tProcess.waitForFinished();
    return tProcess.readAllStandardOutput().toStdString();
}

} // namespace

TEST(ApplicationTest, FinalizesOnceWhenTheLoopHasStopped)
{
    const GRef<TestApplication> tApp(new TestApplication);
    QTimer::singleShot(0, tApp.get(), [&] {
        EXPECT_EQ(tApp->mFinalizeCount, 0);
        tApp->requestQuit(3);
    });
    EXPECT_EQ(QCoreApplication::exec(), 3);
    EXPECT_EQ(tApp->mFinalizeCount, 1);
    QTimer::singleShot(0, tApp.get(), [] { QCoreApplication::exit(0); });
    QCoreApplication::exec();
    EXPECT_EQ(tApp->mFinalizeCount, 1);
}

TEST(ApplicationTest, KeepsWhatIsLoggedBeforeTheLogIsOpen)
{
    const GRef<TestApplication> tApp(new TestApplication);
    tApp->logAssertFailed("a == b", "src/x", 12);
    EXPECT_TRUE(tApp->logText().contains("a == b (src/x:12)\n"));
}

TEST(ApplicationTest, ConfigurationBesideAMovableInstallation)
{
    const QTemporaryDir tDir;
    const QString tProgram = tDir.filePath(q("bin/tests"));
    const QString tEtc = tDir.filePath(q("etc/vk/"));
    ASSERT_TRUE(QDir().mkpath(tDir.filePath(q("bin"))) && QDir().mkpath(tEtc));
    ASSERT_TRUE(QFile::copy(QCoreApplication::applicationFilePath(), tProgram));
    ASSERT_TRUE(QFile::link(QDir::cleanPath(QCoreApplication::applicationDirPath() + q("/../lib")),
                            tDir.filePath(q("lib"))));
    writeFile(tEtc + q("vkp.cfg"), "application.language = 'ja'\na = 'system'");
    writeFile(tEtc + q("vkp_user.cfg"), "a = 'user'");
    const std::string tRoot = tDir.path().toStdString();
    const std::string tDirs = tRoot + "/etc/vk\n" + tRoot + "/share/rkm\n/no/home/.config/vk\n";
    EXPECT_EQ(shown(tProgram, q("C")), "1\n" + tDirs + "vkp\nja\nuser\n");

    writeFile(tEtc + q("vk.cfg"), "broken =");
    const std::string tBroken = shown(tProgram, q("C"));
    EXPECT_EQ(tBroken.rfind("0\n" + tDirs + "vk\nen\n", 0), 0U) << tBroken;
    EXPECT_NE(tBroken.find("Failed to load file \"" + tRoot + "/etc/vk/vk.cfg\": vk.cfg, line 1"),
              std::string::npos);
}

TEST(ApplicationTest, LanguageNamesAndLists)
{
    const GRef<TestApplication> tApp(new TestApplication);
    const QMap<QByteArray, QByteArray> tNames{
        {"fr", "français"}, {"en_US", "American English"}, {"ja", "日本語"}, {"qq", "qq"}, {"", ""}, {"C", "C"}};
    for (auto tIt = tNames.begin(); tIt != tNames.end(); ++tIt) {
        EXPECT_EQ(tApp->getLangName(q(tIt.key())), q(tIt.value()));
    }
    EXPECT_TRUE(tApp->getAvailableAppLanguages().contains(q("en")));
    tApp->getConfig()->setValue(q("data.languages"), q("fr, de,,fr"), Config::UserValue);
    EXPECT_EQ(tApp->getAvailableDataLanguages(), QList<QString>({q("fr"), q("de")}));
    for (const auto& [tLocale, tLang] : {std::pair("de_AT.UTF-8", "de"), {"pt_BR.UTF-8", "pt_BR"}, {"C", "en"}}) {
        const std::string tShown = shown(QCoreApplication::applicationFilePath(), q(tLocale));
        EXPECT_NE(tShown.find("\nvk\n" + std::string(tLang) + "\n"), std::string::npos) << tShown;
    }
}

TEST(ProcessArgumentListTest, GivesTheBytesOfTheProcess)
{
    char** tFirst = ProcessArgumentList().argv();
    const ProcessArgumentList tList;
    QFile tFile(q("/proc/self/cmdline"));
    ASSERT_TRUE(tFile.open(QIODevice::ReadOnly));
    QByteArray tBytes;
    for (int i = 0; i < tList.argc(); ++i) {
        tBytes += QByteArray(tList.argv()[i]) + '\0';
    }
    EXPECT_EQ(tBytes, tFile.readAll());
    EXPECT_EQ(tList.argv()[tList.argc()], nullptr);
    EXPECT_EQ(tFirst, tList.argv());
}

TEST(InstallModuleTest, ReadsTheLogOfTheStateDirectoryOrNamesWhyNot)
{
    const GRef<TestApplication> tApp(new TestApplication);
    const QString tPath = tApp->getStateDir() + q("/install-log.db");
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(tPath));
    ASSERT_TRUE(tStore.append(q("run"), QDateTime::currentDateTime(),
                              {{q("p"), {}, q("1.2.3.4"), q("ok"), {}, {}, {}}}));
    const GRef<InstallModule> tModule(new InstallModule(tApp.get(), 14));
    EXPECT_EQ(tModule->getActiveInstaller(), nullptr);
    ASSERT_TRUE(tModule->init());
    QList<GRef2<InstLogEntry>> tEntries;
    ASSERT_TRUE(tModule->getActiveInstaller()->getInstallLog(&tEntries, {}, {}, 10, true));
    ASSERT_EQ(tEntries.size(), 1);
    EXPECT_EQ(tEntries[0]->mVersion, Version(1, 2, 3, 4));
    EXPECT_EQ(tEntries[0]->mName.bestValue(q("de")), q("p"));

    EXPECT_FALSE(GRef<InstallModule>(new InstallModule(tApp.get(), 13))->init());
    writeFile(tPath, QByteArray(5000, 'x'));
    EXPECT_FALSE(GRef<InstallModule>(new InstallModule(tApp.get(), 14))->init());
    EXPECT_TRUE(tApp->logText().contains("no module 13"));
    EXPECT_TRUE(tApp->logText().contains("not a database"));
}
