#include "FaultyFileSystem.h"
#include "Test.h"
#include "TestArchive.h"

#include "os/FileTools.h"
#include "packages/Generations.h"
#include "packages/Roots.h"

#include <QtCore/QProcess>

#include <unistd.h>

using namespace tarn;
using namespace tarn::packages;
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
        const QStringList tRoots = mFolders->roots();
        for (const QString& tRoot : tRoots) {
            EXPECT_FALSE(mRoots.claim(tRoot, {}, [] { return Vouched::Nothing; }));
        }
        mGenerations = std::make_unique<Generations>(mFileSystem, *mFolders, mRoots);
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
        EXPECT_FALSE(mGenerations->announce({tPackage}));
        QDir().mkpath(tStaging);
        EXPECT_FALSE(
            os::writeFile(os::realFileSystem(), tStaging + q("/file"), QByteArray::number(pVersion), 0644));
        mStaged.append({tStaging, tPackage.mFolder});
        return tPackage;
    }

    Failure install(const QList<InstalledPackage>& pPackages)
    {
        Manifest tNext;
        Manifest tCurrent;
        EXPECT_FALSE(mGenerations->reader().current(&tCurrent));
        tNext.mGeneration = mGenerations->nextNumber(tCurrent);
        tNext.mPrevious = tCurrent.mGeneration;
        tNext.mPackages = pPackages;
        const Failure tFailure = mGenerations->install(tNext, mStaged);
        mStaged.clear();
        return tFailure;
    }

    QByteArray current(const char* pPackage) const
    {
        const QString tFile = mDir.filePath(q("install/current/%1/file").arg(q(pPackage)));
        return os::readFile(os::realFileSystem(), tFile, 100).valueOr({});
    }

    QStringList list(const QString& pBelow) const
    {
        return QDir(mDir.filePath(pBelow)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    QTemporaryDir mDir;
    FaultyFileSystem mFileSystem;
    Roots mRoots{mFileSystem, mDir.path()};
    std::unique_ptr<PackageFolders> mFolders;
    std::unique_ptr<Generations> mGenerations;
    QList<StagedPackage> mStaged;
};

} // namespace

// A folder that a killed run moved into place without switching to it may be incomplete.
TEST_F(GenerationsTest, ReplacesAPackageFolderThatNobodyNeeds)
{
    const InstalledPackage tApp = stage("app", 1);
    QDir().mkpath(mFolders->absolute(tApp.mFolder) + q("/half"));
    ASSERT_FALSE(install({tApp}));
    EXPECT_EQ(list(q("install/current/app")), QStringList(q("file")));
    EXPECT_EQ(QFile::permissions(mFolders->absolute(tApp.mFolder)) & QFile::WriteOwner, 0);
}

// Foreign files beside it are not touched, and a link in place of a folder is not followed.
TEST_F(GenerationsTest, LeavesAloneWhatItDidNotMake)
{
    useDataDir(mDir.filePath(q("data")));
    const auto tWrite = [this](const QString& pBelow) {
        QDir().mkpath(QFileInfo(mDir.filePath(pBelow)).path());
        EXPECT_FALSE(os::writeFile(os::realFileSystem(), mDir.filePath(pBelow), "foreign", 0644));
    };
    ASSERT_FALSE(install({stage("app", 1), stage("gone", 1), stage("maps", 1, Kind::Data)}));
    tWrite(q("outside/file"));
    QStringList tForeign;
    for (const QString& tFolder :
         {q("install/packages"), q("install/packages/app"), q("install/packages/gone"), q("install/.staging"),
          q("install/generations"), q("install/generations/1"), q("install/generations/77"),
          q("data/packages"), q("data/packages/maps"), q("data/.staging")}) {
        tForeign += {tFolder + q("/file"), tFolder + q("/folder/file"), tFolder + q("/link/file")};
        tWrite(tFolder + q("/file"));
        tWrite(tFolder + q("/folder/file"));
        QFile::link(mDir.filePath(q("outside")), mDir.filePath(tFolder + q("/link")));
    }
    // A package folder to be deleted; a folder above it is a link to another place with the same names.
    const QString tMoved = mDir.filePath(q("install/packages/gone"));
    QFile::rename(tMoved, mDir.filePath(q("outside/gone")));
    QFile::link(mDir.filePath(q("outside/gone")), tMoved);
    for (int tVersion = 2; tVersion <= 4; ++tVersion) {
        ASSERT_FALSE(install({stage("app", tVersion), stage("maps", tVersion, Kind::Data)}));
        (void)mGenerations->removeLeftovers(); // it complains about what is not its own
    }
    for (const QString& tPath : std::as_const(tForeign)) {
        EXPECT_TRUE(QFile::exists(mDir.filePath(tPath))) << tPath.toStdString();
    }
    EXPECT_EQ(list(q("outside/gone")).size(), 4);
    EXPECT_EQ(list(q("install/packages/app")).filter(q(".0.0.0-")).size(), 2);
    EXPECT_EQ(list(q("data/packages/maps")).filter(q(".0.0.0-")).size(), 2);
}

