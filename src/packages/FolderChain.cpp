#include "packages/FolderChain.h"

#include "packages/PackageModes.h"

#include <QtCore/QFile>

#include <fcntl.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr int sOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

} // namespace

Failure FolderChain::start(const QString& pRoot)
{
    const QByteArray tRoot = QFile::encodeName(pRoot);
    if (mFileSystem.makeDir(tRoot, sNewFolderMode) != 0) {
        return Failure::fromErrno(errno, u"make the folder %1"_s.arg(pRoot));
    }
    mFolders.emplace_back(mFileSystem, mFileSystem.open(tRoot, sOpenFlags));
    if (!mFolders.back().isOpen() || mFileSystem.changeMode(mFolders.back().fd(), sNewFolderMode) != 0) {
        return Failure::fromErrno(errno, u"open the folder %1"_s.arg(pRoot));
    }
    return {};
}

int FolderChain::openFolder(int pParentFd, const QByteArray& pName)
{
    const bool tMade = mFileSystem.makeDirAt(pParentFd, pName, sNewFolderMode) == 0;
    if (!tMade && errno != EEXIST) {
        return -1;
    }
    os::Descriptor tFolder(mFileSystem, mFileSystem.openAt(pParentFd, pName, sOpenFlags));
    if (!tFolder.isOpen() || (tMade && mFileSystem.changeMode(tFolder.fd(), sNewFolderMode) != 0)) {
        return -1;
    }
    mNames.append(pName);
    mFolders.push_back(std::move(tFolder));
    if (tMade) {
        mMade.append(mNames);
    }
    return mFolders.back().fd();
}

int FolderChain::enter(const QByteArrayList& pNames)
{
    qsizetype tCommon = 0;
    while (tCommon < mNames.size() && tCommon < pNames.size() && mNames.at(tCommon) == pNames.at(tCommon)) {
        ++tCommon;
    }
    mNames.resize(tCommon);
    mFolders.erase(mFolders.begin() + tCommon + 1, mFolders.end());
    for (qsizetype tIndex = tCommon; tIndex < pNames.size(); ++tIndex) {
        if (openFolder(mFolders.back().fd(), pNames.at(tIndex)) < 0) {
            return -1;
        }
    }
    return mFolders.back().fd();
}

int FolderChain::finish()
{
    for (const QByteArrayList& tNames : std::as_const(mMade)) {
        const int tFd = enter(tNames);
        if (tFd < 0 || mFileSystem.changeMode(tFd, sFolderMode) != 0) {
            return -1;
        }
    }
    return 0;
}

} // namespace tarn::packages
