#include "ClientTest.h"

#include <QtCore/QRegularExpression>

namespace {

class StartUpTest : public ClientTest
{
protected:
    // A system configuration without an application language.
    void configure(const QByteArray& pName, const QByteArray& pSettingsDir)
    {
        mInstallation.writeFile("etc/vk/" + pName,
                                "[application]\nlogDir = \"" + mInstallation.path("log").toUtf8() +
                                    "\"\nlanguages = [\"da\", \"pt_BR\"]\nsettingsDir.other = \"" +
                                    pSettingsDir + "\"\n[service]\nsocketName = \"vkservice\"\n");
    }
    QByteArray languages() const { return mInstallation.run({"update-settings", "-L"}).mOut; }
};

} // namespace

TEST_F(StartUpTest, LogsItsStartAndItsEnd)
{
    EXPECT_EQ(mInstallation.run({"--version"}).mStatus, 0);
    const QString tStamp = q("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d");
    const QRegularExpression tExpected(q("^%1[^\n]* Application startup %1\n[^\n]* rkm " RKM_VERSION
                                         "\\.0\n[^\n]* Operating system: [^\n]+\n"
                                         "[^\n]* Failed to load translation: qt_en\n"
                                         "[^\n]* Failed to load translation: vkcommon_en\n"
                                         "[^\n]* Failed to load translation: vkcore_en\n"
                                         "[^\n]* Failed to load translation: vkc_en\n"
                                         "\n[^\n]*Application shutdown %1\n$")
                                           .arg(tStamp));
    EXPECT_TRUE(tExpected.match(q(mInstallation.log())).hasMatch()) << mInstallation.log();
}

TEST_F(StartUpTest, ReadsTheUsersConfigurationWhereTheSettingsLie)
{
    const QByteArray tAbsolute = mInstallation.path("abs").toUtf8();
    const QByteArray tDirs[][2] = {{"some/where", "home/some/where"}, {"", "home"}, {tAbsolute, "abs"}};
    for (const auto& tDir : tDirs) {
        configure("vk.cfg", tDir[0]);
        EXPECT_FALSE(languages().contains("fi: suomi"));
        EXPECT_FALSE(QFile::exists(mInstallation.path(tDir[1] + "/etc"))) << "made something";
        mInstallation.writeFile(tDir[1] + "/etc/vk_user.cfg", "[data]\nlanguages = [\"fi\"]\n");
        EXPECT_EQ(languages(), "Available data languages:\n  fi: suomi\n");
        EXPECT_EQ(QDir(mInstallation.path(tDir[1] + "/etc")).entryList(QDir::Files).size(), 1);
        QFile::remove(mInstallation.path(tDir[1] + "/etc/vk_user.cfg"));
    }
}

// The first existing name counts, and the user's file beside it; the language is that of the locale.
TEST_F(StartUpTest, FindsItsConfigurationBesideAMovableInstallation)
{
    QFile::remove(mInstallation.path("etc/vk/vk.cfg"));
    configure("vkp.cfg", "settings");
    mInstallation.writeFile("etc/vk/vkp_user.cfg", "[data]\nlanguages = [\"fi\"]\n");
    EXPECT_EQ(languages(), "Available data languages:\n  fi: suomi\n");
    for (const auto& [tLocale, tLanguage] : {std::pair("fr_CH", "fr"), {"pt_BR", "pt_BR"}}) {
        mInstallation.environment().insert("LC_ALL", tLocale);
        mInstallation.run({"--version"});
        EXPECT_TRUE(mInstallation.log().contains(QByteArray("translation: vkc_") + tLanguage + '\n'));
    }
    configure("vk.cfg", "settings\n");
    EXPECT_TRUE(mInstallation.run({"--version"})
                    .mErr.startsWith("Failed to load file \"" + mInstallation.path("etc/vk/vk.cfg").toUtf8() +
                                     "\": vk.cfg, line 4"));
}

TEST_F(StartUpTest, TellsOfAUsersConfigurationThatIsNoneAndGoesOn)
{
    const QString tFile = q("home/settings/etc/vk_user.cfg");
    const QString tLock = q("home/settings/etc/vk_user.lock");
    for (const char* tContent : {"no [ configuration", "\xff\xfe = 1"}) {
        mInstallation.writeFile(tFile, tContent);
        mInstallation.writeFile(tLock, "");
        expectResult(mInstallation.run({"show-settings", "-d"}), "Data directory: /srv/kdml\n",
                     "Failed to load file \"" + mInstallation.path(tFile).toUtf8() +
                         "\". Application will be terminated now.\n",
                     0);
    }
}

TEST_F(StartUpTest, ALogThatCantBeWrittenDisturbsNothing)
{
    mInstallation.writeFile("log", "a file, not a folder");
    expectResult(mInstallation.run({"show-settings", "-d"}), "Data directory: /srv/kdml\n", "", 0);
}

// The catalogues of this test, made from messages/*.ts: a text in vkc wins over the same one in vkcommon.
TEST_F(StartUpTest, SpeaksTheLanguageOfItsCatalogues)
{
    const QString tTarget = mInstallation.path("share/rkm/locale/messages/");
    QDir().mkpath(tTarget);
    for (const QString& tName : {q("vkc_en.qm"), q("vkcommon_en.qm")}) {
        ASSERT_TRUE(QFile::copy(q(MESSAGES_DIR "/") + tName, tTarget + tName));
    }
    EXPECT_EQ(Installation().run({"list-servers", "word"}).mErr, "Unhandled argument 'word'\n");
    EXPECT_EQ(mInstallation.run({"list-servers", "word"}).mErr, "What is 'word'?\n");
    EXPECT_EQ(mInstallation.run({"list-servers", "--bad"}).mErr, "Never heard of '--bad'\n");
    const QByteArray tMonitoring = mInstallation.run({"show-monitoring-settings"}).mOut;
    for (const char* tLine : {"\n  Every 7 days\n", "event e-mails: aye\n", "a@example.org (checked)\n",
                              "b@example.org (not verified)\n", "Notification e-mail addresses:\n"}) {
        EXPECT_TRUE(tMonitoring.contains(tLine)) << tLine << tMonitoring;
    }
    EXPECT_TRUE(mInstallation.run({"--help"}).mOut.startsWith("USAGE: rkm <command>"));
}
