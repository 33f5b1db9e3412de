#include "update/Plan.h"
#include "packages/PackageFolders.h"
#include "Test.h"
#include "update/RunRecords.h"
#include "update/RunTexts.h"

#include <QtCore/QStringList>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;
using packages::InstalledPackage;
using packages::Kind;
using packages::PackageInfo;

namespace {

// "name version", followed by "data", "halted", "lang=X", "req=A,B", "channel=X" and
// "date=YYYY-MM-DD" in any order.
PackageInfo parse(const QString& pText)
{
    PackageInfo tInfo;
    const QStringList tWords = pText.split(u' ', Qt::SkipEmptyParts);
    tInfo.mName = tWords.value(0);
    QDateTime tDate;
    for (const QString& tWord : tWords) {
        const QString tValue = tWord.section(u'=', 1);
        if (tWord == q("data")) {
            tInfo.mKind = Kind::Data;
        } else if (tWord == q("halted")) {
            tInfo.mRelease.mHalted = QDateTime(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC);
        } else if (tWord.startsWith(q("channel="))) {
            tInfo.mRelease.mChannel = tValue;
        } else if (tWord.startsWith(q("lang="))) {
            tInfo.mLanguage = tValue;
        } else if (tWord.startsWith(q("req="))) {
            tInfo.mRequires = tValue.split(u',');
        } else if (tWord.startsWith(q("date="))) {
            tDate = QDateTime(QDate::fromString(tValue, Qt::ISODate), QTime(0, 0), Qt::UTC);
        }
    }
    tInfo.mVersion = {tarn::vkcore::Version::fromString(tWords.value(1)), tDate};
    return tInfo;
}

QList<PackageInfo> parseAll(const char* pText)
{
    QList<PackageInfo> tInfos;
    const QStringList tLines = q(pText).split(u';', Qt::SkipEmptyParts);
    for (const QString& tLine : tLines) {
        tInfos.append(parse(tLine));
    }
    return tInfos;
}

// "name version<parent", and "!" if it can't be installed.
std::string shown(const Plan& pPlan)
{
    QStringList tLines;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        QString tLine = tPackage.name() + u' ' +
                        tPackage.mOffer.mInfo.mVersion.version().toTarnAppFormat().section(u'.', 0, 1);
        if (!tPackage.mOffer.mInfo.mLanguage.isEmpty()) {
            tLine += u' ' + tPackage.mOffer.mInfo.mLanguage;
        }
        if (pPlan.mParents.contains(tPackage.name())) {
            tLine += u'<' + pPlan.mParents.value(tPackage.name());
        }
        tLines.append(tLine + (tPackage.mFailure ? q("!") : QString()));
    }
    return tLines.join(q("; ")).toStdString();
}

struct PlanTest
{
    packages::PackageFolders mFolders{q("/opt/x"), q("/srv/data")};
    tarn::tuf::Hash mHash;

    Plan plan(const char* pOffers, const char* pInstalled, const char* pDataDir = "/srv/data") const
    {
        QList<Offer> tOffers;
        const QList<PackageInfo> tInfos = parseAll(pOffers);
        for (const PackageInfo& tInfo : tInfos) {
            tarn::tuf::TargetFile tTarget;
            tTarget.mPath = archiveName(tInfo);
            tTarget.mHashes.append(mHash);
            tOffers.append({tInfo, tTarget});
        }
        const packages::PackageFolders tBefore(q("/opt/x"), q(pDataDir));
        packages::Manifest tManifest;
        const QList<PackageInfo> tInstalled = parseAll(pInstalled);
        for (const PackageInfo& tInfo : tInstalled) {
            tManifest.mPackages.append({tInfo, mHash, tBefore.folder(tInfo, mHash), QString()});
        }
        return makePlan(tOffers, tManifest, mFolders, {q("en"), q("de")});
    }
};

} // namespace

