#include "packages/FolderChain.h"

#include <QtCore/QFile>

#include <fcntl.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr mode_t sFolderMode = 0755;
constexpr int sOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

} // namespace

Failure FolderChain::start(const QString& pRoot)
{
    const QByteArray tRoot = QFile::encodeName(pRoot);
    if (mFileSystem.makeDir(tRoot, sFolderMode) != 0) {
        return Failure::fromErrno(errno, u"make the folder %1"_s.arg(pRoot));
    }
    mFolders.emplace_back(mFileSystem, mFileSystem.open(tRoot, sOpenFlags));
    if (!mFolders.back().isOpen() || mFileSystem.changeMode(mFolders.back().fd(), sFolderMode) != 0) {
        return Failure::fromErrno(errno, u"open the folder %1"_s.arg(pRoot));
    }
    return {};
}

int FolderChain::openFolder(int pParentFd, const QByteArray& pName)
{
    const bool tMade = mFileSystem.makeDirAt(pParentFd, pName, sFolderMode) == 0;
    if (!tMade && errno != EEXIST) {
        return -1;
    }
    os::Descriptor tFolder(mFileSystem, mFileSystem.openAt(pParentFd, pName, sOpenFlags));
    if (!tFolder.isOpen() || (tMade && mFileSystem.changeMode(tFolder.fd(), sFolderMode) != 0)) {
        return -1;
    }
    mNames.append(pName);
    mFolders.push_back(std::move(tFolder));
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

} // namespace tarn::packages
