#include "Test.h"
#include "TestApplication.h"

#include <vkcore/InstallModule.h>
#include <vkcore/ProcessArgumentList.h>

#include "sqlite/InstallLogStore.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

using namespace tarn::vkcore;

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

TEST(ApplicationTest, LanguageNamesAndLists)
{
    const GRef<TestApplication> tApp(new TestApplication);
    const QMap<QByteArray, QByteArray> tNames{{"fr", "français"}, {"en_US", "American English"},
                                              {"ja", "日本語"},   {"qq", "qq"},
                                              {"", ""},           {"C", "C"}};
    for (auto tIt = tNames.begin(); tIt != tNames.end(); ++tIt) {
        EXPECT_EQ(tApp->getLangName(q(tIt.key())), q(tIt.value()));
    }
    EXPECT_TRUE(tApp->getAvailableAppLanguages().contains(q("en")));
    tApp->getConfig()->setValue(q("data.languages"), q("fr, de,,fr"), Config::UserValue);
    EXPECT_EQ(tApp->getAvailableDataLanguages(), QList<QString>({q("fr"), q("de")}));
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
