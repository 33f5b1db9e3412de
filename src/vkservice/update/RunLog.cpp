#include "update/RunLog.h"

#include "os/FileTools.h"
#include "packages/Manifest.h"
#include "sqlite/InstallLogStore.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using packages::Manifest;
using vkcore::InstallLogStore;

constexpr int sWaitMs = 1000;
constexpr qsizetype sMaxIdleRuns = 1000;
constexpr qint64 sMaxFileSize = 64 * 1024 * 1024;
constexpr mode_t sFolderMode = 0755;
constexpr mode_t sFileMode = 0644;

// In the order of the runs, and the same for the same run.
QString fileName(const Manifest& pRun)
{
    const qint64 tDate = pRun.mRunDate.isValid() ? pRun.mRunDate.toMSecsSinceEpoch() : 0;
    const QByteArray tHash = QCryptographicHash::hash(pRun.mRunId.toUtf8(), QCryptographicHash::Sha256);
    return u"%1-%2.json"_s.arg(std::max<qint64>(tDate, 0), 15, 10, '0'_L1)
        .arg(QString::fromLatin1(tHash.first(8).toHex()));
}

} // namespace

RunLog::RunLog(os::FileSystem& pFileSystem, const QString& pStateDir)
    : mFileSystem(pFileSystem), mStateDir(pStateDir),
      mLogPath(pStateDir + u'/' + InstallLogStore::fileName()),
      mFolder(pStateDir + u"/install-log.waiting"_s), mWaitMs(sWaitMs)
{
}

Failure RunLog::enter(const Manifest& pRun, Kind pKind, QString* pWarning)
{
    mWarnings.clear();
    Failure tFailure;
    if (!enterAll(pRun)) {
        mWaitMs = 0;
        tFailure = keep(pRun, pKind);
        const QString tWhat = u"The install log %1 can't be written: %2."_s.arg(mLogPath, mReason);
        if (tFailure) {
            tFailure.mText = tWhat + u" The run can't be kept for later either: "_s + tFailure.mText;
        } else {
            mWarnings.append(tWhat + u" The entries wait in %1 until it can."_s.arg(mFolder));
        }
    }
    *pWarning = mWarnings.join(u' ');
    return tFailure;
}

bool RunLog::enterAll(const Manifest& pRun)
{
    InstallLogStore tLog;
    if (tryToEnterAll(&tLog, pRun)) {
        return true;
    }
    if (!tLog.isDamaged()) {
        return false;
    }
    // Users can recover what is left of it; new entries must not be lost meanwhile.
    const QString tAside = tLog.setAside();
    if (tAside.isNull()) {
        mReason = tLog.errorText();
        return false;
    }
    mWarnings.append(
        u"The install log was damaged. It was renamed to %1, and an empty one was started."_s.arg(tAside));
    return tryToEnterAll(&tLog, pRun);
}

bool RunLog::tryToEnterAll(InstallLogStore* pLog, const Manifest& pRun)
{
    pLog->waitInAll(mWaitMs);
    if (!pLog->openForWriting(mLogPath)) {
        mReason = pLog->errorText();
        return false;
    }
    const QStringList tWaiting = waiting();
    const bool tOk = std::all_of(tWaiting.begin(), tWaiting.end(),
                                 [&](const QString& pPath) { return enterWaiting(pLog, pPath); });
    return tOk && append(pLog, pRun);
}

bool RunLog::append(InstallLogStore* pLog, const Manifest& pRun)
{
    const bool tOk = pLog->append(pRun.mRunId, pRun.mRunDate, pRun.mRecords);
    if (!tOk) {
        mReason = pLog->errorText();
    }
    return tOk;
}

bool RunLog::enterWaiting(InstallLogStore* pLog, const QString& pPath)
{
    const Result<QByteArray> tBytes = os::readFile(mFileSystem, pPath, sMaxFileSize);
    if (!tBytes) {
        mReason = tBytes.failure().mText;
        return false;
    }
    const Result<Manifest> tRun = Manifest::fromBytes(*tBytes);
    if (!tRun) {
        const QString tAside = mStateDir + u'/' + QFileInfo(pPath).fileName() + u".damaged"_s;
        mWarnings.append(u"A run that waits for the install log is damaged and was renamed to %1: %2."_s.arg(
            tAside, tRun.failure().mText));
        mReason = u"%1 can't be moved away"_s.arg(pPath);
        return mFileSystem.rename(QFile::encodeName(pPath), QFile::encodeName(tAside)) == 0;
    }
    if (!append(pLog, *tRun)) {
        return false;
    }
    // A file that remains is already in the log; a later run will detect that.
    mFileSystem.unlink(QFile::encodeName(pPath));
    return true;
}

Failure RunLog::keep(const Manifest& pRun, Kind pKind)
{
    const QString tPath = mFolder + u'/' + fileName(pRun);
    if (QFileInfo::exists(tPath)) {
        return {};
    }
    if (pKind == Kind::ChangedNothing && waiting().size() >= sMaxIdleRuns) {
        return {Failure::Kind::Io, u"%1 runs are already waiting"_s.arg(sMaxIdleRuns)};
    }
    if (const Failure tFailure = os::makePath(mFileSystem, mFolder, sFolderMode)) {
        return tFailure;
    }
    Manifest tKept = pRun;
    tKept.mPackages.clear();
    return os::replaceFile(mFileSystem, tPath, tKept.toBytes(), sFileMode).as(Failure::Kind::Io);
}

QStringList RunLog::waiting() const
{
    QStringList tPaths;
    const QStringList tNames = QDir(mFolder).entryList({u"*.json"_s}, QDir::Files, QDir::Name);
    for (const QString& tName : tNames) {
        tPaths.append(mFolder + u'/' + tName);
    }
    return tPaths;
}

} // namespace tarn::vkservice::update
