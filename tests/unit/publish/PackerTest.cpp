#include "packing/Packer.h"
#include "publication/SideFileCheck.h"
#include "Test.h"

#include "trees/IndexWriter.h"
#include "tuf/Hashes.h"

#include "FaultyFileSystem.h"

#include <archive.h>
#include <archive_entry.h>

#include <QtCore/QRandomGenerator>

#include <sys/time.h>

#include <clocale>

using namespace tarn;
using namespace tarn::vkpublish;

namespace {

class PackerTest : public testing::Test
{
protected:
    PackerTest()
    {
        // Like the program; otherwise libarchive does not use UTF-8 for names.
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }

    void file(const char* pBelow, const QByteArray& pContent = "x", mode_t pMode = 0644) const
    {
        const QString tPath = mDir.filePath(q(pBelow));
        writeFile(tPath, pContent);
        ASSERT_EQ(::chmod(QFile::encodeName(tPath).constData(), pMode), 0);
    }

    QByteArray path(const char* pBelow) const { return QFile::encodeName(mDir.filePath(q(pBelow))); }

    void link(const char* pTarget, const char* pBelow) const
    {
        ASSERT_EQ(::symlink(pTarget, path(pBelow)), 0);
    }

    // The reason why the folder "f" can't be packed; empty if it was.
    QString pack(const QDateTime& pLatest = QDateTime::currentDateTimeUtc(),
                 tarn::os::FileSystem& pFileSystem = tarn::os::realFileSystem())
    {
        std::vector<FolderEntry> tEntries;
        mResult = PackResult();
        tarn::Failure tFailure = scanFolder(mDir.filePath(q("f")), &tEntries);
        if (!tFailure) {
            tFailure = packFolder(pFileSystem, mDir.filePath(q("f")), tEntries,
                                  {.mLatest = pLatest, .mLevel = 3, .mThreads = mThreads},
                                  mDir.filePath(q("archive")), &mResult);
        }
        return tFailure.mText;
    }

    // What checkIndex() says about an index whose entries are changed like this.
    QString checkPacked(const std::function<void(trees::IndexEntry&)>& pChange) const
    {
        std::vector<trees::IndexEntry> tEntries = mResult.mEntries;
        std::for_each(tEntries.begin(), tEntries.end(), pChange);
        const QByteArray tText = trees::indexText(mResult.mFrames, tEntries);
        const QByteArray tFile = trees::packIndex(tText);
        const auto tHash = [](const QByteArray& pBytes) {
            return *tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, q(tuf::sha256(pBytes)));
        };
        packages::PackageInfo tInfo;
        tInfo.mInstalledSize = mResult.mInstalledSize;
        tInfo.mIndex = packages::IndexFile{.mFile = {.mLength = tFile.size(), .mHash = tHash(tFile)},
                                           .mText = {.mHash = tHash(tText), .mLength = tText.size()}};
        writeFile(mDir.filePath(tInfo.mIndex->name()), tFile);
        return checkIndex(mDir.path(), tInfo, mDir.filePath(q("archive")), mResult.mLength).mText;
    }

    static QByteArray noise(qsizetype pSize, quint32 pSeed)
    {
        QByteArray tBytes((pSize + 3) / 4 * 4, '\0');
        QRandomGenerator(pSeed).fillRange(reinterpret_cast<quint32*>(tBytes.data()), tBytes.size() / 4);
        return tBytes.first(pSize);
    }

    QTemporaryDir mDir;
    int mThreads = 2;
    PackResult mResult;
};

TEST_F(PackerTest, HoldsEverythingWithoutTheMachinesTraces)
{
    file("f/bin/run", "#!/bin/sh\n", 0777);
    file("f/b/\xc3\xa4.txt", QByteArray(100000, 'y'));
    file("f/a", "");
    link("../bin/run", "f/b/link");
    QDir().mkpath(mDir.filePath(q("f/empty")));
    const QDateTime tLatest(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC);
    ASSERT_EQ(pack(tLatest), QString());
    EXPECT_EQ(mResult.mInstalledSize, 100010);
    EXPECT_EQ(mResult.mLength, QFileInfo(mDir.filePath(q("archive"))).size());

    const std::unique_ptr<archive, int (*)(archive*)> tArchive(archive_read_new(), archive_read_free);
    archive_read_support_filter_zstd(tArchive.get());
    archive_read_support_format_tar(tArchive.get());
    ASSERT_EQ(archive_read_open_filename(tArchive.get(), path("archive"), 10240), ARCHIVE_OK);
    QStringList tFound;
    archive_entry* tEntry = nullptr;
    while (archive_read_next_header(tArchive.get(), &tEntry) == ARCHIVE_OK) {
        tFound.append(q("%1 %2 %3")
                          .arg(q(archive_entry_pathname_utf8(tEntry)))
                          .arg(archive_entry_mode(tEntry), 0, 8)
                          .arg(archive_entry_size(tEntry)));
        EXPECT_EQ(archive_entry_uid(tEntry) + archive_entry_gid(tEntry), 0);
        EXPECT_EQ(archive_entry_mtime(tEntry), tLatest.toSecsSinceEpoch());
    }
    EXPECT_EQ(tFound, (QStringList{q("a 100644 0"), q("b/ 40755 0"), q("b/link 120777 0"),
                                   q("b/\xc3\xa4.txt 100644 100000"), q("bin/ 40755 0"),
                                   q("bin/run 100755 10"), q("empty/ 40755 0")}));
}

