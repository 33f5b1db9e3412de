#include "packages/Generations.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "packages/Leftovers.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace tarn::vkservice::packages {

namespace {

using os::Failure;

constexpr mode_t sDirMode = 0755;
constexpr mode_t sManifestMode = 0644;
constexpr qint64 sMaxManifestSize = 64 * 1024 * 1024;

QString newLink(const PackageFolders& pFolders)
{
    return pFolders.installDir() + QStringLiteral("/.current.new");
}

// What a generation's link to a package folder says: relative inside the install folder, so that the whole of
// it can be moved.
QString linkText(const QString& pFolder)
{
    return QDir::isAbsolutePath(pFolder) ? pFolder : QStringLiteral("../../") + pFolder;
}

} // namespace

Generations::Generations(os::FileSystem& pFileSystem, const PackageFolders& pFolders)
    : mFileSystem(pFileSystem), mFolders(pFolders)
{
}

Failure Generations::readManifest(qint64 pNumber, Manifest* pTo)
{
    const QString tPath = mFolders.generationDir(pNumber) + QLatin1Char('/') + manifestFileName();
    QByteArray tBytes;
    if (const Failure tFailure = os::readFile(mFileSystem, tPath, sMaxManifestSize, &tBytes)) {
        return tFailure;
    }
    QString tReason;
    if (!Manifest::fromBytes(tBytes, pTo, &tReason) || pTo->mGeneration != pNumber) {
        return Failure::content(QStringLiteral("%1 is damaged: %2").arg(tPath, tReason));
    }
    return {};
}

Failure Generations::readCurrent(Manifest* pTo)
{
    *pTo = Manifest();
    const QString tLink = mFolders.currentLink();
    const QFileInfo tInfo(tLink);
    if (!tInfo.isSymLink()) {
        return tInfo.exists() ? Failure::content(QStringLiteral("%1 is no link").arg(tLink)) : Failure();
    }
    bool tIsNumber = false;
    const qint64 tNumber = QFileInfo(QFile::symLinkTarget(tLink)).fileName().toLongLong(&tIsNumber);
    if (!tIsNumber) {
        return Failure::content(QStringLiteral("%1 does not name a generation").arg(tLink));
    }
    return readManifest(tNumber, pTo);
}

qint64 Generations::nextNumber(const Manifest& pCurrent)
{
    qint64 tHighest = pCurrent.mGeneration;
    const QStringList tNames = QDir(mFolders.generationsDir()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& tName : tNames) {
        tHighest = qMax(tHighest, tName.toLongLong());
    }
    return tHighest + 1;
}

Failure Generations::install(const Manifest& pNext, const QList<StagedPackage>& pStaged)
{
    for (const StagedPackage& tStaged : pStaged) {
        if (const Failure tFailure = moveIntoPlace(tStaged)) {
            return tFailure;
        }
    }
    if (const Failure tFailure = writeGeneration(pNext)) {
        return tFailure;
    }
    // One sync of each file system instead of one of each file: thousands of them cost several times as much.
    if (const Failure tFailure = syncRoots()) {
        return tFailure;
    }
    return switchTo(pNext.mGeneration);
}

Failure Generations::moveIntoPlace(const StagedPackage& pStaged)
{
    const QString tTarget = mFolders.absolute(pStaged.mFolder);
    if (const Failure tFailure = os::makePath(mFileSystem, QFileInfo(tTarget).path(), sDirMode)) {
        return tFailure;
    }
    if (QFileInfo::exists(tTarget)) {
        Manifest tCurrent;
        Manifest tPrevious;
        if (const Failure tFailure = readCurrent(&tCurrent)) {
            return tFailure;
        }
        if (refersTo(tCurrent, pStaged.mFolder) ||
            (!readManifest(tCurrent.mPrevious, &tPrevious) && refersTo(tPrevious, pStaged.mFolder))) {
            return {}; // the same bytes stand here already, and may be in use
        }
        if (const Failure tFailure = os::removeTree(mFileSystem, tTarget)) {
            return tFailure;
        }
    }
    if (mFileSystem.rename(QFile::encodeName(pStaged.mStagingFolder), QFile::encodeName(tTarget)) != 0) {
        return Failure::fromErrno(errno, QStringLiteral("move the new package to %1").arg(tTarget));
    }
    return {};
}

