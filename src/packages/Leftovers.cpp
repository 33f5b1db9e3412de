#include "packages/Leftovers.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "packages/Roots.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

const char* const sPackages = "packages";
const char* const sStaging = ".staging";
const char* const sGenerations = "generations";

} // namespace

bool Leftovers::note(const Failure& pFailure)
{
    if (pFailure && !mFirst) {
        mFirst = pFailure;
    }
    return !pFailure;
}

Failure Leftovers::find(std::vector<Item>* pTo)
{
    GenerationReader::Kept tKept;
    Manifest tCurrent;
    if (const Failure tFailure = mReader.kept(&tKept, &tCurrent)) {
        return tFailure;
    }
    const auto tUnneeded = [&](const QStringList& pFolders) {
        QList<PackagePlace> tPlaces;
        for (const QString& tFolder : pFolders) {
            if (!tKept.has(mFolders.absolute(tFolder))) {
                tPlaces.append(*PackageFolders::place(tFolder));
            }
        }
        return tPlaces;
    };
    Manifest tIntent;
    note(mReader.intent(&tIntent));
    Manifest tPrepared;
    note(mReader.prepared(&tPrepared));
    const QStringList tPreparedFolders = tPrepared.folders();
    if (!tIntent.mPackages.isEmpty()) {
        Item tItem;
        for (const InstalledPackage& tPackage : std::as_const(tIntent.mPackages)) {
            if (tPreparedFolders.contains(tPackage.mFolder)) {
                tItem.mIsNeeded = true;
            } else {
                tItem.mStagings.append(*PackageFolders::place(tPackage.mFolder));
            }
        }
        tItem.mPackages = tUnneeded(tIntent.folders());
        pTo->push_back(tItem);
    }
    const QList<qint64> tNumbers = mReader.numbers();
    for (const qint64 tNumber : tNumbers) {
        if (!tKept.mNumbers.contains(tNumber)) {
            pTo->push_back({{}, tUnneeded(mReader.folders(tNumber)), tNumber});
        }
    }
    return {};
}

Failure Leftovers::remove(const std::function<void(int, int)>& pProgress, const PutOff& pPutOff)
{
    mFirst = {};
    std::vector<Item> tItems;
    if (const Failure tFailure = find(&tItems)) {
        return tFailure;
    }
    const Result<QStringList> tPutOff = putOff(tItems, pPutOff);
    note(tPutOff.failure());
    for (size_t tIndex = 0; tIndex < tItems.size(); ++tIndex) {
        if (pProgress) {
            pProgress(static_cast<int>(tIndex), static_cast<int>(tItems.size()));
        }
        const Item& tItem = tItems[tIndex];
        if (!removeItem(tItem, tPutOff)) {
            continue;
        }
        note(tItem.mGeneration == 0 ? os::removeTree(mFileSystem, mFolders.intentFile())
                                    : removeGeneration(tItem.mGeneration));
    }
    const int tInstallFd = mRoots.fd(mFolders.installDir());
    const QString tNewLink = mFolders.newLink();
    if (tInstallFd >= 0 && QFileInfo(tNewLink).isSymLink()) {
        note(os::removeTree(mFileSystem, tNewLink));
    }
    return mFirst;
}

Result<QStringList> Leftovers::putOff(const std::vector<Item>& pItems, const PutOff& pPutOff) const
{
    QStringList tFolders;
    for (const Item& tItem : pItems) {
        for (const PackagePlace& tPlace : tItem.mPackages) {
            const QString tFolder = PackageFolders::below(mFolders.rootOf(tPlace), tPlace);
            if (QFileInfo(tFolder).isDir() && !tFolders.contains(tFolder)) {
                tFolders.append(tFolder);
            }
        }
    }
    return pPutOff && !tFolders.isEmpty() ? pPutOff(tFolders) : QStringList();
}

// True if nothing is left that this installation may remove.
bool Leftovers::removeItem(const Item& pItem, const Result<QStringList>& pPutOff)
{
    bool tAllGone = !pItem.mIsNeeded;
    for (const PackagePlace& tPlace : pItem.mStagings) {
        tAllGone = note(removeStaging(tPlace)) && tAllGone;
    }
    for (const PackagePlace& tPlace : pItem.mPackages) {
        const QString tRoot = mFolders.rootOf(tPlace);
        if (mRoots.fd(tRoot) < 0) {
            tAllGone = tAllGone && !mRoots.knows(tRoot);
        } else if (!pPutOff || pPutOff->contains(PackageFolders::below(tRoot, tPlace))) {
            tAllGone = false;
        } else {
            tAllGone = note(removePackage(tPlace)) && tAllGone;
        }
    }
    return tAllGone;
}

Failure Leftovers::removeStaging(const PackagePlace& pPlace)
{
    const QString tRoot = mFolders.rootOf(pPlace);
    const QString tName = pPlace.mName + u'-' + pPlace.mVersion;
    const int tFd = mRoots.fd(tRoot);
    return tFd < 0 ? Failure()
                   : os::removeBelow(mFileSystem, tFd, {sStaging, QFile::encodeName(tName)},
                                     mFolders.stagingDir(tRoot) + u'/' + tName);
}

Failure Leftovers::removePackage(const PackagePlace& pPlace)
{
    const QString tRoot = mFolders.rootOf(pPlace);
    const QByteArray tName = QFile::encodeName(pPlace.mName);
    const int tFd = mRoots.fd(tRoot);
    const Failure tFailure =
        os::removeBelow(mFileSystem, tFd, {sPackages, tName, QFile::encodeName(pPlace.mVersion)},
                        PackageFolders::below(tRoot, pPlace));
    // The package's own folder, if that was the last version and there are no foreign files in it.
    const os::Descriptor tPackages(mFileSystem, os::openBelow(mFileSystem, tFd, {sPackages}));
    if (!tFailure && tPackages.isOpen()) {
        mFileSystem.unlinkAt(tPackages.fd(), tName, AT_REMOVEDIR);
    }
    return tFailure;
}

// Its links and its manifest; the folder itself only if it is empty then.
Failure Leftovers::removeGeneration(qint64 pNumber)
{
    const QString tPath = mFolders.generationDir(pNumber);
    const QByteArray tNumber = QByteArray::number(pNumber);
    const os::Descriptor tAll(mFileSystem,
                              os::openBelow(mFileSystem, mRoots.fd(mFolders.installDir()), {sGenerations}));
    const os::Descriptor tDir(mFileSystem,
                              tAll.isOpen() ? os::openBelow(mFileSystem, tAll.fd(), {tNumber}) : -1);
    bool tDone = tDir.isOpen();
    const QStringList tNames = QDir(tPath).entryList(QDir::AllEntries | QDir::Hidden | QDir::System);
    for (const QString& tName : tNames) {
        const bool tIsManifest = tName == manifestFileName() || tName == manifestFileName() + ".new"_L1;
        if (tDone && (tIsManifest || folderOfLink(tPath + u'/' + tName))) {
            tDone = mFileSystem.unlinkAt(tDir.fd(), QFile::encodeName(tName), 0) == 0 || errno == ENOENT;
        }
    }
    if (tDone && (mFileSystem.unlinkAt(tAll.fd(), tNumber, AT_REMOVEDIR) == 0 || errno == ENOTEMPTY ||
                  errno == EEXIST || errno == ENOENT)) {
        return {};
    }
    return Failure::fromErrno(errno, u"remove %1"_s.arg(tPath));
}

} // namespace tarn::packages
