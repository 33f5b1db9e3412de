#include "trees/TreeBuilder.h"

#include "os/AbortFlag.h"
#include "os/FileTools.h"
#include "trees/FrameStream.h"
#include "trees/ReadAhead.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>

using namespace Qt::StringLiterals;

namespace tarn::trees {

TreeBuilder::TreeBuilder(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const Tree& pTree,
                         const QString& pFolder, const std::function<void(qint64)>& pProgress)
    : mFileSystem(pFileSystem), mAbort(pAbort), mTree(pTree), mFolder(pFolder),
      mProgress(pProgress ? pProgress : [](qint64) {}), mChain(pFileSystem), mOldFiles(pFileSystem),
      mIsThere(pTree.count(), true)
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
    return completeFile(pEntry, tFile.finish(tNode));
}

Failure TreeBuilder::createFile(size_t pEntry, NewFile* pTo)
{
    QByteArray tName;
    const int tDirFd = enterFolderOf(pEntry, &tName);
    return tDirFd < 0 ? Failure::fromErrno(errno, u"write %1"_s.arg(label(pEntry)))
                      : pTo->create(tDirFd, tName);
}

Failure TreeBuilder::completeFile(size_t pEntry, const Result<bool>& pIsRight)
{
    if (pIsRight && *pIsRight) {
        nowThere(pEntry);
    }
    return pIsRight.failure();
}

// Where files are cloned or copied, what is new is hashed; where they are linked, the old ones are.
Failure TreeBuilder::reuse(const InstalledFiles& pInstalled)
{
    std::vector<size_t> tEntries;
    for (size_t tEntry = 0; tEntry < mTree.count(); ++tEntry) {
        if (!mIsThere[tEntry]) {
            tEntries.push_back(tEntry);
        }
    }
    Failure tFailure;
    auto tNext = tEntries.begin();
    for (; !tFailure && tNext != tEntries.end() && mCanClone; ++tNext) {
        tFailure = makeFromAny(*tNext, pInstalled);
    }
    if (!tFailure && tNext != tEntries.end()) {
        ReadAhead tAhead(mFileSystem, mAbort, mTree, pInstalled, {tNext, tEntries.end()});
        for (; !tFailure && tNext != tEntries.end() && mCanLink; ++tNext) {
            tFailure = makeFrom(*tNext, tAhead.take());
            if (!tFailure && !mIsThere[*tNext]) {
                tFailure = makeFromAny(*tNext, pInstalled, 1);
            }
        }
    }
    for (; !tFailure && tNext != tEntries.end(); ++tNext) {
        tFailure = makeFromAny(*tNext, pInstalled);
    }
    return tFailure;
}

// From the places where its content should be, but for the first ones.
Failure TreeBuilder::makeFromAny(size_t pEntry, const InstalledFiles& pInstalled, size_t pFirst)
{
    const std::vector<InstalledFiles::Place> tPlaces = pInstalled.find(mTree.at(pEntry));
    for (size_t tPlace = pFirst; tPlace < tPlaces.size() && !mIsThere[pEntry]; ++tPlace) {
        const InstalledFiles::Place& tFrom = tPlaces[tPlace];
        if (Failure tFailure = makeFrom(pEntry, mOldFiles.open(tFrom.mPackage->mFolder, tFrom.path()))) {
            return tFailure;
        }
    }
    return {};
}

// A content that several files have is in a delta once, and is fetched once.
Failure TreeBuilder::makeTwins()
{
    std::multimap<Tree::Digest, size_t> tMissing;
    for (size_t tEntry = 0; tEntry < mTree.count(); ++tEntry) {
        if (!mIsThere[tEntry]) {
            tMissing.emplace(mTree.at(tEntry).mHash, tEntry);
        }
    }
    for (size_t tEntry = 0; tEntry < mTree.count() && !tMissing.empty(); ++tEntry) {
        const Tree::Node& tNode = mTree.at(tEntry);
        if (!mIsThere[tEntry] || tNode.mKind != EntryKind::File) {
            continue;
        }
        const auto [tFirst, tEnd] = tMissing.equal_range(tNode.mHash);
        for (auto tTwin = tFirst; tTwin != tEnd; tTwin = tMissing.erase(tTwin)) {
            if (Failure tFailure = makeFrom(tTwin->second, mOldFiles.open(mFolder, mTree.path(tNode)))) {
                return tFailure;
            }
        }
    }
    return {};
}

