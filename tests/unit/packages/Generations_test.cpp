#include "FaultyFileSystem.h"
#include "Test.h"
#include "TestArchive.h"

#include "os/FileTools.h"
#include "packages/Generations.h"
#include "packages/InstallLock.h"

using namespace tarn::vkservice;
using namespace tarn::vkservice::packages;
using tarn::vkcore::EnhVersion;
using tarn::vkcore::Version;

namespace {

class GenerationsTest : public testing::Test
{
protected:
    GenerationsTest() { useDataDir(QString()); }

    void useDataDir(const QString& pDataDir)
    {
        mFolders = std::make_unique<PackageFolders>(mDir.filePath(q("install")), pDataDir);
        mGenerations = std::make_unique<Generations>(mFileSystem, *mFolders);
    }

    // A staged package with one file that holds its version.
    InstalledPackage stage(const char* pName, int pVersion, Kind pKind = Kind::Application)
    {
        InstalledPackage tPackage;
        tPackage.mInfo.mName = q(pName);
        tPackage.mInfo.mKind = pKind;
        tPackage.mInfo.mVersion = EnhVersion(Version(pVersion, 0, 0, 0), QDateTime());
        tPackage.mHash = *tarn::tuf::Hash::fromHex(q("%1").arg(pVersion, 64, 16, QLatin1Char('0')));
        tPackage.mFolder = mFolders->folder(tPackage.mInfo, tPackage.mHash);
        const QString tStaging = mFolders->stagingFolder(tPackage.mInfo, tPackage.mHash);
        QDir().mkpath(tStaging);
        os::writeFile(os::realFileSystem(), tStaging + q("/file"), QByteArray::number(pVersion), 0644);
        mStaged.append({tStaging, tPackage.mFolder});
        return tPackage;
    }

    os::Failure install(const QList<InstalledPackage>& pPackages, int pFailAt = 0)
    {
        Manifest tNext;
        Manifest tCurrent;
        EXPECT_FALSE(mGenerations->readCurrent(&tCurrent));
        tNext.mGeneration = mGenerations->nextNumber(tCurrent);
        tNext.mPrevious = tCurrent.mGeneration;
        tNext.mPackages = pPackages;
        mFileSystem.failAt(pFailAt, EIO);
        const os::Failure tFailure = mGenerations->install(tNext, mStaged);
        mStaged.clear();
        return tFailure;
    }

    QByteArray current(const char* pPackage) const
    {
        QByteArray tBytes;
        os::readFile(os::realFileSystem(), mDir.filePath(q("install/current/%1/file").arg(q(pPackage))), 100,
                     &tBytes);
        return tBytes;
    }

