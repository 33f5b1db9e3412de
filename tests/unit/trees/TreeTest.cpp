#include "FaultyFileSystem.h"
#include "Test.h"

#include "deltas/DeltaMaker.h"
#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "trees/DeltaApplication.h"
#include "trees/FrameStream.h"
#include "trees/IndexStore.h"
#include "trees/IndexText.h"
#include "trees/IndexWriter.h"
#include "trees/TreeBuilder.h"
#include "trees/TreeCheck.h"
#include "tuf/Hashes.h"

#include <QtCore/QRandomGenerator>

#include <algorithm>
#include <sys/stat.h>

#include <limits>

using namespace tarn;
using namespace tarn::trees;

namespace {

// Which ways of sharing files there are. By default there are links, as on most disks.
class SomeFileSystem : public FaultyFileSystem
{
public:
    int mCloneErrno = EOPNOTSUPP;
    int mLinkErrno = 0;

    int cloneFile(int pToFd, int pFromFd) override
    {
        QByteArray tBytes(1'000'000, '\0');
        const ssize_t tSize = ::pread(pFromFd, tBytes.data(), static_cast<size_t>(tBytes.size()), 0);
        errno = mCloneErrno;
        return mCloneErrno == 0
                   ? static_cast<int>(::pwrite(pToFd, tBytes.data(), static_cast<size_t>(tSize), 0) - tSize)
                   : -1;
    }
    int linkAt(int pFd, int pDirFd, const QByteArray& pName) override
    {
        errno = mLinkErrno;
        return mLinkErrno == 0 ? FaultyFileSystem::linkAt(pFd, pDirFd, pName) : -1;
    }
};

QByteArray noise(qsizetype pSize, quint32 pSeed)
{
    QByteArray tBytes((pSize + 3) / 4 * 4, '\0');
    QRandomGenerator(pSeed).fillRange(reinterpret_cast<quint32*>(tBytes.data()), tBytes.size() / 4);
    return tBytes.first(pSize);
}

const QByteArray sOne = noise(5000, 1);
const QByteArray sTwo = noise(700, 2);
const QByteArray sThree = noise(3000, 3);

// By their paths. Folders end with a slash, links begin with an arrow; programs are in "bin".
using Files = QMap<QByteArray, QByteArray>;

struct Version
{
    QString mFolder;
    QString mIndex;
    packages::IndexName mName;
    IndexLimits mLimits;
    Tree mTree;
    QByteArray mArchive;
};

class TreeTest : public testing::Test
{
protected:
    QString path(const QString& pBelow) const { return mDir.filePath(pBelow); }

    Version version(const QString& pName, const Files& pFiles, qint64 pTime = 1000)
    {
        std::vector<IndexEntry> tEntries;
        QByteArray tUnpacked = "header"; // of a first file, as in a tar
        for (auto tFile = pFiles.begin(); tFile != pFiles.end(); ++tFile) {
            const QByteArray& tContent = tFile.value();
            IndexEntry tEntry{.mPath = tFile.key(), .mTarget = {}, .mHash = {}};
            if (tEntry.mPath.endsWith('/')) {
                tEntry.mPath.chop(1);
            } else if (tContent.startsWith("-> ")) {
                tEntry.mKind = EntryKind::Link;
                tEntry.mTarget = tContent.mid(3);
            } else {
                const auto tHash = tuf::Hash::fromHex(q(tuf::sha256(tContent)));
                tEntry = {tEntry.mPath, EntryKind::File, {},     tEntry.mPath.startsWith("bin/"),
                          pTime,        tContent.size(), *tHash, tUnpacked.size()};
                tUnpacked += tContent;
            }
            tEntries.push_back(tEntry);
        }
        Version tVersion{path(pName), path(pName + q(".index")), {}, {.mMaxBytes = tUnpacked.size()}, {}, {}};
        std::vector<Frame> tFrames;
        const qsizetype tLength = tUnpacked.size() > 1'000'000 ? 1'000'000 : 1000; // of a frame
        for (qsizetype tAt = 0; tAt < tUnpacked.size(); tAt += tLength) {
            const QByteArray tPacked = packIndex(tUnpacked.mid(tAt, tLength));
            tFrames.push_back({tPacked.size(), std::min<qint64>(tLength, tUnpacked.size() - tAt),
                               *tuf::Hash::fromHex(q(tuf::sha256(tPacked)))});
            tVersion.mArchive += tPacked;
        }
        writeFile(tVersion.mIndex, packIndex(indexText(tFrames, tEntries)));
        tVersion.mName = *nameOfIndex(os::realFileSystem(), tVersion.mIndex);
        EXPECT_FALSE(tVersion.mTree.read(os::realFileSystem(), tVersion.mIndex, tVersion.mLimits));
        return tVersion;
    }

