#include "packages/Generations.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "packages/PackageModes.h"
#include "packages/Roots.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr mode_t sDirMode = 0755;
constexpr mode_t sManifestMode = 0644;

} // namespace

Generations::Generations(os::FileSystem& pFileSystem, const PackageFolders& pFolders, const Roots& pRoots,
                         int pKept)
    : mFileSystem(pFileSystem), mFolders(pFolders), mReader(pFileSystem, mFolders, pKept),
      mLeftovers(pFileSystem, mFolders, pRoots, mReader)
{
}

Failure Generations::announce(const QList<InstalledPackage>& pPackages, const QSet<QString>& pStaged)
{
    Manifest tIntent;
    Failure tFailure = mReader.intent(&tIntent);
    if (tFailure && tFailure.mKind != Failure::Kind::Content) {
        return tFailure;
    }
    // Leftovers of an earlier run that could not be removed stay recorded.
    for (const InstalledPackage& tPackage : pPackages) {
        tIntent.mPackages.removeIf([&](const auto& pOther) { return pOther.mFolder == tPackage.mFolder; });
    }
    tIntent.mPackages += pPackages;
    tFailure = os::replaceFile(mFileSystem, mFolders.intentFile(), tIntent.toBytes(), sManifestMode);
    for (const InstalledPackage& tPackage : pPackages) {
        if (!tFailure && !pStaged.contains(tPackage.mFolder)) {
            tFailure = mLeftovers.removeStaging(*PackageFolders::place(tPackage.mFolder));
        }
    }
    return tFailure;
}

Failure Generations::setPrepared(const QList<InstalledPackage>& pPackages)
{
    if (pPackages.isEmpty()) {
        return os::removeTree(mFileSystem, mFolders.preparedFile());
    }
    if (const Failure tFailure = syncRoots()) {
        return tFailure;
    }
    Manifest tPrepared;
    tPrepared.mPackages = pPackages;
    return os::replaceFile(mFileSystem, mFolders.preparedFile(), tPrepared.toBytes(), sManifestMode);
}

qint64 Generations::nextNumber(const Manifest& pCurrent)
{
    qint64 tHighest = pCurrent.mGeneration;
    const QList<qint64> tNumbers = mReader.numbers();
    for (const qint64 tNumber : tNumbers) {
        tHighest = qMax(tHighest, tNumber);
    }
    return tHighest + 1;
}

Failure Generations::install(const Manifest& pNext, const QList<StagedPackage>& pStaged)
{
    GenerationReader::Kept tKept;
    Manifest tCurrent;
    if (const Failure tFailure = mReader.kept(&tKept, &tCurrent)) {
        return tFailure;
    }
    for (const StagedPackage& tStaged : pStaged) {
        if (const Failure tFailure = moveIntoPlace(tStaged, tKept)) {
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

Failure Generations::moveIntoPlace(const StagedPackage& pStaged, const GenerationReader::Kept& pKept)
{
    const QString tTarget = mFolders.absolute(pStaged.mFolder);
    if (const Failure tFailure = os::makePath(mFileSystem, QFileInfo(tTarget).path(), sDirMode)) {
        return tFailure;
    }
    if (QFileInfo::exists(tTarget)) {
        if (pKept.has(tTarget)) {
            return {}; // the same package is already here, and may be in use
        }
        if (const Failure tFailure = mLeftovers.removePackage(*PackageFolders::place(pStaged.mFolder))) {
            return tFailure;
        }
        if (const Failure tFailure = os::makePath(mFileSystem, QFileInfo(tTarget).path(), sDirMode)) {
            return tFailure;
        }
    }
    if (mFileSystem.rename(QFile::encodeName(pStaged.mStagingFolder), QFile::encodeName(tTarget)) != 0) {
        return Failure::fromErrno(errno, u"move the new package to %1"_s.arg(tTarget));
    }
    // Only now: a read-only folder can't be moved to another one.
    const os::Descriptor tFolder(
        mFileSystem, mFileSystem.open(QFile::encodeName(tTarget), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    return tFolder.isOpen() && mFileSystem.changeMode(tFolder.fd(), sFolderMode) == 0
               ? Failure()
               : Failure::fromErrno(errno, u"make %1 read-only"_s.arg(tTarget));
}

Failure Generations::writeGeneration(const Manifest& pNext)
{
    const QString tDir = mFolders.generationDir(pNext.mGeneration);
    if (const Failure tFailure = os::makePath(mFileSystem, tDir, sDirMode)) {
        return tFailure;
    }
    for (const InstalledPackage& tPackage : pNext.mPackages) {
        const QString tLink = tDir + u'/' + tPackage.mInfo.mName;
        if (mFileSystem.symlink(QFile::encodeName(linkToFolder(tPackage.mFolder)),
                                QFile::encodeName(tLink)) != 0) {
            return Failure::fromErrno(errno, u"make the link %1"_s.arg(tLink));
        }
    }
    return os::writeFile(mFileSystem, tDir + u'/' + manifestFileName(), pNext.toBytes(), sManifestMode);
}

Failure Generations::syncRoots()
{
    QList<dev_t> tDone;
    const QStringList tRoots = mFolders.roots();
    for (const QString& tRoot : tRoots) {
        os::Descriptor tDir(mFileSystem, mFileSystem.open(QFile::encodeName(tRoot), O_RDONLY | O_DIRECTORY));
        struct stat tStat;
        if (!tDir.isOpen() || ::fstat(tDir.fd(), &tStat) != 0) {
            return Failure::fromErrno(errno, u"open the folder %1"_s.arg(tRoot));
        }
        if (tDone.contains(tStat.st_dev)) {
            continue;
        }
        tDone.append(tStat.st_dev);
        if (mFileSystem.syncFs(tDir.fd()) != 0) {
            return Failure::fromErrno(errno, u"write the new packages in %1 to the disk"_s.arg(tRoot));
        }
    }
    return {};
}

Failure Generations::switchTo(qint64 pNumber)
{
    const QByteArray tNew = QFile::encodeName(mFolders.newLink());
    mFileSystem.unlink(tNew);
    if (mFileSystem.symlink("generations/" + QByteArray::number(pNumber), tNew) != 0 ||
        mFileSystem.rename(tNew, QFile::encodeName(mFolders.currentLink())) != 0) {
        return Failure::fromErrno(errno, u"switch %1 to the new packages"_s.arg(mFolders.currentLink()));
    }
    // If this fails, a power failure can bring back the old generation, which is complete and kept. The
    // switch itself has succeeded and must not be reported as failed.
    (void)os::syncDir(mFileSystem, mFolders.installDir());
    return {};
}

Failure Generations::switchBack(qint64 pNumber)
{
    if (pNumber == 0) {
        return os::removeTree(mFileSystem, mFolders.currentLink());
    }
    Manifest tManifest;
    const Failure tFailure = mReader.manifest(pNumber, &tManifest);
    return tFailure ? tFailure : switchTo(pNumber);
}

void Generations::retireAbove(qint64 pNumber)
{
    const QList<qint64> tNumbers = mReader.numbers();
    for (const qint64 tNumber : tNumbers) {
        if (tNumber > pNumber) {
            mFileSystem.unlink(
                QFile::encodeName(mFolders.generationDir(tNumber) + u'/' + manifestFileName()));
        }
    }
}

Failure Generations::removeLeftovers(const std::function<void(int, int)>& pProgress, const PutOff& pPutOff)
{
    return mLeftovers.remove(pProgress, pPutOff);
}

} // namespace tarn::packages
