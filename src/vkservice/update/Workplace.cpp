#include "update/Workplace.h"

#include "os/FileTools.h"

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>

namespace tarn::vkservice::update {

namespace {

using vkcore::InstallLogStore;

constexpr mode_t sPublicDir = 0755;
constexpr mode_t sStateDir = 0755; // the install log in it is for everybody

bool openLog(InstallLogStore* pLog, const QString& pPath, QString* pReason)
{
    if (pLog->openForWriting(pPath)) {
        return true;
    }
    *pReason = pLog->errorText();
    if (!pLog->isDamaged()) {
        return false;
    }
    // What can still be saved of it is for people to find out; new entries must not be lost meanwhile.
    const QString tAside = pPath + QStringLiteral(".damaged-") +
                           QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmss"));
    *pReason += QStringLiteral("; it was set aside as %1").arg(tAside);
    return QFile::rename(pPath, tAside) && pLog->openForWriting(pPath);
}

} // namespace

Workplace::Workplace(os::FileSystem& pFileSystem, const RunRequest& pRequest)
    : mFileSystem(pFileSystem), mRequest(pRequest), mFolders(pRequest.mInstallDir, pRequest.mDataDir),
      mGenerations(pFileSystem, mFolders)
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

QString Workplace::updateInstallLog()
{
    return mInstalled.mGeneration == 0 ? QString() : logRun(mInstalled);
}

QString Workplace::logRun(const packages::Manifest& pRun)
{
    const QString tPath = mRequest.mStateDir + QLatin1Char('/') + InstallLogStore::fileName();
    InstallLogStore tLog;
    QString tReason;
    if (openLog(&tLog, tPath, &tReason) && !tLog.append(pRun.mRunId, pRun.mRunDate, pRun.mRecords)) {
        tReason = tLog.errorText();
    }
    return tReason.isEmpty() ? QString()
                             : QStringLiteral("The install log %1 can't be written: %2").arg(tPath, tReason);
}

} // namespace tarn::vkservice::update
