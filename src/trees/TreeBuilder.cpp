#include "trees/TreeBuilder.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "packages/PackageModes.h"
#include "trees/FrameStream.h"
#include "trees/OldFile.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

// How a file system refuses to share a file.
bool isRefusal(int pErrno)
{
    static constexpr int sRefusals[] = {EXDEV, EOPNOTSUPP, EINVAL, ENOTTY, ENOSYS, EPERM, EACCES, EBADF};
    return std::find(std::begin(sRefusals), std::end(sRefusals), pErrno) != std::end(sRefusals);
}

} // namespace

TreeBuilder::TreeBuilder(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const Tree& pTree,
                         const QString& pFolder, const std::function<void(qint64)>& pProgress)
    : mFileSystem(pFileSystem), mAbort(pAbort), mTree(pTree), mFolder(pFolder), mProgress(pProgress),
      mChain(pFileSystem), mIsThere(pTree.count(), true)
{
}

Failure TreeBuilder::aborted() const
{
    return mAbort != nullptr && mAbort->isSet() ? Failure::canceled() : Failure();
}

QString TreeBuilder::label(size_t pEntry) const
{
    return mFolder + u'/' + QString::fromUtf8(mTree.path(mTree.at(pEntry)));
}

int TreeBuilder::enterFolderOf(size_t pEntry, QByteArray* pName)
{
    QByteArrayList tNames = mTree.path(mTree.at(pEntry)).split('/');
    *pName = tNames.takeLast();
    return mChain.enter(tNames);
}

void TreeBuilder::nowThere(size_t pEntry)
{
    mIsThere[pEntry] = true;
    --mMissing;
}

Failure TreeBuilder::start()
{
    if (Failure tFailure = mChain.start(mFolder)) {
        return tFailure;
    }
    for (size_t tEntry = 0; tEntry < mTree.count(); ++tEntry) {
        if (Failure tFailure = aborted()) {
            return tFailure;
        }
        if (Failure tFailure = makeEntry(tEntry)) {
            return tFailure;
        }
    }
    return {};
}

Failure TreeBuilder::makeEntry(size_t pEntry)
{
    const Tree::Node& tNode = mTree.at(pEntry);
    if (tNode.mKind == EntryKind::Folder) {
        return mChain.enter(mTree.path(tNode).split('/')) < 0
                   ? Failure::fromErrno(errno, u"make the folder %1"_s.arg(label(pEntry)))
                   : Failure();
    }
    if (tNode.mKind == EntryKind::Link) {
        QByteArray tName;
        const int tDirFd = enterFolderOf(pEntry, &tName);
        return tDirFd < 0 || mFileSystem.symlinkAt(mTree.target(tNode), tDirFd, tName) != 0
                   ? Failure::fromErrno(errno, u"make the link %1"_s.arg(label(pEntry)))
                   : Failure();
    }
    mIsThere[pEntry] = false;
    ++mMissing;
    if (tNode.mSize > 0) {
        return {};
    }
    NewFile tFile(mFileSystem, label(pEntry));
    if (Failure tFailure = createFile(pEntry, &tFile)) {
        return tFailure;
    }
    bool tIsRight = false;
    return completeFile(pEntry, &tFile, &tIsRight);
}

Failure TreeBuilder::createFile(size_t pEntry, NewFile* pTo)
{
    QByteArray tName;
    const int tDirFd = enterFolderOf(pEntry, &tName);
    return tDirFd < 0 ? Failure::fromErrno(errno, u"write %1"_s.arg(label(pEntry)))
                      : pTo->create(tDirFd, tName);
}

Failure TreeBuilder::completeFile(size_t pEntry, NewFile* pFile, bool* pIsRight)
{
    const Result<bool> tIsRight = pFile->finish(mTree.at(pEntry));
    *pIsRight = tIsRight && *tIsRight;
    if (*pIsRight) {
        nowThere(pEntry);
    }
    return tIsRight.failure();
}

Failure TreeBuilder::reuse(const InstalledFiles& pInstalled)
{
    for (size_t tEntry = 0; tEntry < mTree.count(); ++tEntry) {
        if (mIsThere[tEntry]) {
            continue;
        }
        for (const InstalledFiles::Place& tPlace : pInstalled.find(mTree.at(tEntry))) {
            if (Failure tFailure = aborted()) {
                return tFailure;
            }
            if (Failure tFailure = reuseFile(tEntry, tPlace)) {
                return tFailure;
            }
            if (mIsThere[tEntry]) {
                mProgress(mTree.at(tEntry).mSize);
                break;
            }
        }
    }
    return {};
}

// An old file that cannot be read, or is not what its index says, leaves the new one missing.
Failure TreeBuilder::reuseFile(size_t pEntry, const InstalledFiles::Place& pPlace)
{
    struct stat tStat;
    const os::Descriptor tOld = openInstalled(mFileSystem, pPlace.mPackage->mFolder, pPlace.path(), &tStat);
    if (!tOld.isOpen() || tStat.st_size != mTree.at(pEntry).mSize) {
        return {};
    }
    if (mCanClone) {
        if (Failure tFailure = cloneFile(pEntry, tOld.fd()); tFailure || mIsThere[pEntry] || mCanClone) {
            return tFailure;
        }
    }
    const Tree::Node& tNode = mTree.at(pEntry);
    const bool tIsSame =
        tStat.st_mtime == tNode.mTime && (tStat.st_mode & 07777) == packages::fileMode(tNode.mIsExecutable);
    if (mCanLink && tIsSame) {
        const std::optional<tuf::Hash> tHash = hashOf(mFileSystem, tOld.fd());
        if (!tHash || digestOf(*tHash) != tNode.mHash) {
            return {};
        }
        if (Failure tFailure = linkFile(pEntry, tOld.fd(), tStat); tFailure || mIsThere[pEntry]) {
            return tFailure;
        }
    }
    return copyFile(pEntry, tOld.fd());
}

