#include "packing/TarStream.h"

#include "os/Descriptor.h"

#include <archive.h>
#include <archive_entry.h>

#include <QtCore/QFile>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sKeptPermissions = 0755;
constexpr qint64 sTarBlock = 512; // what the content of a file is filled up to

class Stream
{
public:
    Stream(os::FileSystem& pFileSystem, const QByteArray& pFolder, TarSink* pTo)
        : mFileSystem(pFileSystem), mFolder(pFolder), mTo(pTo)
    {
    }

    bool begin()
    {
        // Without blocks, each byte comes before the call that makes it returns.
        return archive_write_set_format_pax_restricted(mArchive.get()) == ARCHIVE_OK &&
               archive_write_set_bytes_per_block(mArchive.get(), 0) == ARCHIVE_OK &&
               archive_write_open(mArchive.get(), this, nullptr, &Stream::take, nullptr) == ARCHIVE_OK;
    }

    bool add(const FolderEntry& pEntry, qint64 pTime)
    {
        const bool tIsFile = S_ISREG(pEntry.mStat.st_mode);
        const qint64 tSize = tIsFile ? pEntry.mStat.st_size : 0;
        mHeader.clear();
        mIsHeader = true;
        const bool tMade = writeHeader(pEntry, tSize, pTime);
        mIsHeader = false;
        const qint64 tBlocks = (tSize + sTarBlock - 1) / sTarBlock;
        return tMade && pass(mTo->beginEntry(mHeader.size() + tBlocks * sTarBlock)) &&
               pass(mTo->write(mHeader)) && (!tIsFile || content(pEntry)) &&
               archive_write_finish_entry(mArchive.get()) == ARCHIVE_OK && !mFailure;
    }

    bool end()
    {
        return pass(mTo->beginEntry(2 * sTarBlock)) && archive_write_close(mArchive.get()) == ARCHIVE_OK &&
               !mFailure;
    }

    Failure failure()
    {
        mIsOver = true;
        const char* tText = archive_error_string(mArchive.get());
        return mFailure ? mFailure
                        : Failure::content(u"The package can't be created: %1"_s.arg(
                              QString::fromLocal8Bit(tText == nullptr ? "unknown reason" : tText)));
    }

private:
    bool writeHeader(const FolderEntry& pEntry, qint64 pSize, qint64 pTime)
    {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> tHeader(archive_entry_new(),
                                                                               archive_entry_free);
        archive_entry_set_pathname_utf8(tHeader.get(), pEntry.mPath.constData());
        archive_entry_set_filetype(tHeader.get(), pEntry.mStat.st_mode & S_IFMT);
        archive_entry_set_perm(tHeader.get(), pEntry.mStat.st_mode & sKeptPermissions);
        archive_entry_set_mtime(tHeader.get(), pTime, 0);
        if (S_ISLNK(pEntry.mStat.st_mode)) {
            archive_entry_set_perm(tHeader.get(), 0777);
            archive_entry_set_symlink_utf8(tHeader.get(), pEntry.mLinkTarget.constData());
        }
        archive_entry_set_size(tHeader.get(), pSize);
        return archive_write_header(mArchive.get(), tHeader.get()) == ARCHIVE_OK;
    }

    static la_ssize_t take(archive* /*pArchive*/, void* pSelf, const void* pData, size_t pSize)
    {
        auto* tSelf = static_cast<Stream*>(pSelf);
        const QByteArrayView tBytes(static_cast<const char*>(pData), static_cast<qsizetype>(pSize));
        // The library would leak memory if this failed, so what it still writes is dropped.
        if (tSelf->mIsOver || tSelf->mFailure) {
            return tBytes.size();
        }
        if (tSelf->mIsHeader) {
            tSelf->mHeader.append(tBytes);
            return tBytes.size();
        }
        tSelf->pass(tSelf->mTo->write(tBytes));
        return tBytes.size();
    }

    bool pass(const Failure& pFailure)
    {
        mFailure = pFailure;
        return !pFailure;
    }

    bool fail(const FolderEntry& pEntry, const QString& pReason)
    {
        return pass(Failure::content(u"The package can't be created: %1/%2: %3"_s.arg(
            QFile::decodeName(mFolder), QFile::decodeName(pEntry.mPath), pReason)));
    }

    bool content(const FolderEntry& pEntry)
    {
        const os::Descriptor tFile(
            mFileSystem, mFileSystem.open(mFolder + '/' + pEntry.mPath, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!tFile.isOpen()) {
            return fail(pEntry, qt_error_string(errno));
        }
        mTo->beginContent(pEntry);
        qint64 tTotal = 0;
        ssize_t tRead = 0;
        while ((tRead = mFileSystem.read(tFile.fd(), mBuffer.data(), mBuffer.size())) > 0) {
            tTotal += tRead;
            if (tTotal <= pEntry.mStat.st_size &&
                archive_write_data(mArchive.get(), mBuffer.data(), static_cast<size_t>(tRead)) != tRead) {
                return false;
            }
            if (mFailure) {
                return false;
            }
        }
        mTo->endContent();
        if (tRead < 0) {
            return fail(pEntry, qt_error_string(errno));
        }
        return tTotal == pEntry.mStat.st_size || fail(pEntry, u"changed while it was packed"_s);
    }

    os::FileSystem& mFileSystem;
    const QByteArray& mFolder;
    TarSink* mTo;
    std::vector<char> mBuffer = std::vector<char>(256 * 1024);
    QByteArray mHeader;
    bool mIsHeader = false;
    bool mIsOver = false; // after a failure
    Failure mFailure;
    // The last member: its end may still call take().
    std::unique_ptr<archive, int (*)(archive*)> mArchive{archive_write_new(), archive_write_free};
};

} // namespace

TarStream::TarStream(os::FileSystem& pFileSystem, const QString& pFolder, const QDateTime& pLatest)
    : mFileSystem(pFileSystem), mFolder(QFile::encodeName(pFolder)), mLatest(pLatest.toSecsSinceEpoch())
{
}

Failure TarStream::run(const std::vector<FolderEntry>& pEntries, TarSink* pTo)
{
    Stream tStream(mFileSystem, mFolder, pTo);
    bool tOk = tStream.begin();
    for (size_t i = 0; tOk && i < pEntries.size(); ++i) {
        tOk = tStream.add(pEntries[i], timeOf(pEntries[i]));
    }
    return tOk && tStream.end() ? Failure() : tStream.failure();
}

qint64 TarStream::timeOf(const FolderEntry& pEntry) const
{
    return std::min<qint64>(pEntry.mStat.st_mtime, mLatest);
}

bool TarStream::isExecutable(const FolderEntry& pEntry)
{
    return (pEntry.mStat.st_mode & sKeptPermissions & 0111) != 0;
}

} // namespace tarn::vkpublish