TEST(PlanTest, TakesWhatIsMissingOrNewer)
{
    const std::tuple<const char*, const char*, const char*, const char*> tCases[] = {
        {"missing", "a 1; b 2 data", "", "a 1.0; b 2.0"},
        {"newest of several", "a 1; a 3; a 2", "", "a 3.0"},
        {"newer", "a 2", "a 1", "a 2.0"},
        {"the same", "a 1", "a 1", ""},
        {"older", "a 1", "a 2", ""},
        {"same version of a later date", "a 1 date=2024-02-01", "a 1 date=2024-01-01", "a 1.0"},
        {"same version of an earlier date", "a 1 date=2024-01-01", "a 1 date=2024-02-01", ""},
        {"application language", "a 1 lang=de; b 1 lang=en; c 1", "", "b 1.0 en; c 1.0"},
        {"data language", "a 1 data lang=de; b 1 data lang=en", "", "a 1.0 de"},
        {"the language's own rather than the one for all", "a 1; a 1 lang=en", "", "a 1.0 en"},
        {"another language now", "a 1 lang=en", "a 1 lang=de", "a 1.0 en"},
        {"required", "a 1 req=b; b 1", "", "a 1.0; b 1.0<a"},
        {"required in another language", "a 1 req=b; b 1 lang=fr", "", "a 1.0; b 1.0 fr<a"},
        {"required by what is up to date", "a 1 req=b; b 2", "a 1; b 1", "b 2.0<a"},
        {"two parents", "a 1 req=c; b 1 req=c; c 1", "", "a 1.0; b 1.0; c 1.0<a"},
        {"ring below a top", "z 1 req=b; a 1 req=b; b 1 req=a", "", "a 1.0<b; b 1.0<z; z 1.0"},
        {"missing requirement", "a 1 req=x; b 1", "", "a 1.0!; b 1.0"},
        {"missing requirement that is installed", "a 1 req=x", "x 1", "a 1.0"},
        {"missing requirement of what is up to date", "a 1 req=x", "a 1", ""},
        {"what a failed one brings along", "a 1 req=x,b; b 1", "", "a 1.0!; b 1.0<a!"},
        {"what a failed one and a good one bring along", "a 1 req=x,c; b 1 req=c; c 1", "",
         "a 1.0!; b 1.0; c 1.0<a"},
        {"what two failed ones bring along, and more with it", "a 1 req=x,c; b 1 req=x,c; c 1 req=d; d 1", "",
         "a 1.0!; b 1.0!; c 1.0<a!; d 1.0<c!"},
        {"halted", "a 2 halted; a 1; b 1 halted", "", "a 1.0"},
        {"halted where it is installed", "a 2 halted req=b; b 1", "a 2", "b 1.0<a"},
        {"of another channel", "a 2 channel=beta; a 1", "", "a 1.0"},
        {"requires a halted one", "a 1 req=b; b 1 req=c; c 1 halted; d 1", "", "d 1.0"},
        {"requires a halted one that is installed", "a 1 req=c; c 2 halted", "c 1", "a 1.0"},
        {"an older one requires less", "a 2 req=b; a 1; b 1 halted", "", "a 1.0"},
        {"what needs a failed one", "a 1 req=b; b 1 req=x; c 1", "", "a 1.0!; b 1.0<a!; c 1.0"},
    };
    for (const auto& [tName, tOffers, tInstalled, tPlan] : tCases) {
        EXPECT_EQ(shown(PlanTest().plan(tOffers, tInstalled)), tPlan) << tName;
    }
    EXPECT_EQ(shown(PlanTest().plan("a 1 data; b 1; c 1 data", "a 1 data; b 1; c 2 data", "/old")), "a 1.0");
}

