#include "trees/ReadAhead.h"

#include "packages/PackageModes.h"

#include <algorithm>
#include <thread>

namespace tarn::trees {

namespace {

constexpr unsigned sMostThreads = 4;                      // more would only wait for the disk
constexpr qint64 sWorthAThread = qint64(4) * 1024 * 1024; // bytes

} // namespace

bool canBeLinked(const struct stat& pOld, const Tree::Node& pNew)
{
    return pOld.st_mtime == pNew.mTime && (pOld.st_mode & 07777) == packages::fileMode(pNew.mIsExecutable);
}

ReadAhead::ReadAhead(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const Tree& pTree,
                     const InstalledFiles& pInstalled, std::span<const size_t> pEntries)
    : mFileSystem(pFileSystem), mAbort(pAbort), mTree(pTree), mInstalled(pInstalled), mEntries(pEntries),
      mFiles(pFileSystem)
{
    qint64 tBytes = 0;
    for (const size_t tEntry : pEntries) {
        tBytes += pTree.at(tEntry).mSize;
    }
    const unsigned tCores = std::min(std::thread::hardware_concurrency(), sMostThreads);
    if (tCores > 1 && tBytes >= sWorthAThread) {
        mThreads.emplace(tCores - 1, [this] { work(); });
    }
}

ReadAhead::~ReadAhead()
{
    {
        const std::lock_guard tLock(mMutex);
        mEnds = true;
    }
    mChanged.notify_all();
}

void ReadAhead::work()
{
    OldFiles tFiles(mFileSystem);
    std::unique_lock tLock(mMutex);
    while (!mEnds && mBegun < mEntries.size()) {
        if (!readNext(&tLock, &tFiles)) {
            mChanged.wait(tLock);
        }
    }
}

OldFile ReadAhead::take()
{
    std::unique_lock tLock(mMutex);
    Slot& tSlot = slot(mTaken);
    while (!tSlot.mIsReady) {
        if (!readNext(&tLock, &mFiles)) {
            mChanged.wait(tLock);
        }
    }
    ++mTaken;
    tSlot.mIsReady = false;
    OldFile tFile = std::move(tSlot.mFile);
    mChanged.notify_all();
    return tFile;
}

// False if nothing is left to begin, or too much is waiting to be taken. Unlocks while it reads.
bool ReadAhead::readNext(std::unique_lock<std::mutex>* pLock, OldFiles* pFiles)
{
    if (mBegun == mEntries.size() || mBegun == mTaken + sMostAhead) {
        return false;
    }
    const size_t tNumber = mBegun++;
    pLock->unlock();
    OldFile tFile = read(mEntries[tNumber], pFiles);
    pLock->lock();
    slot(tNumber) = {std::move(tFile), true};
    mChanged.notify_all();
    return true;
}

OldFile ReadAhead::read(size_t pEntry, OldFiles* pFiles) const
{
    const Tree::Node& tNode = mTree.at(pEntry);
    const std::vector<InstalledFiles::Place> tPlaces = mInstalled.find(tNode);
    if (tPlaces.empty()) {
        return {};
    }
    OldFile tFile = pFiles->open(tPlaces.front().mPackage->mFolder, tPlaces.front().path());
    if (tFile.mFile.isOpen() && tFile.mStat.st_size == tNode.mSize && canBeLinked(tFile.mStat, tNode)) {
        tFile.mHash = hashOf(mFileSystem, tFile.mFile.fd(), mAbort);
    }
    return tFile;
}

} // namespace tarn::trees