    Failure takeMissing(TreeBuilder* pBuilder, const QByteArray& pArchive)
    {
        const FrameRuns tRuns = pBuilder->missingFrames();
        for (const FrameRun& tRun : tRuns) {
            writeFile(path(q("run")), pArchive.mid(tRun.mPacked.mFirst, tRun.mPacked.mLength));
            if (Failure tFailure = pBuilder->takeFrames(path(q("run")), tRun)) {
                return tFailure;
            }
        }
        return {};
    }

    // From the archive alone.
    void install(const Version& pVersion)
    {
        TreeBuilder tBuilder(os::realFileSystem(), nullptr, pVersion.mTree, pVersion.mFolder);
        ASSERT_FALSE(tBuilder.start());
        const Failure tFailure = takeMissing(&tBuilder, pVersion.mArchive);
        ASSERT_FALSE(tFailure) << tFailure.mText;
        ASSERT_FALSE(tBuilder.finish());
        ASSERT_EQ(findings(pVersion), QStringList());
    }

    QStringList findings(const Version& pVersion)
    {
        const auto tReport =
            checkTree(os::realFileSystem(), nullptr, pVersion.mFolder, pVersion.mIndex, pVersion.mLimits);
        QStringList tTexts(tReport ? QStringList() : QStringList(tReport.failure().mText));
        for (size_t tAt = 0; tReport && tAt < tReport->mFindings.size(); ++tAt) {
            const TreeFinding& tFinding = tReport->mFindings[tAt];
            tTexts.append(q("%1 %2").arg(q(tFinding.mPath)).arg(static_cast<int>(tFinding.mFault)));
        }
        tTexts.sort();
        return tTexts;
    }

    InstalledFiles installed(const Version& pOld)
    {
        InstalledFiles tInstalled(mFileSystem);
        EXPECT_FALSE(tInstalled.add(pOld.mFolder, pOld.mIndex, pOld.mName, pOld.mLimits));
        return tInstalled;
    }

    void makeDelta(const Version& pOld, const Version& pNew)
    {
        const auto tOpen = [this](const Version& pVersion) {
            auto tOpened = std::make_unique<vkpublish::PackageVersion>(os::realFileSystem());
            const QString tArchive = pVersion.mFolder + q(".archive");
            writeFile(tArchive, pVersion.mArchive);
            EXPECT_FALSE(
                tOpened->open(pVersion.mIndex, tArchive, pVersion.mLimits, pVersion.mFolder + q(".scratch")));
            return tOpened;
        };
        vkpublish::DeltaResult tResult;
        ASSERT_FALSE(vkpublish::makeDelta(os::realFileSystem(), *tOpen(pOld), *tOpen(pNew), 1,
                                          std::numeric_limits<qint64>::max(), path(q("delta")), &tResult));
    }

    void sh(const QString& pScript)
    {
        ASSERT_EQ(std::system(qPrintable(q("cd %1; ").arg(mDir.path()) + pScript)), 0);
    }
    void remove(const Version& pVersion)
    {
        EXPECT_FALSE(os::removeTree(os::realFileSystem(), pVersion.mFolder));
    }

    QTemporaryDir mDir;
    SomeFileSystem mFileSystem;
    const Files mOldFiles{{"a/", ""},      {"a/f", sOne}, {"bin/", ""},
                          {"bin/x", sTwo}, {"empty", ""}, {"l", "-> a/f"}};
    const Files mNewFiles{{"b/", ""},      {"b/moved", sOne},   {"bin/", ""},
                          {"bin/x", sTwo}, {"changed", sThree}, {"twin", sThree}};
};

} // namespace