// The installed packages are damaged, but for x. A number after ">" is the N of the new folder.
TEST(PlanTest, PlansDamagedPackagesAgain)
{
    const std::tuple<const char*, int, const char*, int, const char*, const char*> tCases[] = {
        // offers, of which hash, installed, their N, plan, beyond repair
        {"a 1; b 1", 1, "a 1; b 1; x 1", 0, "a 1.0>1; b 1.0>1", ""},
        {"a 1", 1, "a 1", 3, "a 1.0>4", ""},
        {"a 2", 1, "a 1", 0, "a 2.0>0", ""},
        {"a 1", 1, "a 2; b 1", 0, "", "a b"},
        {"a 1", 2, "a 1", 1, "a 1.0>0", ""}, // packed again
        {"a 1 lang=fr", 1, "a 1 lang=fr", 0, "a 1.0 fr>1", ""},
        {"a 1 halted", 1, "a 1", 0, "a 1.0>1", ""},
        {"x 1", 1, "x 1", 5, "", ""}, // a repaired one is in its place
    };
    for (const auto& [tOffered, tHash, tInstalled, tRepair, tExpected, tBeyond] : tCases) {
        const PlanTest tTest;
        QList<Offer> tOffers;
        for (const PackageInfo& tInfo : parseAll(tOffered)) {
            tOffers.append({tInfo, {}});
            tOffers.last().mTarget.mHashes.append(
                tarn::tuf::Hash::fromHex(QString(64, QChar(u'0' + tHash))).value());
        }
        packages::Manifest tManifest;
        QSet<QString> tDamaged;
        const tarn::tuf::Hash tOld = tarn::tuf::Hash::fromHex(QString(64, u'1')).value();
        for (const PackageInfo& tInfo : parseAll(tInstalled)) {
            const QString tFolder = tTest.mFolders.folder(tInfo, tOld, tRepair);
            tManifest.mPackages.append({tInfo, tOld, tFolder, QString()});
            if (tInfo.mName != q("x")) {
                tDamaged.insert(tFolder);
            }
        }
        tManifest = *packages::Manifest::fromBytes(tManifest.toBytes());
        const Plan tPlan = makePlan(tOffers, tManifest, tTest.mFolders, {q("en"), q("de")}, tDamaged);
        QStringList tShown = q(shown(tPlan).c_str()).split(q("; "), Qt::SkipEmptyParts);
        for (qsizetype i = 0; i < tShown.size(); ++i) {
            tShown[i] += u'>' + QString::number(tPlan.mPackages[i].mRepair);
            EXPECT_EQ(packages::PackageFolders::repairOf(tPlan.mPackages[i].folder(tTest.mFolders)),
                      tPlan.mPackages[i].mRepair);
        }
        EXPECT_EQ(tShown.join(q("; ")).toStdString(), tExpected) << tOffered;
        EXPECT_EQ(tPlan.mBeyondRepair.join(u' ').toStdString(), tBeyond) << tOffered;
    }
}

TEST(PlanTest, WritesARecordForEachPackage)
{
    Plan tPlan = PlanTest().plan("top 1 req=mid; mid 1 req=low; low 2; new 1; bad 1", "top 1; mid 1; low 1");
    tPlan.find(q("bad"))->mFailure = {Failure::Kind::Untrusted, q("It \x1b is\nbad")};
    PackageInfo& tNew = tPlan.find(q("new"))->mOffer.mInfo;
    tNew.mTitle.setValue(q("en"), q("\x1b]0;x\x07 title\n"));
    tNew.mReport.setValue(q("en"), q("one\r\n\x1b[2Jtwo"));
    QStringList tLines;
    const auto tRecords = runRecords(tPlan);
    EXPECT_EQ(tRecords.at(2).mTitle.bestValue(q("en")), q("]0;x title")) << "it goes to terminals";
    for (const auto& tRecord : tRecords) {
        tLines.append(
            q("%1 %2 <%3 %4")
                .arg(tRecord.mPackage, tRecord.mStatus, tRecord.mParent, tRecord.mReport.bestValue(q("en")))
                .trimmed());
    }
    EXPECT_EQ(tLines.join(q("; ")).toStdString(),
              "bad error < It is bad.; low ok <mid; new ok < one\n [2Jtwo; mid child_packages_updated <top; "
              "top child_packages_updated <");
    EXPECT_EQ(failedPackagesCode(tPlan), ResultVerificationFailed);
    EXPECT_TRUE(failedPackagesText(tPlan).contains(q("1 of 3 packages"))) << failedPackagesText(tPlan);
}