TEST_F(PackerTest, TheSameFolderMakesTheSameArchive)
{
    const auto tBuild = [this](const QList<const char*>& pOrder) {
        QDir(mDir.filePath(q("f"))).removeRecursively();
        for (const char* tName : pOrder) {
            file(tName, tName);
            const timeval tTimes[] = {{1700000000, 5}, {1700000000, pOrder.first() == tName}};
            ::utimes(path(tName), tTimes);
        }
        ++mThreads;
        EXPECT_EQ(pack(QDateTime(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC)), QString());
        return mResult.mHashes;
    };
    EXPECT_EQ(tBuild({"f/a", "f/d/b", "f/d/c"}), tBuild({"f/d/c", "f/d/b", "f/a"}));
}

TEST_F(PackerTest, TheIndexIsThatOfTheArchive)
{
    // Small ones, two that do not fit into a frame, one with frames of its own, small ones again.
    const qsizetype tMiB = 1024 * 1024;
    file("f/a/small", "1");
    file("f/b", noise(2 * tMiB, 1));
    file("f/c", noise(3 * tMiB, 2), 0755);
    file("f/d", noise(9 * tMiB + 1, 3));
    file("f/e/\xc3\xa4", "");
    file("f/z", "2");
    link("../z", "f/a/link");
    QDir().mkpath(mDir.filePath(q("f/empty")));
    ASSERT_EQ(pack(), QString());
    const tuf::HashList tHashes = mResult.mHashes;
    QList<qint64> tUnpacked;
    for (const trees::Frame& tFrame : mResult.mFrames) {
        tUnpacked.append(tFrame.mUnpacked / 1024);
    }
    EXPECT_EQ(tUnpacked, (QList<qint64>{2050, 3072, 3072, 3072, 3072, 4})) << "KiB";
    EXPECT_EQ(checkPacked([](trees::IndexEntry&) {}), QString());
    const std::pair<const char*, std::function<void(trees::IndexEntry&)>> sLies[] = {
        {"a/small", [](trees::IndexEntry& pEntry) { pEntry.mTime += 1; }},
        {"a/link", [](trees::IndexEntry& pEntry) { pEntry.mTarget = "../b"; }},
        {"c", [](trees::IndexEntry& pEntry) { pEntry.mIsExecutable = false; }},
        {"d", [](trees::IndexEntry& pEntry) { pEntry.mAt += 1; }},
        {"z", [](trees::IndexEntry& pEntry) { pEntry.mPath = "zz"; }},
        {"z", [](trees::IndexEntry& pEntry) { pEntry.mHash = tuf::Hash(); }},
    };
    for (const auto& [tPath, tLie] : sLies) {
        const QString tFound = checkPacked([&, tPath = tPath, tLie = tLie](trees::IndexEntry& pEntry) {
            if (pEntry.mPath == tPath) {
                tLie(pEntry);
            }
        });
        EXPECT_NE(tFound, QString()) << tPath;
    }
    mResult.mEntries.pop_back();
    EXPECT_NE(checkPacked([](trees::IndexEntry&) {}), QString()) << "more in the archive";

    mThreads = 7;
    ASSERT_EQ(pack(), QString());
    EXPECT_EQ(mResult.mHashes, tHashes) << "depends on the threads";
}

TEST_F(PackerTest, RefusesWhatAPackageMustNotHold)
{
    const std::pair<const char*, std::function<void()>> sCases[] = {
        {"link out", [this] { link("../../x", "f/d/l"); }},
        {"pipe", [this] { ::mkfifo(path("f/pipe"), 0600); }},
        {"set-user-ID", [this] { file("f/suid", "x", 04755); }},
        {"name that isn't UTF-8", [this] { ::close(::creat(path("f/") + "\xff", 0600)); }},
        {"nothing",
         [this] {
             QDir(mDir.filePath(q("f"))).removeRecursively();
             QDir().mkpath(mDir.filePath(q("f")));
         }},
        {"no folder", [this] { QDir(mDir.filePath(q("f"))).removeRecursively(); }},
    };
    for (const auto& [tWhat, tMake] : sCases) {
        SCOPED_TRACE(tWhat);
        QDir(mDir.filePath(q("f"))).removeRecursively();
        file("f/d/good");
        EXPECT_EQ(pack(), QString());
        QFile::remove(mDir.filePath(q("archive")));
        tMake();
        EXPECT_NE(pack(), QString());
        ::unlink(path("f/") + "\xff"); // Qt can't name it
        EXPECT_FALSE(QFileInfo::exists(mDir.filePath(q("archive"))));
    }
}

TEST_F(PackerTest, LeavesNoArchiveWhenTheDiskFails)
{
    file("f/a", noise(5'000'000, 1));
    file("f/b");
    bool tFailed = true;
    for (int i = 1; tFailed; ++i) {
        FaultyFileSystem tFileSystem;
        tFileSystem.failAt(i, ENOSPC);
        const QString tError = pack(QDateTime::currentDateTimeUtc(), tFileSystem);
        tFailed = tFileSystem.hasFailed();
        const bool tPacked = !tFailed || tFileSystem.failed() == "close"; // of a file that was read
        EXPECT_EQ(tError.isEmpty(), tPacked) << tFileSystem.failed() << tError;
        EXPECT_EQ(QFileInfo::exists(mDir.filePath(q("archive"))), tPacked);
        QFile::remove(mDir.filePath(q("archive")));
        ASSERT_LT(i, 100);
    }
}

} // namespace