TEST_F(TreeTest, ReusesWhatIsSoundAndNothingElse)
{
    const Version tOld = version(q("old"), mOldFiles);
    const Version tNew = version(q("new"), {{"b/", ""}, {"b/moved", sOne}, {"bin/", ""}, {"bin/x", sTwo}});
    const struct
    {
        const char* mScript;
        bool mIsMade;
        nlink_t mLinks;
        int mCloneErrno = EOPNOTSUPP;
        int mLinkErrno = 0;
    } tRows[] = {
        {"true", true, 2},
        {"true", true, 1, 0},
        {"true", true, 2, EXDEV},
        {"true", true, 1, ENOTTY, EXDEV},
        {"true", true, 1, EINVAL, EMLINK},
        {"true", true, 1, EOPNOTSUPP, EPERM},
        {"chmod 644 old/a/f", true, 1},
        {"chmod 555 old/a/f", true, 1},
        {"touch -d @999 old/a/f", true, 1},
        {"printf x | dd of=old/a/f conv=notrunc status=none; touch -d @1000 old/a/f", false, 0},
        {"printf x | dd of=old/a/f conv=notrunc status=none", false, 0, 0},
        {"printf x | dd of=old/a/f conv=notrunc status=none", false, 0, EXDEV, EXDEV},
        {"printf x >> old/a/f", false, 0},
        {"rm old/a/f", false, 0},
        {"mv old/a/f other; ln -s ../../other old/a/f", false, 0},
        {"rm -rf outside; mv old/a outside; ln -s ../outside old/a", false, 0},
        {"rm old/a/f; mkfifo old/a/f", false, 0},
        {"test $(id -u) != 0 && rm old/a/f || chown 1 old/a/f", false, 0},
    };
    for (const auto& tRow : tRows) {
        SCOPED_TRACE(tRow.mScript);
        install(tOld);
        const InstalledFiles tInstalled = installed(tOld);
        const TreeNeeds tNeeds = needsOf(tNew.mTree, tInstalled, mDir.path());
        EXPECT_EQ(tNeeds.mMissing.size() + static_cast<size_t>(tNeeds.mWrite), 0u);
        sh(q(tRow.mScript));
        mFileSystem.mCloneErrno = tRow.mCloneErrno;
        mFileSystem.mLinkErrno = tRow.mLinkErrno;
        qint64 tProgress = 0;
        TreeBuilder tBuilder(mFileSystem, nullptr, tNew.mTree, tNew.mFolder,
                             [&](qint64 pBytes) { tProgress += pBytes; });
        ASSERT_FALSE(tBuilder.start());
        EXPECT_FALSE(tBuilder.reuse(tInstalled));
        EXPECT_EQ(tBuilder.isComplete(), tRow.mIsMade);
        EXPECT_EQ(tProgress, sTwo.size() + (tRow.mIsMade ? sOne.size() : 0));
        struct stat tStat
        {
        };
        ::stat(qPrintable(path(q("new/b/moved"))), &tStat);
        EXPECT_EQ(tStat.st_nlink, tRow.mLinks);
        EXPECT_FALSE(takeMissing(&tBuilder, tNew.mArchive));
        EXPECT_FALSE(tBuilder.finish());
        EXPECT_EQ(findings(tNew), QStringList());
        EXPECT_EQ(::stat(qPrintable(path(q("new/b/moved"))), &tStat), 0);
        EXPECT_EQ(tStat.st_mtime, 1000);
        remove(tNew);
        remove(tOld);
    }
    InstalledFiles tPlain(mFileSystem); // as 1.0.0 has unpacked it
    writeFile(path(q("plain/dir/f")), sOne);
    tPlain.addUnindexed(path(q("plain")), {sOne.size()});
    EXPECT_EQ(tPlain.find(tNew.mTree.at(1)).size(), 1u);
    EXPECT_EQ(needsOf(tNew.mTree, tPlain, mDir.path()).mWrite, sOne.size() + sTwo.size())
        << "it can't be linked";
}

