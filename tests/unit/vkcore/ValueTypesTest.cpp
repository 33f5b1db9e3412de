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
        const char* mLong;
        const char* mShort;
    } tCases[] = {{"1", "1.0.0.0", "1.0.0"},
                  {"01.002.3.0", "1.2.3.0", "1.2.3"},
                  {"2147483647.0.0.1", "2147483647.0.0.1", "2147483647.0.0.1"}};
    bool tOk = false;
    for (const auto& tCase : tCases) {
        const Version tVersion = Version::fromString(q(tCase.mText), &tOk);
        EXPECT_TRUE(tOk);
        EXPECT_EQ(tVersion.toString(), q(tCase.mLong));
        EXPECT_EQ(tVersion.toTarnAppFormat(), q(tCase.mShort));
    }
    // The last but one is an Arabic digit.
    for (const char* tText : {"2147483648", "", "1.", "1..2", "-1.2", "+1", " 1", "1 .2", "1.2.3.4.5", "1.2a",
                              "0x1", "\xd9\xa1.2", "1,000"}) {
        EXPECT_EQ(Version::fromString(q(tText), &tOk).toString(), q("0.0.0.0")) << tText;
        EXPECT_FALSE(tOk) << tText;
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
    const QMap<QString, QString> tBoth{{q("de"), q("D")}, {q("en"), q("E")}};
    const struct
    {
        QMap<QString, QString> mValues;
        const char* mLang;
        const char* mBest;
    } tCases[] = {
        {{}, "de", ""},
        {tBoth, "de_AT", "D"},
        {tBoth, "fr", "E"},
        {{{q("de"), QString()}, {q("en"), q("E")}}, "de", "E"},
        {{{q("ja"), QString()}, {q("ko"), q("K")}}, "de", "K"},
        {{{q("pt_BR"), q("B")}, {q("pt"), q("P")}}, "pt_BR", "B"},
    };
    for (const auto& tCase : tCases) {
        EXPECT_EQ(LangString(tCase.mValues).bestValue(q(tCase.mLang)), q(tCase.mBest)) << tCase.mLang;
    }
}

TEST(ServerTest, SuggestedName)
{
    const QMap<QByteArray, QByteArray> tNames{
        {"https://user@updates.example.org:8443/a", "updates.example.org"},
        {"file:///srv/my%20updates/", "my updates"},
        {"file:///", ""},
        {"no address", ""},
    };
    for (auto tIt = tNames.begin(); tIt != tNames.end(); ++tIt) {
        const GRef<Server> tServer(new Server(nullptr));
        tServer->setUri(q(tIt.key()));
        EXPECT_EQ(tServer->getSuggestedName(), q(tIt.value()));
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