TEST(PlanTest, TellsTheTroubleThatTheOthersCameFrom)
{
    Plan tPlan = PlanTest().plan("app 1 req=lib; lib 1", "");
    tPlan.find(q("lib"))->mFailure = {Failure::Kind::Untrusted, q("It has a wrong hash")};
    tPlan.spreadFailures();
    EXPECT_EQ(serversFault(tPlan).mText, q("It has a wrong hash"));
    EXPECT_TRUE(failedPackagesText(tPlan).endsWith(q("lib: It has a wrong hash.")))
        << failedPackagesText(tPlan);
}

// "rank folder/ name version", with "as=FILE" for another file name and "broken" for an invalid description.
TEST(OffersTest, ANameBelongsToTheFirstRoleThatListsIt)
{
    const std::tuple<const char*, const char*, qsizetype> tCases[] = {
        // targets, offers (versions go with the places of their targets), number of warnings
        {"0 / a 1; 1 v/ b 2", "a 1; b 2", 0},
        {"1 v/ a 9; 0 / a 1", "a 1", 1},
        {"2 w/ a 9; 1 v/ a 1; 2 w/ b 5", "a 1; b 5", 1},
        {"0 / a 1 broken; 1 v/ a 9", "", 2}, // a name for which its role offers nothing usable
        {"0 / a 1 as=other.tar.zst; 1 v/ a 9", "", 2},
        {"0 / a 1 as=b-1.0.0.0.tar.zst; 0 / b 1", "b 1", 1},
    };
    for (const auto& [tRepository, tExpected, tWarned] : tCases) {
        QList<tarn::tuf::TargetFile> tTargets;
        for (const QString& tText : q(tRepository).split(u';')) {
            const QStringList tWords = tText.split(u' ', Qt::SkipEmptyParts);
            const PackageInfo tInfo = parse(tWords.mid(2).join(u' '));
            tarn::tuf::TargetFile tTarget;
            tTarget.mPath = tWords[1] + tText.section(q("as="), 1);
            tTarget.mPath += tText.contains(q("as=")) ? QString() : archiveName(tInfo);
            tTarget.mCustom = tInfo.toJson();
            if (tText.contains(q("broken"))) {
                tTarget.mCustom.remove(q("kind"));
            }
            tTarget.mRoleRank = tWords[0].toInt();
            tTargets.append(tTarget);
        }
        QStringList tWarnings;
        QStringList tOffers;
        for (const Offer& tOffer : usableOffers(tTargets, &tWarnings)) {
            const QString tVersion = tOffer.mInfo.mVersion.version().toTarnAppFormat();
            tOffers.append(tOffer.mInfo.mName + u' ' + tVersion.section(u'.', 0, 0));
        }
        tOffers.sort();
        EXPECT_EQ(tOffers.join(q("; ")).toStdString(), tExpected) << tRepository;
        EXPECT_EQ(tWarnings.size(), tWarned) << tRepository << ": " << tWarnings.join(u'|');
    }
}

TEST(PlanTest, SpreadsTroublesThroughLongChains)
{
    QStringList tChain;
    for (int i = 0; i < 20000; ++i) {
        tChain.append(q("p%1 1 req=p%2").arg(i).arg(i + 1));
    }
    const Plan tPlan = PlanTest().plan(tChain.join(u';').toUtf8(), "");
    EXPECT_EQ(tPlan.failedCount(), 20000);
    EXPECT_EQ(runRecords(tPlan).size(), 20000);
}
