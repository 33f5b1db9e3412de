#include "packages/PackageInfo.h"
#include "Test.h"

using namespace tarn::packages;
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
    tInfo.mCheck = q("bin/selftest");
    tInfo.mReport = LangString({{q("en"), q("News\nin two lines")}});
    tInfo.mInstalledSize = 5000000000;
    tInfo.mIndex = IndexFile{.mFile = {.mLength = 9, .mHash = {}}, .mText = {.mHash = {}, .mLength = 70}};
    tInfo.mDeltas = {{.mFile = {.mLength = 3, .mHash = {}}, .mFrom = {.mHash = {}, .mLength = 60}}};
    tInfo.mAttachments = {{AttachmentKind::Advisory, {.mLength = 5, .mHash = {}}},
                          {AttachmentKind::Sbom, {.mLength = 6, .mHash = {}}}};
    tInfo.mRelease.mIsCritical = true;
    tInfo.mRelease.mSecuritySince = Version(1, 2, 0, 0);
    tInfo.mRelease.mPhase = Phase{q("57"), tInfo.mVersion.date(), 432000};
    return tInfo;
}

QJsonObject phase(const char* pPublication, const char* pBegins, qint64 pSeconds)
{
    return {{q("publication"), q(pPublication)}, {q("begins"), q(pBegins)}, {q("seconds"), pSeconds}};
}

QJsonObject sideFile(int pLength, int pDigits)
{
    const QJsonObject tText{{q("length"), 1}, {q("sha256"), QString(64, u'a')}};
    return {{q("length"), pLength}, {q("sha256"), QString(pDigits, u'a')}, {q("text"), tText}};
}

TEST(PackageInfo, ComesBackFromJson)
{
    PackageInfo tLeast;
    tLeast.mName = q("a");
    PackageInfo tHalted = full();
    tHalted.mRelease.mHalted = QDateTime(QDate(2026, 3, 2), QTime(8, 0), Qt::UTC);
    for (const PackageInfo& tInfo : {full(), tLeast, tHalted}) {
        const auto tRead = PackageInfo::fromJson(tInfo.toJson());
        ASSERT_TRUE(tRead) << tRead.failure().mText;
        EXPECT_EQ(tRead->toJson(), tInfo.toJson());
        EXPECT_EQ(tRead->mVersion, tInfo.mVersion);
        EXPECT_EQ(tRead->mInstalledSize, tInfo.mInstalledSize);
        EXPECT_EQ(tRead->mIndex, tInfo.mIndex);
        EXPECT_EQ(tRead->mDeltas, tInfo.mDeltas);
        EXPECT_EQ(tRead->mAttachments, tInfo.mAttachments);
        EXPECT_EQ(tRead->mRelease, tInfo.mRelease);
    }
    EXPECT_EQ(tHalted.toJson().keys(), QStringList({q("name"), q("package")}))
        << "no package for what does not know halts";
    EXPECT_EQ(archiveName(full()), q("viewer-1.2.3.4-de.tar.zst"));
}

TEST(PackageInfo, RefusesWhatBreaksARule)
{
    const std::pair<const char*, QList<QJsonValue>> sCases[] = {
        {"name",
         {QJsonValue::Undefined, 2, q(""), q("Viewer"), q("../x"), q(".a"), q("a\n"), QString(101, u'a')}},
        {"kind", {QJsonValue::Undefined, q("other")}},
        {"version", {QJsonValue::Undefined, q(""), q("1.x"), q("1.2.3.4.5"), q("-1")}},
        {"date", {q("soon")}},
        {"title",
         {QJsonObject{{q("en"), 1}}, QJsonObject{{q("../en"), q("x")}},
          QJsonObject{{q("en"), QString(2000, u'x')}}}},
        {"language", {q("../x"), 2}},
        {"requires", {q("x"), QJsonArray{1}, QJsonArray{q("../x")}}},
        {"executables",
         {QJsonArray{q("/bin/sh")}, QJsonArray{q("a/../../b")}, QJsonArray{q("a//b")}, QJsonArray{1}}},
        {"check", {1, q(""), q("/bin/true"), q("../true"), q("bin/"), QJsonArray{q("bin/a")}}},
        {"report", {2}},
        {"installedSize", {-1, 1.5, 1e30}},
        {"index", {1, QJsonObject{}, sideFile(0, 64), sideFile(9, 63)}},
        {"channel", {1, q(""), q("stable"), q("Beta"), q("a/b")}},
        {"critical", {1, q("yes")}},
        {"security", {true, q("soon"), q("1.2.3.5")}},
        {"attachments",
         {1, QJsonObject{{q("sbom"), 1}}, QJsonObject{{q("advisory"), sideFile(65537, 64)}},
          QJsonObject{{q("sbom"), sideFile(0, 64)}}}},
        {"halted", {true, q("soon"), q("2026-03-01T08:00:00")}},
        {"phase",
         {1, phase("", "2026-03-01T08:00:00Z", 1), phase("a", "2026-03-01", 1),
          phase("a", "2026-03-01T08:00:00Z", 0), phase("a", "2026-03-01T08:00:00Z", 31536001)}},
        {"package", {1, q("x"), QJsonObject{}}},
        {"deltas", {QJsonArray{1}, QJsonArray{sideFile(9, 64)}}},
    };
    for (const auto& [tName, tBad] : sCases) {
        for (const QJsonValue& tBad : tBad) {
            QJsonObject tObject = full().toJson();
            tObject.insert(q(tName), tBad);
            if (tBad.isUndefined()) {
                tObject.remove(q(tName));
            }
            const auto tInfo = PackageInfo::fromJson(tObject);
            EXPECT_FALSE(tInfo) << QJsonDocument(tObject).toJson();
            EXPECT_TRUE(tInfo.failure().mText.contains(q(tName))) << tInfo.failure().mText;
        }
    }
}

} // namespace