// As a user who is not above the modes of files.
TEST(FileToolsTest, RemovesReadOnlyFoldersAndFollowsNoLinks)
{
    const QTemporaryDir tDir;
    const uid_t tSelf = ::geteuid();
    const uid_t tOther = tSelf == 0 ? 65534 : tSelf;
    ASSERT_EQ(::chown(QFile::encodeName(tDir.path()).constData(), tOther, gid_t(-1)), 0);
    ASSERT_EQ(::seteuid(tOther), 0);
    writeFile(tDir.filePath(q("a/b/c/file")), "x");
    writeFile(tDir.filePath(q("outside/file")), "x");
    QFile::link(tDir.filePath(q("outside")), tDir.filePath(q("a/b/link")));
    const auto tReadOnly = QFile::ReadOwner | QFile::ExeOwner;
    for (const QString& tFolder : {q("a/b/c"), q("a/b"), q("a"), q("outside")}) {
        QFile::setPermissions(tDir.filePath(tFolder), tReadOnly);
    }
    EXPECT_FALSE(os::removeTree(os::realFileSystem(), tDir.filePath(q("a"))));
    EXPECT_FALSE(QFile::exists(tDir.filePath(q("a"))));
    EXPECT_TRUE(QFile::exists(tDir.filePath(q("outside/file"))));
    EXPECT_EQ(QFile::permissions(tDir.filePath(q("outside"))) & QFile::WriteOwner, 0);
    EXPECT_EQ(::seteuid(tSelf), 0);
}

