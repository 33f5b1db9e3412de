#include "packages/PackageInfo.h"
#include "Test.h"

using namespace tarn::vkservice::packages;
using tarn::vkcore::EnhVersion;
using tarn::vkcore::LangString;
using tarn::vkcore::Version;

namespace {

PackageInfo full()
{
    PackageInfo tInfo;
    tInfo.mName = q("viewer");
    tInfo.mKind = Kind::Data;
    tInfo.mVersion = EnhVersion(Version(1, 2, 3, 4), QDateTime(QDate(2026, 3, 1), QTime(8, 0), Qt::UTC));
    tInfo.mTitle = LangString({{q("en"), q("Viewer")}, {q("pt_BR"), q("Visor")}});
    tInfo.mLanguage = q("de");
    tInfo.mRequires = {q("charts"), q("lib-x+1")};
    tInfo.mExecutables = {q("bin/viewer")};
    tInfo.mReport = LangString({{q("en"), q("News\nin two lines")}});
    tInfo.mInstalledSize = 5000000000;
    return tInfo;
}

TEST(PackageInfo, ComesBackFromJson)
{
    for (const PackageInfo& tInfo : {full(), [] {
                                         PackageInfo tLeast;
                                         tLeast.mName = q("a");
                                         return tLeast;
                                     }()}) {
        PackageInfo tRead;
        QString tError;
        ASSERT_TRUE(PackageInfo::fromJson(tInfo.toJson(), &tRead, &tError)) << tError;
        EXPECT_EQ(tRead.mKind, tInfo.mKind);
        EXPECT_EQ(tRead.mVersion, tInfo.mVersion);
        EXPECT_EQ(tRead.toJson(), tInfo.toJson());
        EXPECT_EQ(tRead.mExecutables, tInfo.mExecutables);
        EXPECT_EQ(tRead.mInstalledSize, tInfo.mInstalledSize);
    }
    EXPECT_EQ(archiveName(full()), q("viewer-1.2.3.4-de.tar.zst"));
}

TEST(PackageInfo, RefusesWhatBreaksARule)
{
    const QJsonValue tTwo = 2;
    const struct
    {
        const char* mName;
        QList<QJsonValue> mBad;
    } sCases[] = {
        {"name",
         {QJsonValue::Undefined, tTwo, q(""), q("Viewer"), q("../x"), q("a/b"), q(".a"), q("a b"), q("a\n"),
          q("\xc3\xa4"), QString(101, u'a')}},
        {"kind", {QJsonValue::Undefined, q("other"), q(""), tTwo}},
        {"version", {QJsonValue::Undefined, q(""), q("1.x"), q("1.2.3.4.5"), q("-1"), tTwo}},
        {"date", {q("soon"), tTwo}},
        {"title",
         {q("x"), QJsonObject{{q("en"), 1}}, QJsonObject{{q("../en"), q("x")}},
          QJsonObject{{q("en"), QString(2000, u'x')}}}},
        {"language", {q("../x"), q("d"), tTwo}},
        {"requires", {q("x"), QJsonArray{1}, QJsonArray{q("../x")}, QJsonArray{q("")}}},
        {"executables",
         {QJsonArray{q("/bin/sh")}, QJsonArray{q("a/../../b")}, QJsonArray{q("")}, QJsonArray{q("a//b")},
          QJsonArray{q("./a")}, QJsonArray{1}}},
        {"report", {tTwo}},
        {"installedSize", {-1, 1.5, q("1"), 1e30}},
    };
    for (const auto& tCase : sCases) {
        for (const QJsonValue& tBad : tCase.mBad) {
            QJsonObject tObject = full().toJson();
            tObject.insert(q(tCase.mName), tBad);
            if (tBad.isUndefined()) {
                tObject.remove(q(tCase.mName));
            }
            PackageInfo tInfo;
            QString tError;
            EXPECT_FALSE(PackageInfo::fromJson(tObject, &tInfo, &tError)) << QJsonDocument(tObject).toJson();
            EXPECT_TRUE(tError.contains(q(tCase.mName))) << tError;
        }
    }
    QJsonObject tMore = full().toJson();
    tMore.insert(q("unknown"), 1);
    PackageInfo tInfo;
    QString tError;
    EXPECT_TRUE(PackageInfo::fromJson(tMore, &tInfo, &tError));
}

} // namespace
