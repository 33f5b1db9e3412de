#include "Test.h"
#include "TestApplication.h"

#include <vkcore/Config.h>

using tarn::vkcore::Config;

namespace {

class ConfigTest : public ::testing::Test
{
protected:
    bool load(const QByteArray& pBytes, Config::ValueType pType = Config::SystemValue)
    {
        writeFile(mPath, pBytes);
        return mConfig.load(mPath, q("vk.cfg"), pType, false);
    }
    std::string value(const char* pKey) const { return mConfig.getStrValue(q(pKey)).toStdString(); }

    QTemporaryDir mDir;
    QString mPath = mDir.filePath(q("vk.cfg"));
    Config mConfig;
};

} // namespace

TEST_F(ConfigTest, FlattensKeysAndValues)
{
    ASSERT_TRUE(
        load("plain = 'text'\n"
             "application.settingsDir.other = \"some/dir\"\n"
             "[service]\nstateDir = '/x'\nretries = 1_000\nhex = 0xff\nratio = 0.5\non = true\noff = false\n"
             "day = 2024-03-07\nhour = 01:02:03\nstamp = 2024-03-07T01:02:03\n"
             "list = ['a', 2, true]\nnone = []\n"
             "numbers = [1.5, 2.5]\nprose = \"" +
             QByteArray("a.").repeated(40) + "\" # " + QByteArray("b.").repeated(40) +
             "\n"
             "[service.mail]\nsender = 'Jos\xc3\xa9'\n"));
    const QMap<QByteArray, std::string> tValues{
        {"plain", "text"},
        {"application.settingsDir.other", "some/dir"},
        {"service.stateDir", "/x"},
        {"service.retries", "1000"},
        {"service.hex", "255"},
        {"service.ratio", "0.5"},
        {"service.on", "true"},
        {"service.off", "false"},
        {"service.day", "2024-03-07"},
        {"service.hour", "01:02:03"},
        {"service.stamp", "2024-03-07T01:02:03"},
        {"service.list", "a,2,true"},
        {"service.none", ""},
        {"service.mail.sender", "Jos\xc3\xa9"},
        {"service", ""},
    };
    for (auto tIt = tValues.begin(); tIt != tValues.end(); ++tIt) {
        EXPECT_EQ(value(tIt.key().constData()), tIt.value()) << tIt.key();
    }
    EXPECT_TRUE(mConfig.hasValue(q("service.none")));
    EXPECT_FALSE(mConfig.hasValue(q("service")));
    EXPECT_EQ(mConfig.getStrValue(q("no.such"), q("x")), q("x"));
}

TEST_F(ConfigTest, BadFilesChangeNothingAndNameTheReason)
{
    ASSERT_TRUE(load("a = 'kept'"));
    const struct
    {
        QByteArray mBytes;
        const char* mReason;
    } tCases[] = {
        {"a = 'new'\nb = \n", "line 2"},
        {QByteArray("a = 'new'\nb = '\0'\n", 18), "line 2"},
        {"a = '" + QByteArray(1024 * 1024, 'x') + "'", "larger than"},
        // Files that would make toml++ crash or exhaust the memory.
        {"[[[a]]]\n", "line 1"},
        {"a" + QByteArray(".a").repeated(400000) + " = 1", "more than 32 parts"},
        {"x = {a = [[\n{b = '#', c" + QByteArray(".\"\\\"\"").repeated(100000) + " = 1}",
         "more than 32 parts"},
        {'[' + QByteArray(500000, 'a') + "]\n" + QByteArray("b").repeated(9) + " = 1", "longer than"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mBytes.left(20));
        EXPECT_FALSE(load(tCase.mBytes));
        EXPECT_TRUE(mConfig.errorText().startsWith(q("vk.cfg"))) << mConfig.errorText();
        EXPECT_TRUE(mConfig.errorText().contains(q(tCase.mReason))) << mConfig.errorText();
        EXPECT_EQ(value("a"), "kept");
    }
    EXPECT_FALSE(mConfig.load(mDir.path(), q("dir"), Config::SystemValue, false));
    EXPECT_TRUE(mConfig.load(mPath + q("none"), q("vk.cfg"), Config::UserValue, false));
    EXPECT_FALSE(mConfig.load(mPath + q("none"), q("vk.cfg"), Config::UserValue, true));
    EXPECT_TRUE(load("a = 'new'"));
    EXPECT_TRUE(mConfig.errorText().isEmpty());
}

TEST_F(ConfigTest, HigherKindsWinWhateverTheOrder)
{
    ASSERT_TRUE(load("a = 'user'", Config::UserValue));
    ASSERT_TRUE(load("a = 'system'\nb = 'system'", Config::SystemValue));
    mConfig.setValue(q("b"), q("default"), Config::DefaultValue);
    EXPECT_EQ(value("a"), "user");
    EXPECT_EQ(value("b"), "system");
    ASSERT_TRUE(load("b = 'later'", Config::SystemValue));
    EXPECT_EQ(value("b"), "later");
}