// Two installations, each on a folder in the state of the case.
TEST(RootsTest, TakeAFolderOrLeaveItAsItIs)
{
    QTemporaryDir tDir;
    QTemporaryDir tStrange;
    const QString tRoot = tDir.filePath(q("root"));
    const auto tRun = [](const QString& pScript) {
        QProcess tShell;
        tShell.start(q("sh"), {q("-c"), pScript});
        tShell.waitForFinished();
        return tShell.readAllStandardOutput();
    };
    const std::tuple<const char*, Vouched, bool> tCases[] = {
        // in the folder above root, vouched, taken
        {"true", Vouched::Nothing, true},
        {"mkdir root", Vouched::Nothing, true},
        {"mkdir -p root/packages root/.staging; touch root/.lock root/.vk-root.new", Vouched::Nothing, true},
        {"mkdir -p root/state", Vouched::Nothing, true},
        {"mkdir -p root/packages/other", Vouched::Nothing, false},
        {"mkdir root; touch root/file", Vouched::Nothing, false},
        {"mkdir root; ln -s / root/packages", Vouched::Nothing, false},
        {"mkdir root; touch root/file", Vouched::Present, true},
        {"mkdir root; touch root/file root/.vk-root", Vouched::Nothing, true},
        {"mkdir root; touch root/marker; ln -s marker root/.vk-root", Vouched::Present, false},
        {"mkdir root; ln -s / root/packages; touch root/.vk-root", Vouched::Nothing, false},
        {"mkdir -m 777 root", Vouched::Nothing, false},
        {"mkdir -m 777 -p root/packages; chmod 755 root; chmod 777 root/packages", Vouched::Nothing, false},
        {"mkdir root; chown 1 root", Vouched::Nothing, ::geteuid() != 0},
        {"mkdir root; touch root/.vk-root; chown 1 root/.vk-root", Vouched::Present, ::geteuid() != 0},
        {"mkdir root", Vouched::Absent, false},
        {"mkdir root", Vouched::Nothing, true},
        // A folder that the installation knows from before.
        {"cp -a taken/root .", Vouched::Nothing, true},
        {"cp -a taken/root .; rm root/.vk-root", Vouched::Present, false},
        {"mkdir root", Vouched::Nothing, false},
        {"mkdir root; touch root/.vk-root", Vouched::Nothing, true},
    };
    const QString tList = q("find %1 -printf '%p %i %m %U %s %T@\n'").arg(tRoot);
    bool tIsKnown = false;
    for (const auto& [tPrepare, tVouched, tTaken] : tCases) {
        SCOPED_TRACE(tPrepare);
        tIsKnown = tIsKnown || q(tPrepare).startsWith(q("cp"));
        tRun(q("cd %1; rm -rf root; %2 %3")
                 .arg(tDir.path(), tIsKnown ? q("") : q("rm -rf state;"), q(tPrepare)));
        const QByteArray tBefore = tRun(tList);
        QDir().mkpath(tDir.filePath(q("state")));
        const auto tIsMade = [&] { return QFile::exists(tRoot + u'/' + Roots::markerName()); };
        if (!tIsKnown && tTaken && tVouched == Vouched::Nothing && !tIsMade()) {
            Roots tStart(os::realFileSystem(), tDir.filePath(q("state")));
            ASSERT_FALSE(tStart.open(NewRoots::Leave));
            EXPECT_FALSE(tStart.claim(tRoot, {tRoot + q("/state")}, [] { return Vouched::Nothing; }));
            EXPECT_EQ(tStart.fd(tRoot), -1);
            EXPECT_FALSE(tIsMade());
        }
        Roots tRoots(os::realFileSystem(), tDir.filePath(q("state")));
        ASSERT_FALSE(tRoots.open(NewRoots::Make));
        const Failure tFailure = tRoots.claim(tRoot, {tRoot + q("/state")}, [&] { return tVouched; });
        EXPECT_EQ(!tFailure, tTaken) << tFailure.mText.toStdString();
        EXPECT_EQ(tRoots.fd(tRoot) >= 0, tTaken);
        if (!tTaken) {
            EXPECT_EQ(tFailure.mText.contains(tRoot), true) << tFailure.mText.toStdString();
            EXPECT_EQ(tRun(tList), tBefore);
            continue;
        }
        Roots tStranger(os::realFileSystem(), tStrange.path());
        EXPECT_EQ(tStranger.claim(tRoot, {}, [] { return Vouched::Present; }).mKind, Failure::Kind::Person);
        EXPECT_EQ(tStranger.claimInstallDir(tRoot, {}, [] { return Vouched::Nothing; }).mKind,
                  Failure::Kind::Io)
            << "it is its own from now on, but locked";
        Roots tSecond(os::realFileSystem(), tDir.filePath(q("state")));
        ASSERT_FALSE(tSecond.open(NewRoots::Make));
        EXPECT_EQ(tSecond.claim(tRoot, {}, [] { return Vouched::Nothing; }).mKind, Failure::Kind::Io);
        EXPECT_FALSE(tRoots.claim(tRoot + q("/../root"), {}, [] { return Vouched::Nothing; }))
            << "the same folder";
        tRun(q("cd %1; mkdir -p taken; rm -rf taken/root; cp -a root taken").arg(tDir.path()));
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
    tPackage.mFolder = q("packages/app/1.2.3.4-bbbbbbbbbbbbbbbb");
    tManifest.mPackages = {tPackage};
    tarn::vkcore::LogRecord tRecord;
    tRecord.mPackage = q("app");
    tRecord.mParent = q("suite");
    tRecord.mVersion = q("1.2.3.4");
    tRecord.mStatus = q("ok");
    tRecord.mVersionDate = tPackage.mInfo.mVersion.date();
    tRecord.mTitle.setValue(q("de"), q("Übersicht"));
    tRecord.mReport.setValue(q("en"), q("a\nb"));
    tManifest.mRecords = {tRecord};

    const auto tRead = Manifest::fromBytes(tManifest.toBytes());
    ASSERT_TRUE(tRead) << tRead.failure().mText;
    EXPECT_EQ(tRead->toBytes(), tManifest.toBytes());
    EXPECT_EQ(tRead->mRunDate, tManifest.mRunDate);
    EXPECT_EQ(tRead->mRecords.first().mTitle, tRecord.mTitle);

    const QByteArray tHash = tPackage.mHash.toHex();
    for (const QByteArray& tBad : {QByteArray(), QByteArray("../../x"), tHash.toUpper(), tHash + "bb"}) {
        EXPECT_FALSE(Manifest::fromBytes(tManifest.toBytes().replace(tHash, tBad))) << tBad;
    }
    const std::pair<const char*, const char*> tFolders[] = {
        // before and after NAME/VERSION-HASH; only the first one is valid
        {"/srv/my data/packages/", ""}, {"../packages/", ""},  {"/srv/../packages/", ""},
        {"/srv//packages/", ""},        {"srv/packages/", ""}, {"/srv/", ""},
        {"packages/", "/.."},           {"packages/", "0"},    {"packages/other/../", ""}};
    const QString tBelow = tPackage.mFolder.mid(9);
    for (const auto& tCase : tFolders) {
        tManifest.mPackages.first().mFolder = q(tCase.first) + tBelow + q(tCase.second);
        EXPECT_EQ(static_cast<bool>(Manifest::fromBytes(tManifest.toBytes())), &tCase == tFolders)
            << tCase.first;
    }
}
