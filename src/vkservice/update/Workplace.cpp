#include "update/Workplace.h"

#include "os/FileTools.h"
#include "os/ProcessList.h"
#include "update/RunRequest.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using packages::PackageFolders;
using packages::Vouched;

constexpr mode_t sStateDir = 0755; // all users may read the install log in it

} // namespace

Workplace::Workplace(os::FileSystem& pFileSystem, os::ProcessList& pProcesses, const RunRequest& pRequest)
    : mFileSystem(pFileSystem), mProcesses(pProcesses), mRequest(pRequest),
      mFolders(pRequest.mInstallDir, pRequest.mDataDir),
      mRoots(pFileSystem, QDir::cleanPath(pRequest.mStateDir)),
      mGenerations(pFileSystem, mFolders, mRoots, pRequest.mKeepGenerations),
      mRunLog(pFileSystem, pRequest.mStateDir)
{
}

Failure Workplace::open(packages::NewRoots pNew)
{
    if (!QDir::isAbsolutePath(mRequest.mInstallDir) || !QDir::isAbsolutePath(mRequest.mStateDir) ||
        (!mRequest.mDataDir.isEmpty() && !QDir::isAbsolutePath(mRequest.mDataDir))) {
        return {Failure::Kind::Content,
                u"The folders for packages, data and state must be set as absolute paths"_s};
    }
    Failure tFailure = os::makePath(mFileSystem, mRequest.mStateDir, sStateDir);
    tFailure = tFailure ? tFailure : mRoots.open(pNew);
    tFailure = tFailure ? tFailure : claimRoots();
    if (tFailure.mKind == Failure::Kind::Content) {
        return {Failure::Kind::Damaged, tFailure.mText};
    }
    return tFailure;
}

Failure Workplace::claimRoots()
{
    if (const Failure tFailure = claimInstallDir()) {
        return tFailure;
    }
    QString tDamage;
    Failure tFailure = mGenerations.reader().kept(&mKept, &mInstalled, &tDamage);
    const QString tDataDir = mFolders.root(packages::Kind::Data);
    tFailure = tFailure ? tFailure : mRoots.claim(tDataDir, {mRequest.mStateDir, mFolders.installDir()}, [&] {
        return vouchedData(tDataDir);
    });
    if (tFailure) {
        return tFailure;
    }
    mNeedsNewGeneration = !tDamage.isEmpty();
    if (mNeedsNewGeneration) {
        mWarnings.append(tDamage);
    }
    claimEarlierRoots();
    forgetMissingPackages();
    return {};
}

Failure Workplace::claimInstallDir()
{
    return mRoots.claimInstallDir(mFolders.installDir(),
                                  {mRequest.mStateDir, mFolders.root(packages::Kind::Data)},
                                  [this] { return vouchedInstallDir(); });
}

// An installation of a version without markers is adopted once.
Vouched Workplace::vouchedInstallDir()
{
    packages::Manifest tCurrent;
    if (!mRoots.isNewInstallation() || mGenerations.reader().current(&tCurrent) ||
        tCurrent.mGeneration == 0) {
        return Vouched::Nothing;
    }
    const bool tIsThere = tCurrent.mPackages.isEmpty() ||
                          std::any_of(tCurrent.mPackages.cbegin(), tCurrent.mPackages.cend(),
                                      [this](const packages::InstalledPackage& pPackage) {
                                          return QFileInfo(mFolders.absolute(pPackage.mFolder)).isDir();
                                      });
    return tIsThere ? Vouched::Present : Vouched::Nothing;
}

Vouched Workplace::vouchedData(const QString& pRoot) const
{
    Vouched tVouched = Vouched::Nothing;
    for (const QString& tFolder : mKept.mFolders) {
        if (const auto tPlace = PackageFolders::place(tFolder); tPlace && tPlace->mRoot == pRoot) {
            tVouched = QFileInfo(tFolder).isDir() || tVouched == Vouched::Present ? Vouched::Present
                                                                                  : Vouched::Absent;
        }
    }
    return tVouched;
}

// Former data folders may contain packages that are still in use, or that must be removed.
void Workplace::claimEarlierRoots()
{
    QSet<QString> tRoots;
    const QList<qint64> tNumbers = mGenerations.reader().numbers();
    QStringList tFolders(mKept.mFolders.cbegin(), mKept.mFolders.cend());
    for (const qint64 tNumber : tNumbers) {
        if (!mKept.mNumbers.contains(tNumber)) {
            tFolders += mGenerations.reader().folders(tNumber);
        }
    }
    packages::Manifest tIntent;
    (void)mGenerations.reader().intent(&tIntent); // an unreadable one does not name a folder
    tFolders += tIntent.folders();
    for (const QString& tFolder : std::as_const(tFolders)) {
        const auto tPlace = PackageFolders::place(tFolder);
        tRoots.insert(tPlace ? mFolders.rootOf(*tPlace) : QString());
    }
    for (const QString& tRoot : std::as_const(tRoots)) {
        const Vouched tVouched = vouchedData(tRoot);
        if (!mRoots.knows(tRoot) && tVouched != Vouched::Present) {
            continue;
        }
        const Failure tFailure = mRoots.claim(tRoot, {}, [tVouched] { return tVouched; });
        if (tFailure && tVouched != Vouched::Nothing) {
            mWarnings.append(tFailure.mText);
        }
    }
}

// A package without its folder is not installed, even if the manifest lists it. Exception: one on a disk that
// is not mounted.
void Workplace::forgetMissingPackages()
{
    QStringList tMissing;
    mInstalled.mPackages.removeIf([&](const packages::InstalledPackage& pPackage) {
        const QString tPath = mFolders.absolute(pPackage.mFolder);
        const bool tIsMissing = mRoots.fd(mFolders.rootOf(*PackageFolders::place(pPackage.mFolder))) >= 0 &&
                                !QFileInfo::exists(tPath);
        if (tIsMissing) {
            tMissing.append(tPath);
        }
        return tIsMissing;
    });
    if (!tMissing.isEmpty()) {
        mWarnings.append(u"These folders of packages are missing, and the packages do not count as "
                         "installed: %1"_s.arg(tMissing.join(", "_L1)));
    }
}

QStringList Workplace::writableFolders() const
{
    return QStringList{mRequest.mStateDir} + mRoots.paths();
}

QString Workplace::tidyUp()
{
    QStringList tInUse;
    return removeLeftovers(nullptr, &tInUse).mText;
}

Failure Workplace::removeLeftovers(const std::function<void(int, int)>& pProgress, QStringList* pInUse)
{
    return mGenerations.removeLeftovers(pProgress, [this, pInUse](const QStringList& pFolders) {
        const Result<QStringList> tInUse = mProcesses.inUse(pFolders);
        *pInUse = tInUse.valueOr({});
        return tInUse;
    });
}

Failure Workplace::updateInstallLog(QString* pWarning)
{
    pWarning->clear();
    return mInstalled.mGeneration == 0 ? Failure()
                                       : mRunLog.enter(mInstalled, RunLog::Kind::Installed, pWarning);
}

Failure Workplace::logRun(const packages::Manifest& pRun, QString* pWarning)
{
    return mRunLog.enter(pRun, RunLog::Kind::ChangedNothing, pWarning);
}

} // namespace tarn::vkservice::update
