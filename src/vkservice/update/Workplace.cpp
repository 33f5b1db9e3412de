#include "update/Workplace.h"

#include "os/FileTools.h"

#include <QtCore/QDir>

namespace tarn::vkservice::update {

namespace {

constexpr mode_t sPublicDir = 0755;
constexpr mode_t sStateDir = 0755; // the install log in it is for everybody

} // namespace

Workplace::Workplace(os::FileSystem& pFileSystem, const RunRequest& pRequest)
    : mFileSystem(pFileSystem), mRequest(pRequest), mFolders(pRequest.mInstallDir, pRequest.mDataDir),
      mGenerations(pFileSystem, mFolders), mRunLog(pFileSystem, pRequest.mStateDir)
{
}

Trouble Workplace::open()
{
    if (!QDir::isAbsolutePath(mRequest.mInstallDir) || !QDir::isAbsolutePath(mRequest.mStateDir) ||
        (!mRequest.mDataDir.isEmpty() && !QDir::isAbsolutePath(mRequest.mDataDir))) {
        return {Trouble::Kind::Failed,
                QStringLiteral("The folders for packages, data and state must be set as absolute paths")};
    }
    os::Failure tFailure = os::makePath(mFileSystem, mRequest.mStateDir, sStateDir);
    const QStringList tRoots = mFolders.roots();
    for (const QString& tRoot : tRoots) {
        tFailure = tFailure ? tFailure : os::makePath(mFileSystem, tRoot, sPublicDir);
    }
    if (!tFailure) {
        tFailure = mLock.take(mFileSystem, mFolders.installDir());
    }
    if (tFailure) {
        return Trouble::from(tFailure);
    }
    tFailure = mGenerations.readCurrent(&mInstalled);
    if (tFailure.mKind == os::Failure::Kind::Content) {
        return {Trouble::Kind::Damaged, tFailure.mText};
    }
    return Trouble::from(tFailure);
}

QString Workplace::tidyUp()
{
    return mGenerations.removeLeftovers().mText;
}

os::Failure Workplace::updateInstallLog(QString* pWarning)
{
    pWarning->clear();
    return mInstalled.mGeneration == 0 ? os::Failure()
                                       : mRunLog.enter(mInstalled, RunLog::Kind::Installed, pWarning);
}

os::Failure Workplace::logRun(const packages::Manifest& pRun, QString* pWarning)
{
    return mRunLog.enter(pRun, RunLog::Kind::ChangedNothing, pWarning);
}

} // namespace tarn::vkservice::update
