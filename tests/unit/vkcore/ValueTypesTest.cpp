#include "Test.h"

#include <vkcore/EnhVersion.h>
#include <vkcore/LangString.h>
#include <vkcore/NetProxy.h>
#include <vkcore/Server.h>
#include <vkcore/Types.h>
#include <vkcore/Version.h>

#include <QtCore/QDataStream>
#include <QtCore/QIODevice>

#include <limits>

using namespace tarn::vkcore;

TEST(VersionTest, ReadsAndPrints)
{
    const struct
    {
        const char* mText;
        bool mOk;
        const char* mLong;
        const char* mShort;
    } tCases[] = {
        {"1", true, "1.0.0.0", "1.0.0"},
        {"1.2", true, "1.2.0.0", "1.2.0"},
        {"1.2.3.4", true, "1.2.3.4", "1.2.3.4"},
        {"01.002.3.0", true, "1.2.3.0", "1.2.3"},
        {"2147483647.0.0.1", true, "2147483647.0.0.1", "2147483647.0.0.1"},
        {"2147483648", false, "0.0.0.0", "0.0.0"},
        {"", false, "0.0.0.0", "0.0.0"},
        {".", false, "0.0.0.0", "0.0.0"},
        {"1.", false, "0.0.0.0", "0.0.0"},
        {"1..2", false, "0.0.0.0", "0.0.0"},
        {"-1.2", false, "0.0.0.0", "0.0.0"},
        {"+1", false, "0.0.0.0", "0.0.0"},
        {" 1", false, "0.0.0.0", "0.0.0"},
        {"1 .2", false, "0.0.0.0", "0.0.0"},
        {"1.2.3.4.5", false, "0.0.0.0", "0.0.0"},
        {"1.2a", false, "0.0.0.0", "0.0.0"},
        {"0x1", false, "0.0.0.0", "0.0.0"},
        {"\xd9\xa1.2", false, "0.0.0.0", "0.0.0"}, // an Arabic digit
        {"1,000", false, "0.0.0.0", "0.0.0"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mText);
        bool tOk = !tCase.mOk;
        const Version tVersion = Version::fromString(q(tCase.mText), &tOk);
        EXPECT_EQ(tOk, tCase.mOk);
        EXPECT_EQ(tVersion.toString(), q(tCase.mLong));
        EXPECT_EQ(tVersion.toTarnAppFormat(), q(tCase.mShort));
    }
}

TEST(VersionTest, ComparesNumbersNotTexts)
{
    EXPECT_LT(Version(1, 9, 0, 0), Version(1, 10, 0, 0));
    EXPECT_LT(Version(1, 2, 3, 4), Version(1, 2, 4, 0));
    EXPECT_LT(sNotInstalledVersion, Version());
}

TEST(EnhVersionTest, OrdersByVersionThenDate)
{
    const QDateTime tOld(QDate(2024, 3, 7), QTime(1, 0));
    const QDateTime tNew(QDate(2024, 3, 8), QTime(0, 0));
    EXPECT_LT(EnhVersion(Version(1, 0, 0, 0), tNew), EnhVersion(Version(2, 0, 0, 0), tOld));
    EXPECT_LT(EnhVersion(Version(1, 0, 0, 0), tOld), EnhVersion(Version(1, 0, 0, 0), tNew));
    EXPECT_LT(EnhVersion(Version(1, 0, 0, 0), QDateTime()), EnhVersion(Version(1, 0, 0, 0), tOld));
    EXPECT_EQ(EnhVersion(Version(1, 0, 0, 0), tOld), EnhVersion(Version(1, 0, 0, 0), tOld.toUTC()));
    EXPECT_EQ(EnhVersion(Version(1, 0, 0, 0), QDateTime()), EnhVersion(Version(1, 0, 0, 0), QDateTime()));
    EXPECT_EQ(EnhVersion(sNotInstalledVersion, QDateTime(QDate(1900, 1, 1), QTime(0, 0))),
              sNotInstalledEnhVersion);
    EXPECT_EQ(EnhVersion(Version(1, 2, 3, 0), tOld).toString(), q("1.2.3 (2024-03-07)"));
    EXPECT_EQ(EnhVersion(Version(1, 2, 3, 4), QDateTime()).toString(), q("1.2.3.4"));
}

TEST(LangStringTest, BestValue)
{
    const struct
    {
        QMap<QString, QString> mValues;
        const char* mLang;
        const char* mBest;
    } tCases[] = {
        {{}, "de", ""},
        {{{q("de"), q("D")}, {q("en"), q("E")}}, "de", "D"},
        {{{q("de"), q("D")}, {q("en"), q("E")}}, "de_AT", "D"},
        {{{q("de"), q("D")}, {q("en"), q("E")}}, "fr", "E"},
        {{{q("de"), QString()}, {q("en"), q("E")}}, "de", "E"},
        {{{q("ja"), q("J")}}, "de", "J"},
        {{{q("ja"), QString()}, {q("ko"), q("K")}}, "de", "K"},
        {{{q("pt_BR"), q("B")}, {q("pt"), q("P")}}, "pt_BR", "B"},
        {{{q("de"), q("D")}}, "", "D"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mLang);
        EXPECT_EQ(LangString(tCase.mValues).bestValue(q(tCase.mLang)), q(tCase.mBest));
    }
}

TEST(ServerTest, SuggestedName)
{
    const struct
    {
        const char* mUri;
        const char* mName;
    } tCases[] = {
        {"", ""},
        {"https://updates.example.org/a/b", "updates.example.org"},
        {"https://user@updates.example.org:8443/", "updates.example.org"},
        {"file:///srv/updates", "updates"},
        {"file:///srv/updates/", "updates"},
        {"file:///srv/my%20updates", "my updates"},
        {"file:///", ""},
        {"no address", ""},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mUri);
        const GRef<Server> tServer(new Server(nullptr));
        tServer->setUri(q(tCase.mUri));
        EXPECT_EQ(tServer->getSuggestedName(), q(tCase.mName));
    }
}

TEST(NetProxyTest, ModeWords)
{
    bool tOk = false;
    EXPECT_EQ(netProxyModeFromStr(q("os"), &tOk), NetProxyModeOs);
    EXPECT_TRUE(tOk);
    EXPECT_EQ(netProxyModeFromStr(q("manual"), &tOk), NetProxyModeManual);
    EXPECT_TRUE(tOk);
    for (const char* tWord : {"", "OS", "Manual", "manual ", "none"}) {
        SCOPED_TRACE(tWord);
        EXPECT_EQ(netProxyModeFromStr(q(tWord), &tOk), NetProxyModeOs);
        EXPECT_FALSE(tOk);
    }
}

TEST(TypesTest, StreamAsFourBytes)
{
    QByteArray tBytes;
    QDataStream(&tBytes, QIODevice::WriteOnly) << StatusError << ActivityRemovingObsolete;
    EXPECT_EQ(tBytes.toHex(), "0000000400000006");
    ServiceStatus tStatus{};
    ServiceActivity tActivity{};
    QDataStream tStream(tBytes);
    tStream >> tStatus >> tActivity;
    EXPECT_EQ(tStatus, StatusError);
    EXPECT_EQ(tActivity, ActivityRemovingObsolete);
    EXPECT_EQ(Types::serviceActivityToStr(static_cast<ServiceActivity>(-1)), q("-1"));
    EXPECT_EQ(Types::serviceActivityToStr(ActivityDownloading), q("downloading"));
}
