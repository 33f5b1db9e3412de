#include "trees/TreeCheck.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "packages/PackageModes.h"
#include "trees/OldFile.h"

#include <QtCore/QFile>
#include <QtCore/QSet>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <climits>

namespace tarn::trees {

namespace {

constexpr int sFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

// All names in an open folder; false if it can't be read.
bool listNames(int pDirFd, QSet<QByteArray>* pTo)
{
    const int tCopy = ::fcntl(pDirFd, F_DUPFD_CLOEXEC, 0);
    DIR* tDir = tCopy < 0 ? nullptr : ::fdopendir(tCopy);
    if (tDir == nullptr) {
        ::close(tCopy);
        return false;
    }
    while (const dirent* tEntry = ::readdir(tDir)) {
        pTo->insert(tEntry->d_name);
    }
    ::closedir(tDir);
    pTo->remove(".");
    pTo->remove("..");
    return true;
}

// The work on one folder. The index comes in an order in which a folder is complete before another begins.
class Check
{
public:
    Check(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort,
          const std::function<void(qint64)>& pProgress)
        : mFileSystem(pFileSystem), mAbort(pAbort), mProgress(pProgress)
    {
    }

    Result<TreeReport> run(const QString& pFolder, const QString& pIndexFile, const IndexLimits& pLimits)
    {
        IndexReader tReader(mFileSystem);
        if (Failure tFailure = tReader.open(pIndexFile, pLimits)) {
            return tFailure;
        }
        enter(mFileSystem.open(QFile::encodeName(pFolder), sFolderFlags), {});
        IndexEntry tEntry;
        Failure tFailure;
        while (!mFolders.empty() && tReader.next(&tEntry, &tFailure)) {
            if (isAborted()) {
                return Failure::canceled();
            }
            checkEntry(tEntry);
        }
        leaveTo(0);
        return isAborted() ? Failure::canceled() : tFailure ? Result<TreeReport>(tFailure) : mReport;
    }

private:
    struct Folder
    {
        QByteArray mPath; // with a slash behind it, but for the package's own
        os::Descriptor mFd;
        QSet<QByteArray> mRest; // names that the index has not mentioned yet
    };

    bool isAborted() const { return mAbort != nullptr && mAbort->isSet(); }

    void note(const QByteArray& pPath, TreeFault pFault)
    {
        if (++mReport.mFaults <= static_cast<qint64>(TreeReport::sMaxFindings)) {
            mReport.mFindings.push_back({pPath, pFault});
        }
    }

    void enter(int pFd, const QByteArray& pPath);
    void leaveTo(size_t pDepth);
    void checkEntry(const IndexEntry& pEntry);
    void checkMode(const struct stat& pStat, mode_t pMode, const QByteArray& pPath);
    void checkLink(const IndexEntry& pEntry, const QByteArray& pName);
    void checkFile(const IndexEntry& pEntry, const QByteArray& pName);