    QStringList list(const QString& pBelow) const
    {
        return QDir(mDir.filePath(pBelow)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    QTemporaryDir mDir;
    FaultyFileSystem mFileSystem;
    std::unique_ptr<PackageFolders> mFolders;
    std::unique_ptr<Generations> mGenerations;
    QList<StagedPackage> mStaged;
};

} // namespace

TEST_F(GenerationsTest, KeepsThePreviousGenerationAndNoOther)
{
    const InstalledPackage tOther = stage("other", 7);
    for (int tVersion = 1; tVersion <= 4; ++tVersion) {
        ASSERT_FALSE(install({stage("app", tVersion), tOther}));
        EXPECT_EQ(current("app"), QByteArray::number(tVersion));
        EXPECT_EQ(current("other"), "7");
        ASSERT_FALSE(mGenerations->removeLeftovers());
    }
    EXPECT_EQ(list(q("install/generations")), QStringList({q("3"), q("4")}));
    EXPECT_EQ(list(q("install/packages/app")).size(), 2);
    EXPECT_EQ(list(q("install/packages/other")).size(), 1);
    EXPECT_EQ(list(q("install/.staging")).size(), 0);
}

TEST_F(GenerationsTest, LeavesNothingOfADataFolderThatWasGivenUp)
{
    useDataDir(mDir.filePath(q("data1")));
    ASSERT_FALSE(install({stage("maps", 1, Kind::Data)}));
    useDataDir(mDir.filePath(q("data2")));
    ASSERT_FALSE(install({stage("maps", 1, Kind::Data)}));
    ASSERT_FALSE(mGenerations->removeLeftovers());
    EXPECT_EQ(list(q("data1/packages/maps")).size(), 1) << "the previous generation needs it";
    ASSERT_FALSE(install({stage("maps", 2, Kind::Data)}));
    ASSERT_FALSE(mGenerations->removeLeftovers());
    EXPECT_EQ(current("maps"), "2");
    EXPECT_EQ(list(q("data1/packages/maps")).size(), 0);
    EXPECT_EQ(list(q("data2/packages/maps")).size(), 2);
}

TEST_F(GenerationsTest, ReplacesAPackageFolderThatNobodyNeedsAndKeepsOneThatIsNeeded)
{
    // What a killed run moved into place and never switched to: perhaps it is not whole.
    const InstalledPackage tApp = stage("app", 1);
    QDir().mkpath(mFolders->absolute(tApp.mFolder) + q("/half"));
    ASSERT_FALSE(install({tApp}));
    EXPECT_EQ(list(q("install/current/app")), QStringList(q("file")));

    const QString tFile = mFolders->absolute(tApp.mFolder) + q("/file");
    const auto tInode = [&tFile] {
        struct stat tStat = {};
        ::stat(QFile::encodeName(tFile).constData(), &tStat);
        return tStat.st_ino;
    };
    const ino_t tBefore = tInode();
    ASSERT_FALSE(install({stage("app", 1)}));
    EXPECT_EQ(tInode(), tBefore);
}

// A failure at any step, and a kill there, which leaves the same: the old generation is whole, or the new one
// is.
TEST_F(GenerationsTest, IsOldOrNewWhereverItBreaks)
{
    ASSERT_FALSE(install({stage("app", 1), stage("lib", 1)}));
    QByteArray tOld = "1";
    int tCount = 1;
    for (bool tFailed = true; tFailed; ++tCount) {
        const int tNumber = tCount + 1;
        const os::Failure tFailure = install({stage("app", tNumber), stage("lib", tNumber)}, tCount);
        tFailed = mFileSystem.hasFailed();
        SCOPED_TRACE(mFileSystem.failed());
        mFileSystem.failAt(0, 0);
        const QByteArray tExpected = tFailure ? tOld : QByteArray::number(tNumber);
        EXPECT_EQ(current("app"), tExpected);
        EXPECT_EQ(current("lib"), tExpected);
        EXPECT_FALSE(mGenerations->removeLeftovers());
        EXPECT_EQ(current("app"), tExpected);
        EXPECT_EQ(current("lib"), tExpected);
        EXPECT_EQ(list(q("install/.staging")).size(), 0);
        EXPECT_EQ(list(q("install")).filter(q("current")).size(), 1);
        tOld = tExpected;
    }
    EXPECT_GT(tCount, 15);
}

TEST_F(GenerationsTest, TouchesNothingWhenTheCurrentManifestIsDamaged)
{
    ASSERT_FALSE(install({stage("app", 1)}));
    const QString tManifest = mDir.filePath(q("install/current/")) + manifestFileName();
    for (const char* tBytes : {"", "{", "[]", "{\"format\":99}", "{\"format\":1,\"generation\":8}",
                               "{\"format\":1,\"generation\":1,\"packages\":[{}]}"}) {
        SCOPED_TRACE(tBytes);
        os::writeFile(os::realFileSystem(), tManifest, tBytes, 0644);
        Manifest tCurrent;
        EXPECT_EQ(mGenerations->readCurrent(&tCurrent).mKind, os::Failure::Kind::Content);
        EXPECT_TRUE(mGenerations->removeLeftovers());
        EXPECT_EQ(current("app"), "1");
    }
}

TEST(ManifestTest, KeepsEverything)
{
    Manifest tManifest;
    tManifest.mGeneration = 12;
    tManifest.mPrevious = 9;
    tManifest.mRunId = q("id");
    tManifest.mRunDate = QDateTime(QDate(2024, 2, 29), QTime(12, 30));
    InstalledPackage tPackage;
    tPackage.mInfo.mName = q("app");
    tPackage.mInfo.mVersion =
        EnhVersion(Version(1, 2, 3, 4), QDateTime(QDate(2024, 1, 2), QTime(3, 4), Qt::UTC));
    tPackage.mInfo.mExecutables = QStringList(q("bin/app"));
    tPackage.mHash = *tarn::tuf::Hash::fromHex(QString(128, u'b'));
    tPackage.mFolder = q("packages/app/1");
    tManifest.mPackages = {tPackage};
    tarn::vkcore::InstallLogStore::Record tRecord;
    tRecord.mPackage = q("app");
    tRecord.mParent = q("suite");
    tRecord.mVersion = q("1.2.3.4");
    tRecord.mStatus = q("ok");
    tRecord.mVersionDate = tPackage.mInfo.mVersion.date();
    tRecord.mTitle.setValue(q("de"), q("Übersicht"));
    tRecord.mReport.setValue(q("en"), q("a\nb"));
    tManifest.mRecords = {tRecord};

    Manifest tRead;
    QString tError;
    ASSERT_TRUE(Manifest::fromBytes(tManifest.toBytes(), &tRead, &tError)) << tError;
    EXPECT_EQ(tRead.toBytes(), tManifest.toBytes());
    EXPECT_EQ(tRead.mRunDate, tManifest.mRunDate);
    EXPECT_TRUE(tRead.mPackages.first().mParent.isNull());
    EXPECT_EQ(tRead.mRecords.first().mParent, tRecord.mParent);
    EXPECT_EQ(tRead.mRecords.first().mTitle, tRecord.mTitle);
    EXPECT_EQ(tRead.mRecords.first().mVersionDate, tRecord.mVersionDate);

    const QByteArray tHash = tPackage.mHash.toHex();
    for (const QByteArray& tBad : {QByteArray(), QByteArray("../../x"), tHash.toUpper(), tHash + "bb"}) {
        EXPECT_FALSE(Manifest::fromBytes(tManifest.toBytes().replace(tHash, tBad), &tRead, &tError)) << tBad;
    }
}
