#include "Packer.h"
#include "Test.h"

#include "FaultyFileSystem.h"

#include <archive.h>
#include <archive_entry.h>

#include <sys/time.h>

#include <clocale>

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
        EXPECT_EQ(pack(QDateTime(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC)), QString());
        return mResult.mHashes;
    };
    EXPECT_EQ(tBuild({"f/a", "f/d/b", "f/d/c"}), tBuild({"f/d/c", "f/d/b", "f/a"}));
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
    file("f/a", QByteArray(300000, 'a'));
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
