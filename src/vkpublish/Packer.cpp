#include "Packer.h"

#include "os/FileSystem.h"
#include "tuf/Hashes.h"

#include <archive.h>
#include <archive_entry.h>

#include <QtCore/QFile>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using os::FileSystem;

namespace {

constexpr mode_t sKeptPermissions = 0755;

// The archive file: receives the packed bytes and hashes them.
class Output
{
public:
    Output(FileSystem& pFileSystem, const QString& pPath)
        : mFileSystem(pFileSystem), mPath(QFile::encodeName(pPath))
    {
        mFd = mFileSystem.open(mPath, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0644);
    }
    ~Output()
    {
        if (mFd >= 0) {
            mFileSystem.close(mFd);
        }
        if (!mFinished) {
            mFileSystem.unlink(mPath);
        }
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool isOpen() const { return mFd >= 0; }

    static la_ssize_t write(archive* pArchive, void* pSelf, const void* pData, size_t pSize)
    {
        auto* tSelf = static_cast<Output*>(pSelf);
        const ssize_t tWritten = tSelf->mFileSystem.write(tSelf->mFd, pData, pSize);
        if (tWritten < 0) {
            archive_set_error(pArchive, errno, "the archive can't be written");
            return tWritten;
        }
        tSelf->mHasher.add(QByteArrayView(static_cast<const char*>(pData), tWritten));
        tSelf->mLength += tWritten;
        return tWritten;
    }

    bool finish(PackResult* pTo)
    {
        if (mFileSystem.fsync(mFd) != 0) {
            return false;
        }
        const int tFd = mFd;
        mFd = -1;
        mFinished = mFileSystem.close(tFd) == 0;
        pTo->mLength = mLength;
        pTo->mHashes = mHasher.result();
        return mFinished;
    }

private:
    FileSystem& mFileSystem;
    QByteArray mPath;
    int mFd = -1;
    bool mFinished = false;
    qint64 mLength = 0;
    tuf::Hasher mHasher{tuf::HashAlgorithm::Sha256};
};

class Packer
{
public:
    Packer(FileSystem& pFileSystem, const QString& pFolder, const QDateTime& pLatest)
        : mFileSystem(pFileSystem), mFolder(QFile::encodeName(pFolder)), mLatest(pLatest.toSecsSinceEpoch())
    {
    }

    bool begin(Output* pOutput, int pLevel)
    {
        return archive_write_add_filter_zstd(mArchive.get()) == ARCHIVE_OK &&
               archive_write_set_filter_option(mArchive.get(), "zstd", "compression-level",
                                               QByteArray::number(pLevel).constData()) == ARCHIVE_OK &&
               archive_write_set_format_pax_restricted(mArchive.get()) == ARCHIVE_OK &&
               archive_write_set_bytes_in_last_block(mArchive.get(), 1) == ARCHIVE_OK &&
               archive_write_open(mArchive.get(), pOutput, nullptr, Output::write, nullptr) == ARCHIVE_OK;
    }

    bool add(const FolderEntry& pEntry)
    {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> tHeader(archive_entry_new(),
                                                                               archive_entry_free);
        archive_entry_set_pathname_utf8(tHeader.get(), pEntry.mPath.constData());
        archive_entry_set_filetype(tHeader.get(), pEntry.mStat.st_mode & S_IFMT);
        archive_entry_set_perm(tHeader.get(), pEntry.mStat.st_mode & sKeptPermissions);
        archive_entry_set_mtime(tHeader.get(), std::min<time_t>(pEntry.mStat.st_mtime, mLatest), 0);
        if (S_ISLNK(pEntry.mStat.st_mode)) {
            archive_entry_set_perm(tHeader.get(), 0777);
            archive_entry_set_symlink_utf8(tHeader.get(), pEntry.mLinkTarget.constData());
        }
        archive_entry_set_size(tHeader.get(), S_ISREG(pEntry.mStat.st_mode) ? pEntry.mStat.st_size : 0);
        return archive_write_header(mArchive.get(), tHeader.get()) == ARCHIVE_OK &&
               (!S_ISREG(pEntry.mStat.st_mode) || content(pEntry));
    }

    bool end() { return archive_write_close(mArchive.get()) == ARCHIVE_OK; }

    // The error: from the packer, else from the archive library.
    QString problem() const
    {
        const char* tText = archive_error_string(mArchive.get());
        if (!mProblem.isEmpty() || tText == nullptr) {
            return mProblem;
        }
        const int tErrno = archive_errno(mArchive.get());
        const QString tReason = tErrno > 0 ? u": "_s + qt_error_string(tErrno) : QString();
        return QString::fromLocal8Bit(tText) + tReason;
    }

private:
    bool fail(const FolderEntry& pEntry, const QString& pReason)
    {
        mProblem = u"%1/%2: %3"_s.arg(QFile::decodeName(mFolder), QFile::decodeName(pEntry.mPath), pReason);
        return false;
    }

    bool content(const FolderEntry& pEntry)
    {
        const int tFd = mFileSystem.open(mFolder + '/' + pEntry.mPath, O_RDONLY | O_NOFOLLOW);
        if (tFd < 0) {
            return fail(pEntry, qt_error_string(errno));
        }
        const bool tDone = copy(tFd, pEntry);
        mFileSystem.close(tFd);
        return tDone;
    }

    bool copy(int pFd, const FolderEntry& pEntry)
    {
        qint64 tTotal = 0;
        ssize_t tRead = 0;
        while ((tRead = mFileSystem.read(pFd, mBuffer.data(), mBuffer.size())) > 0) {
            tTotal += tRead;
            if (tTotal <= pEntry.mStat.st_size &&
                archive_write_data(mArchive.get(), mBuffer.data(), static_cast<size_t>(tRead)) != tRead) {
                return false;
            }
        }
        if (tRead < 0) {
            return fail(pEntry, qt_error_string(errno));
        }
        return tTotal == pEntry.mStat.st_size || fail(pEntry, u"changed while it was packed"_s);
    }

    FileSystem& mFileSystem;
    QByteArray mFolder;
    time_t mLatest;
    std::unique_ptr<archive, int (*)(archive*)> mArchive{archive_write_new(), archive_write_free};
    std::vector<char> mBuffer = std::vector<char>(256 * 1024);
    QString mProblem;
};

} // namespace

Failure packFolder(FileSystem& pFileSystem, const QString& pFolder, const std::vector<FolderEntry>& pEntries,
                   const QDateTime& pLatest, int pLevel, const QString& pArchive, PackResult* pTo)
{
    Output tOutput(pFileSystem, pArchive);
    if (!tOutput.isOpen()) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pArchive));
    }
    Packer tPacker(pFileSystem, pFolder, pLatest);
    bool tOk = tPacker.begin(&tOutput, pLevel);
    for (size_t i = 0; tOk && i < pEntries.size(); ++i) {
        tOk = tPacker.add(pEntries[i]);
        pTo->mInstalledSize += S_ISREG(pEntries[i].mStat.st_mode) ? pEntries[i].mStat.st_size : 0;
    }
    if (!tOk || !tPacker.end()) {
        return Failure::content(u"The package can't be created: %1"_s.arg(tPacker.problem()));
    }
    if (!tOutput.finish(pTo)) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pArchive));
    }
    return {};
}

} // namespace tarn::vkpublish