TEST_F(TreeTest, HashesAheadOfItsLinks)
{
    Files tFiles{{"d/", ""}};
    for (int i = 100; i < 180; ++i) {
        tFiles[(i % 2 == 0 ? "d/" : "f") + QByteArray::number(i)] =
            noise(1000, static_cast<quint32>(i)).repeated(i);
    }
    const Version tOld = version(q("old"), tFiles);
    const Version tNew = version(q("new"), tFiles);
    install(tOld);
    sh(q("printf x | dd of=old/d/110 conv=notrunc status=none; printf x >> old/f151; rm old/d/178; chmod 755 "
         "old/f101"));
    os::AbortFlag tAbort;
    TreeBuilder tBuilder(mFileSystem, &tAbort, tNew.mTree, tNew.mFolder);
    ASSERT_FALSE(tBuilder.start());
    EXPECT_FALSE(tBuilder.reuse(installed(tOld)));
    EXPECT_FALSE(tBuilder.finish());
    EXPECT_EQ(findings(tNew), QStringList({q("d/110 0"), q("d/178 0"), q("f151 0")}));
    EXPECT_EQ(tBuilder.missingBytes(), 110'000 + 151'000 + 178'000);
    struct stat tStat
    {
    };
    for (const auto& [tName, tLinks] : {std::pair("new/f101", 1u), {"new/d/112", 2u}, {"new/f179", 2u}}) {
        EXPECT_EQ(::stat(qPrintable(path(q(tName))), &tStat), 0);
        EXPECT_EQ(tStat.st_nlink, tLinks) << tName;
    }
    remove(tNew);
    TreeBuilder tStopped(mFileSystem, &tAbort, tNew.mTree, tNew.mFolder, [&](qint64) { tAbort.set(); });
    ASSERT_FALSE(tStopped.start());
    EXPECT_EQ(tStopped.reuse(installed(tOld)).mKind, Failure::Kind::Canceled);
}

TEST_F(TreeTest, TakesOnlySoundFrames)
{
    const Version tNew = version(q("new"), mNewFiles);
    const qsizetype tFetched = 5000 + 700 + 3000; // the twin is not
    FrameRuns tRuns;
    for (qsizetype tAt = 0; tAt < tNew.mArchive.size(); tAt += 97) {
        TreeBuilder tBuilder(mFileSystem, nullptr, tNew.mTree, tNew.mFolder);
        ASSERT_FALSE(tBuilder.start());
        tRuns = tBuilder.missingFrames();
        QByteArray tSpoiled = tNew.mArchive;
        tSpoiled[tAt] = static_cast<char>(tSpoiled[tAt] ^ 1);
        const Failure tFailure = takeMissing(&tBuilder, tSpoiled);
        EXPECT_EQ(tFailure.mKind,
                  tAt < tRuns.front().mPacked.mLength ? Failure::Kind::Content : Failure::Kind::None);
        EXPECT_FALSE(takeMissing(&tBuilder, tNew.mArchive));
        EXPECT_FALSE(tBuilder.finish());
        EXPECT_EQ(findings(tNew), QStringList());
        remove(tNew);
    }
    ASSERT_EQ(tRuns.size(), 1u);
    EXPECT_EQ(tRuns.front().mCount, (tFetched + 6 + 999) / 1000);
    const FrameTable& tFrames = tNew.mTree.frames();
    const QByteArray tSound = tNew.mArchive.first(tRuns.front().mPacked.mLength);
    for (const QByteArray& tBytes : {tSound.chopped(1), tSound + "x", QByteArray()}) {
        writeFile(path(q("run")), tBytes);
        EXPECT_EQ(checkFrames(mFileSystem, path(q("run")), tFrames, tRuns.front()).mKind,
                  Failure::Kind::Content);
    }
}

TEST_F(TreeTest, AppliesADeltaToWhatIsSound)
{
    const QByteArray tLarge = noise(9'000'000, 4); // several segments
    Files tOldFiles = mOldFiles;
    Files tNewFiles = mNewFiles;
    tOldFiles["large"] = tLarge;
    tNewFiles["large"] = QByteArray(tLarge).replace(8'500'000, 1, "x");
    tOldFiles["z"] = sThree + "z";
    const Version tOld = version(q("old"), tOldFiles);
    const Version tNew = version(q("new"), tNewFiles);
    install(tOld);
    install(tNew);
    makeDelta(tOld, tNew);
    remove(tNew);
    remove(tOld);
    const QByteArray tDelta = readFile(path(q("delta")));
    const QStringList tNone;
    const std::pair<const char*, QStringList> tRows[] = {
        // what happens to the old files, what the delta then can't make
        {"true", tNone},
        {"printf x | dd of=old/large conv=notrunc seek=10 bs=1 status=none", {q("large")}},
        {"printf x | dd of=old/large conv=notrunc seek=8900000 bs=1 status=none", {q("large")}},
        {"truncate -s 8600000 old/large", {q("large")}},
        {"rm old/large", {q("large")}},
        {"rm old/z; mkfifo old/z", {q("changed"), q("twin")}},
        {"for at in 100 300 500; do printf x | dd of=delta conv=notrunc seek=$at bs=1 status=none; done",
         {q("-")}},
        {"truncate -s -1 delta", {q("-")}},
    };
    for (const auto& [tScript, tLeft] : tRows) {
        SCOPED_TRACE(tScript);
        install(tOld);
        writeFile(path(q("delta")), tDelta);
        const InstalledFiles tInstalled = installed(tOld);
        TreeBuilder tBuilder(mFileSystem, nullptr, tNew.mTree, tNew.mFolder);
        ASSERT_FALSE(tBuilder.start());
        EXPECT_FALSE(tBuilder.reuse(tInstalled));
        sh(q(tScript));
        const Failure tFailure =
            tBuilder.applyDelta(path(q("delta")), tDelta.size(), *tInstalled.withIndex(tOld.mName));
        EXPECT_TRUE(!tFailure || tLeft.contains(q("-"))) << tFailure.mText;
        QStringList tMissing = findings(tNew).filter(q(" 0")).replaceInStrings(q(" 0"), q(""));
        EXPECT_EQ(tBuilder.isComplete(), tMissing.isEmpty());
        EXPECT_TRUE(tMissing == tLeft || tLeft.contains(q("-"))) << qPrintable(tMissing.join(u' '));
        EXPECT_FALSE(takeMissing(&tBuilder, tNew.mArchive));
        EXPECT_FALSE(tBuilder.finish());
        EXPECT_EQ(findings(tNew), QStringList());
        remove(tOld);
        remove(tNew);
    }
    install(tNew);
    const InstalledFiles tInstalled = installed(tNew);
    TreeBuilder tBuilder(mFileSystem, nullptr, tNew.mTree, path(q("third")));
    ASSERT_FALSE(tBuilder.start());
    const Failure tFailure =
        tBuilder.applyDelta(path(q("delta")), tDelta.size(), *tInstalled.withIndex(tNew.mName));
    EXPECT_EQ(tFailure.mKind, Failure::Kind::Content) << "it starts from another version";
}

TEST_F(TreeTest, SurvivesAFullDiskAtEveryOperation)
{
    const Version tOld = version(q("old"), {{"a/", ""}, {"a/f", sOne}, {"x", sThree + "z"}});
    const Version tNew = version(
        q("new"),
        {{"a/", ""}, {"a/f", sOne}, {"c", noise(100, 9)}, {"l", "-> c"}, {"x", sThree}, {"y", sThree}});
    install(tOld);
    install(tNew);
    makeDelta(tOld, tNew);
    remove(tNew);
    const InstalledFiles tInstalled = installed(tOld);
    for (int tOperation = 1;; ++tOperation) {
        mFileSystem.failAt(tOperation, ENOSPC);
        TreeBuilder tBuilder(mFileSystem, nullptr, tNew.mTree, tNew.mFolder);
        Failure tFailure = tBuilder.start();
        tFailure = tFailure ? tFailure : tBuilder.reuse(tInstalled);
        tFailure = tFailure ? tFailure
                            : tBuilder.applyDelta(path(q("delta")), QFileInfo(path(q("delta"))).size(),
                                                  *tInstalled.withIndex(tOld.mName));
        tFailure = tFailure ? tFailure : takeMissing(&tBuilder, tNew.mArchive);
        tFailure = tFailure ? tFailure : tBuilder.finish();
        const bool tHasFailed = mFileSystem.hasFailed();
        EXPECT_TRUE(!tFailure || tFailure.mKind == Failure::Kind::NoSpace)
            << mFileSystem.failed() << qPrintable(tFailure.mText);
        EXPECT_TRUE(tFailure || findings(tNew).isEmpty()) << mFileSystem.failed();
        mFileSystem.failAt(0, 0);
        EXPECT_FALSE(os::removeTree(mFileSystem, tNew.mFolder));
        if (!tHasFailed) {
            EXPECT_GT(tOperation, 50);
            return;
        }
    }
}

TEST_F(TreeTest, FindsEveryChange)
{
    const Version tVersion = version(q("v"), mOldFiles);
    const struct
    {
        const char* mScript;
        QStringList mFound;
    } tRows[] = {
        {"chmod 755 v", {}},
        {"touch -d @5 v/a/f", {}},
        {"printf x | dd of=v/a/f conv=notrunc status=none", {q("a/f 5")}},
        {"printf x >> v/empty", {q("empty 4")}},
        {"rm v/a/f v/l", {q("a/f 0"), q("l 0")}},
        {"rm -r v/a", {q("a 0")}},
        {"touch v/a/extra; mkdir v/.x; touch v/.x/y", {q(".x 1"), q("a/extra 1")}},
        {"chmod 644 v/a/f; chmod 755 v/a; chmod 700 v", {q(" 3"), q("a 3"), q("a/f 3")}},
        {"chmod 444 v/bin/x", {q("bin/x 3")}},
        {"ln -sf a/g v/l", {q("l 6")}},
        {"rm v/l; echo > v/l", {q("l 2")}},
        {"rm v/a/f; ln -s ../bin/x v/a/f", {q("a/f 2")}},
        {"mv v/a w; ln -s ../w v/a", {q("a 2")}},
        {"rm -r v/a; touch v/a", {q("a 2")}},
        {"rm v/a/f; mkfifo v/a/f", {q("a/f 2")}},
        {"rm -r v", {q(" 0")}},
        {"mv v vv; ln -s vv v", {q(" 2")}},
    };
    for (const auto& tRow : tRows) {
        install(tVersion);
        sh(q(tRow.mScript));
        EXPECT_EQ(findings(tVersion), tRow.mFound) << tRow.mScript;
        sh(q("rm -rf v vv w"));
    }
}

TEST_F(TreeTest, StoresOnlyTheRightIndex)
{
    const Version tVersion = version(q("v"), mOldFiles);
    const Version tOther = version(q("w"), mNewFiles);
    IndexStore tStore(mFileSystem, mDir.path());
    packages::IndexName tName;
    ASSERT_FALSE(unpackIndex(mFileSystem, tVersion.mIndex, path(q("text")), &tName));
    ASSERT_EQ(tName, tVersion.mName);
    for (const bool tIsPacked : {true, false}) {
        const auto tTake = [&](const packages::IndexName& pName, const IndexLimits& pLimits) {
            return tIsPacked ? tStore.takePacked(tVersion.mIndex, pName, pLimits)
                             : tStore.takeText(path(q("text")), pName, pLimits);
        };
        ASSERT_FALSE(tStore.open());
        EXPECT_EQ(tTake(tOther.mName, tVersion.mLimits).mKind, Failure::Kind::Content);
        EXPECT_EQ(tTake(tVersion.mName, {.mMaxBytes = 1}).mKind, Failure::Kind::Content);
        EXPECT_FALSE(tStore.has(tOther.mName) || tStore.has(tVersion.mName));
        bool tHasFailed = true;
        for (int tOperation = 1; tHasFailed; ++tOperation) {
            mFileSystem.failAt(tOperation, ENOSPC);
            const Failure tFailure = tTake(tVersion.mName, tVersion.mLimits);
            tHasFailed = mFileSystem.hasFailed();
            EXPECT_TRUE(!tFailure || tFailure.mKind == Failure::Kind::NoSpace) << qPrintable(tFailure.mText);
            mFileSystem.failAt(0, 0);
            EXPECT_TRUE(tFailure || tStore.has(tVersion.mName)) << mFileSystem.failed();
            tStore.keepOnly({});
            EXPECT_EQ(QDir(path(q("indexes"))).entryList(QDir::Files), QStringList());
        }
        ASSERT_FALSE(tTake(tVersion.mName, tVersion.mLimits));
        tStore.keepOnly({tVersion.mName.mHash.toHex()});
        EXPECT_TRUE(tStore.has(tVersion.mName));
        spoil(tStore.pathOf(tVersion.mName));
        EXPECT_FALSE(tStore.has(tVersion.mName));
        tStore.keepOnly({});
    }
}