Failure Generations::writeGeneration(const Manifest& pNext)
{
    const QString tDir = mFolders.generationDir(pNext.mGeneration);
    if (const Failure tFailure = os::makePath(mFileSystem, tDir, sDirMode)) {
        return tFailure;
    }
    for (const InstalledPackage& tPackage : pNext.mPackages) {
        const QString tLink = tDir + QLatin1Char('/') + tPackage.mInfo.mName;
        if (mFileSystem.symlink(QFile::encodeName(linkText(tPackage.mFolder)), QFile::encodeName(tLink)) !=
            0) {
            return Failure::fromErrno(errno, QStringLiteral("make the link %1").arg(tLink));
        }
    }
    return os::writeFile(mFileSystem, tDir + QLatin1Char('/') + manifestFileName(), pNext.toBytes(),
                         sManifestMode);
}

Failure Generations::syncRoots()
{
    QList<dev_t> tDone;
    const QStringList tRoots = mFolders.roots();
    for (const QString& tRoot : tRoots) {
        os::Descriptor tDir(mFileSystem, mFileSystem.open(QFile::encodeName(tRoot), O_RDONLY | O_DIRECTORY));
        struct stat tStat;
        if (!tDir.isOpen() || ::fstat(tDir.fd(), &tStat) != 0) {
            return Failure::fromErrno(errno, QStringLiteral("open the folder %1").arg(tRoot));
        }
        if (tDone.contains(tStat.st_dev)) {
            continue;
        }
        tDone.append(tStat.st_dev);
        if (mFileSystem.syncFs(tDir.fd()) != 0) {
            return Failure::fromErrno(errno,
                                      QStringLiteral("write the new packages in %1 to the disk").arg(tRoot));
        }
    }
    return {};
}

Failure Generations::switchTo(qint64 pNumber)
{
    const QByteArray tNew = QFile::encodeName(newLink(mFolders));
    mFileSystem.unlink(tNew);
    if (mFileSystem.symlink("generations/" + QByteArray::number(pNumber), tNew) != 0 ||
        mFileSystem.rename(tNew, QFile::encodeName(mFolders.currentLink())) != 0) {
        return Failure::fromErrno(
            errno, QStringLiteral("switch %1 to the new packages").arg(mFolders.currentLink()));
    }
    // Should this fail, a power cut can bring back the old generation, which is whole and kept; the switch as
    // such has happened and is not to be reported as failed.
    os::syncDir(mFileSystem, mFolders.installDir());
    return {};
}

Failure Generations::removeLeftovers(const std::function<void(int, int)>& pProgress)
{
    Manifest tCurrent;
    if (const Failure tFailure = readCurrent(&tCurrent)) {
        return tFailure;
    }
    QList<Manifest> tKept{tCurrent};
    if (Manifest tPrevious; tCurrent.mPrevious != 0 && !readManifest(tCurrent.mPrevious, &tPrevious)) {
        tKept.append(tPrevious);
    }
    const auto tReadManifest = [this](qint64 pNumber, Manifest* pTo) { return !readManifest(pNumber, pTo); };
    QStringList tPaths = findLeftovers(mFolders, tKept, tReadManifest);
    if (QFileInfo(newLink(mFolders)).isSymLink()) {
        tPaths.append(newLink(mFolders));
    }
    Failure tFirst;
    for (int tIndex = 0; tIndex < tPaths.size(); ++tIndex) {
        if (pProgress) {
            pProgress(tIndex, static_cast<int>(tPaths.size()));
        }
        if (const Failure tFailure = os::removeTree(mFileSystem, tPaths.at(tIndex)); tFailure && !tFirst) {
            tFirst = tFailure;
        }
    }
    return tFirst;
}

} // namespace tarn::vkservice::packages