    os::FileSystem& mFileSystem;
    const os::AbortFlag* mAbort;
    const std::function<void(qint64)>& mProgress;
    std::vector<Folder> mFolders; // from the package's own to that of the entry
    TreeReport mReport;
};

void Check::enter(int pFd, const QByteArray& pPath)
{
    const int tErrno = errno;
    Folder tFolder{pPath.isEmpty() ? pPath : pPath + '/', os::Descriptor(mFileSystem, pFd), {}};
    struct stat tStat;
    if (!tFolder.mFd.isOpen()) {
        const bool tIsOther = tErrno == ENOTDIR || tErrno == ELOOP;
        note(pPath, tIsOther           ? TreeFault::Kind
                    : tErrno == ENOENT ? TreeFault::Missing
                                       : TreeFault::Unreadable);
        return;
    }
    if (::fstat(pFd, &tStat) != 0 || !listNames(pFd, &tFolder.mRest)) {
        note(pPath, TreeFault::Unreadable);
        return;
    }
    // A run that is killed may leave the top folder as it was before its move.
    if (!pPath.isEmpty() || (tStat.st_mode & 07777) != packages::sNewFolderMode) {
        checkMode(tStat, packages::sFolderMode, pPath);
    }
    mFolders.push_back(std::move(tFolder));
}

void Check::leaveTo(size_t pDepth)
{
    while (mFolders.size() > pDepth) {
        for (const QByteArray& tName : std::as_const(mFolders.back().mRest)) {
            note(mFolders.back().mPath + tName, TreeFault::Extra);
        }
        mFolders.pop_back();
    }
}

void Check::checkEntry(const IndexEntry& pEntry)
{
    const qsizetype tSlash = pEntry.mPath.lastIndexOf('/');
    const QByteArray tFolder = pEntry.mPath.first(tSlash + 1);
    while (!tFolder.startsWith(mFolders.back().mPath)) {
        leaveTo(mFolders.size() - 1);
    }
    if (mFolders.back().mPath != tFolder) {
        return; // in a folder that is not there
    }
    const QByteArray tName = pEntry.mPath.sliced(tSlash + 1);
    if (!mFolders.back().mRest.remove(tName)) {
        note(pEntry.mPath, TreeFault::Missing);
        return;
    }
    const int tDirFd = mFolders.back().mFd.fd();
    switch (pEntry.mKind) {
    case EntryKind::Folder:
        enter(mFileSystem.openAt(tDirFd, tName, sFolderFlags), pEntry.mPath);
        break;
    case EntryKind::Link:
        checkLink(pEntry, tName);
        break;
    case EntryKind::File:
        checkFile(pEntry, tName);
        break;
    }
}

void Check::checkMode(const struct stat& pStat, mode_t pMode, const QByteArray& pPath)
{
    if ((pStat.st_mode & 07777) != pMode || pStat.st_uid != ::geteuid()) {
        note(pPath, TreeFault::Mode);
    }
}

void Check::checkLink(const IndexEntry& pEntry, const QByteArray& pName)
{
    char tTarget[PATH_MAX];
    const ssize_t tLength =
        ::readlinkat(mFolders.back().mFd.fd(), pName.constData(), tTarget, sizeof tTarget);
    if (tLength < 0) {
        note(pEntry.mPath, errno == EINVAL ? TreeFault::Kind : TreeFault::Unreadable);
    } else if (QByteArrayView(tTarget, tLength) != pEntry.mTarget) {
        note(pEntry.mPath, TreeFault::Target);
    }
}

void Check::checkFile(const IndexEntry& pEntry, const QByteArray& pName)
{
    struct stat tStat;
    if (::fstatat(mFolders.back().mFd.fd(), pName.constData(), &tStat, AT_SYMLINK_NOFOLLOW) == 0 &&
        !S_ISREG(tStat.st_mode)) {
        note(pEntry.mPath, TreeFault::Kind);
        return;
    }
    // Not blocking: a pipe may have taken the place of the file by now.
    const os::Descriptor tFile(
        mFileSystem, mFileSystem.openAt(mFolders.back().mFd.fd(), pName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!tFile.isOpen() || ::fstat(tFile.fd(), &tStat) != 0) {
        note(pEntry.mPath, TreeFault::Unreadable);
        return;
    }
    if (tStat.st_size != pEntry.mSize) {
        note(pEntry.mPath, TreeFault::Size);
        return;
    }
    const std::optional<tuf::Hash> tHash = hashOf(mFileSystem, tFile.fd(), mAbort, mProgress);
    if (!tHash || *tHash != pEntry.mHash) {
        note(pEntry.mPath, tHash ? TreeFault::Content : TreeFault::Unreadable);
        return;
    }
    checkMode(tStat, packages::fileMode(pEntry.mIsExecutable), pEntry.mPath);
    ++mReport.mFiles;
    mReport.mBytes += tStat.st_size;
}

} // namespace

Result<TreeReport> checkTree(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const QString& pFolder,
                             const QString& pIndexFile, const IndexLimits& pLimits,
                             const std::function<void(qint64)>& pProgress)
{
    return Check(pFileSystem, pAbort, pProgress).run(pFolder, pIndexFile, pLimits);
}

} // namespace tarn::trees