// An old file that cannot be read, or is not what its index says, leaves the new one missing.
Failure TreeBuilder::makeFrom(size_t pEntry, const OldFile& pOld)
{
    if (Failure tFailure = aborted()) {
        return tFailure;
    }
    if (!pOld.mFile.isOpen() || pOld.mStat.st_size != mTree.at(pEntry).mSize) {
        return {};
    }
    bool tIsDecided = false;
    Failure tFailure = mCanClone ? cloneFile(pEntry, pOld.mFile.fd(), &tIsDecided) : Failure();
    if (!tFailure && !tIsDecided && mCanLink) {
        tFailure = linkFile(pEntry, pOld, &tIsDecided);
    }
    if (!tFailure && !tIsDecided) {
        tFailure = copyFile(pEntry, pOld.mFile.fd());
    }
    if (mIsThere[pEntry]) {
        mProgress(pOld.mStat.st_size);
    }
    return tFailure;
}

// The clone is hashed, not the original: nobody can change it between the two. *pIsDecided stays false where
// the file system does not do it; if it can do it for other files is not known if these are on another one.
Failure TreeBuilder::cloneFile(size_t pEntry, int pOldFd, bool* pIsDecided)
{
    NewFile tFile(mFileSystem, label(pEntry));
    if (Failure tFailure = createFile(pEntry, &tFile)) {
        return tFailure;
    }
    if (mFileSystem.cloneFile(tFile.fd(), pOldFd) != 0) {
        mCanClone = errno == EXDEV;
        return tFile.discard();
    }
    *pIsDecided = true;
    const std::optional<tuf::Hash> tHash = hashOf(mFileSystem, tFile.fd(), mAbort);
    if (!tHash) {
        Failure tFailure = tFile.discard();
        return tFailure ? tFailure : aborted();
    }
    return completeFile(pEntry, tFile.finish(*tHash, mTree.at(pEntry)));
}

Failure TreeBuilder::linkFile(size_t pEntry, const OldFile& pOld, bool* pIsDecided)
{
    const Tree::Node& tNode = mTree.at(pEntry);
    if (!canBeLinked(pOld.mStat, tNode)) {
        return {};
    }
    const std::optional<tuf::Hash> tHash =
        pOld.mHash ? pOld.mHash : hashOf(mFileSystem, pOld.mFile.fd(), mAbort);
    if (!tHash || digestOf(*tHash) != tNode.mHash) {
        *pIsDecided = true;
        return aborted();
    }
    QByteArray tName;
    const int tDirFd = enterFolderOf(pEntry, &tName);
    if (tDirFd < 0) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(label(pEntry)));
    }
    if (mFileSystem.linkAt(pOld.mFile.fd(), tDirFd, tName) != 0) {
        mCanLink = errno == EXDEV || errno == EMLINK; // that is about this file
        return {};
    }
    *pIsDecided = true;
    nowThere(pEntry);
    return {};
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
        if (tGot < 0 && errno == EINTR) {
            continue;
        }
        if (tGot <= 0) {
            return tFile.discard();
        }
        if (Failure tFailure = tFile.write(QByteArrayView(tBlock).first(tGot))) {
            return tFailure;
        }
        tLeft -= tGot;
    }
    return completeFile(pEntry, tFile.finish(mTree.at(pEntry)));
}

Failure TreeBuilder::takeFrames(const QString& pFile, const FrameRun& pRun)
{
    if (Failure tFailure = checkFrames(mFileSystem, pFile, mTree.frames(), pRun, mAbort)) {
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
                Failure tOther = tFile.discard();
                return tOther ? tOther : tFailure;
            }
            tLeft -= tBytes.size();
            mProgress(tBytes.size());
        }
        if (Failure tFailure = completeFile(tEntry, tFile.finish(tNode))) {
            return tFailure;
        }
    }
    return makeTwins();
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