// The clone is hashed, not the original: nobody can change it between the two.
Failure TreeBuilder::cloneFile(size_t pEntry, int pOldFd)
{
    NewFile tFile(mFileSystem, label(pEntry));
    if (Failure tFailure = createFile(pEntry, &tFile)) {
        return tFailure;
    }
    if (mFileSystem.cloneFile(tFile.fd(), pOldFd) != 0) {
        const int tErrno = errno;
        tFile.discard();
        mCanClone = !isRefusal(tErrno);
        return mCanClone ? Failure::fromErrno(tErrno, u"write %1"_s.arg(label(pEntry))) : Failure();
    }
    if (Failure tFailure = tFile.hashContent()) {
        return tFailure;
    }
    bool tIsRight = false;
    return completeFile(pEntry, &tFile, &tIsRight);
}

Failure TreeBuilder::linkFile(size_t pEntry, int pOldFd, const struct stat& pStat)
{
    QByteArray tName;
    const int tDirFd = enterFolderOf(pEntry, &tName);
    struct stat tNow;
    if (tDirFd >= 0 && mFileSystem.linkAt(pOldFd, tDirFd, tName) == 0) {
        // Hashing may have taken long.
        if (::fstat(pOldFd, &tNow) == 0 && tNow.st_mtime == pStat.st_mtime && tNow.st_size == pStat.st_size) {
            nowThere(pEntry);
        } else {
            mFileSystem.unlinkAt(tDirFd, tName, 0);
        }
        return {};
    }
    if (tDirFd >= 0 && errno == EMLINK) {
        return {}; // this file has too many names; others may still be linked
    }
    mCanLink = tDirFd >= 0 && !isRefusal(errno);
    return tDirFd < 0 || mCanLink ? Failure::fromErrno(errno, u"write %1"_s.arg(label(pEntry))) : Failure();
}

Failure TreeBuilder::copyFile(size_t pEntry, int pOldFd)
{
    NewFile tFile(mFileSystem, label(pEntry));
    if (::lseek(pOldFd, 0, SEEK_SET) < 0) {
        return {};
    }
    if (Failure tFailure = createFile(pEntry, &tFile)) {
        return tFailure;
    }
    QByteArray tBlock(256 * 1024, Qt::Uninitialized);
    for (qint64 tLeft = mTree.at(pEntry).mSize; tLeft > 0;) {
        if (Failure tFailure = aborted()) {
            return tFailure;
        }
        const ssize_t tGot = mFileSystem.read(pOldFd, tBlock.data(),
                                              static_cast<size_t>(std::min<qint64>(tLeft, tBlock.size())));
        if (tGot <= 0) {
            tFile.discard();
            return {};
        }
        if (Failure tFailure = tFile.write(QByteArrayView(tBlock).first(tGot))) {
            return tFailure;
        }
        tLeft -= tGot;
    }
    bool tIsRight = false;
    return completeFile(pEntry, &tFile, &tIsRight);
}

Failure TreeBuilder::takeFrames(const QString& pFile, const FrameRun& pRun)
{
    if (Failure tFailure = checkFrames(mFileSystem, pFile, mTree.frames(), pRun)) {
        return tFailure;
    }
    const qint64 tBegin = mTree.frames().unpacked(pRun.mFirst).mFirst;
    const qint64 tEnd = mTree.frames().unpacked(pRun.mFirst + pRun.mCount - 1).end();
    FrameStream tStream(mFileSystem, mTree.frames(), pRun);
    if (Failure tFailure = tStream.open(pFile)) {
        return tFailure;
    }
    for (size_t tEntry = 0; tEntry < mTree.count(); ++tEntry) {
        const Tree::Node& tNode = mTree.at(tEntry);
        if (mIsThere[tEntry] || tNode.mAt < tBegin || tNode.mAt + tNode.mSize > tEnd) {
            continue;
        }
        if (Failure tFailure = tStream.skipTo(tNode.mAt)) {
            return tFailure;
        }
        NewFile tFile(mFileSystem, label(tEntry));
        if (Failure tFailure = createFile(tEntry, &tFile)) {
            return tFailure;
        }
        for (qint64 tLeft = tNode.mSize; tLeft > 0;) {
            QByteArrayView tBytes;
            Failure tFailure = aborted();
            if (!tFailure) {
                tFailure = tStream.read(tLeft, &tBytes);
            }
            if (!tFailure) {
                tFailure = tFile.write(tBytes);
            }
            if (tFailure) {
                tFile.discard();
                return tFailure;
            }
            tLeft -= tBytes.size();
            mProgress(tBytes.size());
        }
        bool tIsRight = false;
        if (Failure tFailure = completeFile(tEntry, &tFile, &tIsRight)) {
            return tFailure;
        }
    }
    return {};
}

qint64 TreeBuilder::missingBytes() const
{
    qint64 tBytes = 0;
    for (size_t tEntry = 0; tEntry < mTree.count(); ++tEntry) {
        tBytes += mIsThere[tEntry] ? 0 : mTree.at(tEntry).mSize;
    }
    return tBytes;
}

FrameRuns TreeBuilder::missingFrames() const
{
    std::vector<size_t> tMissing;
    for (size_t tEntry = 0; tEntry < mTree.count(); ++tEntry) {
        if (!mIsThere[tEntry]) {
            tMissing.push_back(tEntry);
        }
    }
    return framesOf(mTree, tMissing);
}

Failure TreeBuilder::finish()
{
    return mChain.finish() != 0 ? Failure::fromErrno(errno, u"write %1"_s.arg(mFolder)) : Failure();
}

} // namespace tarn::trees
