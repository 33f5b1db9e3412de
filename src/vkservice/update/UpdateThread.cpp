#include "update/UpdateThread.h"

#include "os/AbortFlag.h"
#include "os/FreeProcessList.h"
#include "os/FreeThread.h"
#include "update/Reporter.h"
#include "update/Run.h"
#include "update/Trial.h"
#include "update/Workplace.h"

#include <QtCore/QMetaObject>

#include <thread>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

class UpdateThread::Private
{
public:
    Private(UpdateThread* pOwner, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
            os::CheckRunner& pChecks)
        : mOwner(pOwner), mFileSystem(pFileSystem), mProcesses(pProcesses), mChecks(pChecks)
    {
    }

    void work()
    {
        os::FreeProcessList tProcesses(mProcesses, *mFreeThread);
        os::FreeCheckRunner tChecks(mChecks, *mFreeThread);
        Run tRun(mRequest, mFileSystem, tProcesses, *mReporter, mAbort, tChecks);
        RunResult tResult = tRun.run();
        tResult.mPendingFixes = tRun.pendingFixes();
        tResult.mTraffic = tRun.traffic();
        tResult.mUnusableServers = tRun.unusableServers();
        tResult.mRefused = tRun.refused();
        QMetaObject::invokeMethod(
            mOwner, [this, tResult] { end(tResult); }, Qt::QueuedConnection);
    }

    void end(const RunResult& pResult)
    {
        mThread.join();
        mFreeThread.reset();
        mReporter.reset();
        Q_EMIT mOwner->finished(pResult);
    }

    // Emits signals on the owner's thread, in the order of the events.
    std::unique_ptr<Reporter> makeReporter()
    {
        const auto tPost = [this](auto pCall) {
            QMetaObject::invokeMethod(mOwner, std::move(pCall), Qt::QueuedConnection);
        };
        return std::make_unique<Reporter>(
            [this, tPost](vkcore::ServiceActivity pActivity) {
                tPost([this, pActivity] { Q_EMIT mOwner->activityChanged(pActivity); });
            },
            [this, tPost](int pType, const QString& pText, const QString& pDetails) {
                tPost(
                    [this, pType, pText, pDetails] { Q_EMIT mOwner->notification(pType, pText, pDetails); });
            },
            [this, tPost](int pType, const QString& pText, const QString& pDetails) {
                tPost([this, pType, pText, pDetails] { Q_EMIT mOwner->error(pType, pText, pDetails); });
            },
            [this, tPost](const QString& pLine) { tPost([this, pLine] { Q_EMIT mOwner->logged(pLine); }); });
    }

    UpdateThread* mOwner;
    os::FileSystem& mFileSystem;
    os::ProcessList& mProcesses;
    os::CheckRunner& mChecks;
    RunRequest mRequest;
    os::AbortFlag mAbort;
    std::unique_ptr<Reporter> mReporter;
    std::unique_ptr<os::FreeThread> mFreeThread; // for the run's thread, which confines itself
    bool mIsOnTrial = false;
    Failure mWayBack;
    QList<packages::Refusal> mRefused;
    std::thread mThread;
};

UpdateThread::UpdateThread(os::FileSystem& pFileSystem, os::ProcessList& pProcesses, os::CheckRunner& pChecks,
                           QObject* pParent)
    : QObject(pParent), d(std::make_unique<Private>(this, pFileSystem, pProcesses, pChecks))
{
}

UpdateThread::~UpdateThread()
{
    if (isRunning()) {
        d->mAbort.set();
        d->mThread.join();
    }
}

Failure UpdateThread::recover(const RunRequest& pRequest)
{
    Workplace tWorkplace(d->mFileSystem, d->mProcesses, pRequest);
    if (const Failure tFailure = tWorkplace.open(packages::NewRoots::Leave)) {
        return tFailure.as(Failure::Kind::Damaged);
    }
    const std::unique_ptr<Reporter> tReporter = d->makeReporter();
    Trial tTrial(pRequest, d->mFileSystem, d->mChecks, tWorkplace, *tReporter, d->mAbort);
    const Failure tFailure = tTrial.resume(false);
    d->mIsOnTrial = tTrial.isOpen();
    d->mRefused = tTrial.refused();
    d->mWayBack = tTrial.whyBack();
    QStringList tTexts = tWorkplace.warnings();
    tTexts.append(tFailure.mKind == Failure::Kind::CheckFailed ? QString() : tFailure.mText);
    tTexts.append(tWorkplace.tidyUp());
    QString tLogText;
    if (!d->mIsOnTrial) {
        if (const Failure tUnlogged = tWorkplace.updateInstallLog(&tLogText)) {
            tLogText = tUnlogged.mText;
        }
    }
    tTexts.append(tLogText);
    tTexts.removeAll(QString());
    return tTexts.isEmpty() ? Failure() : Failure{Failure::Kind::Damaged, tTexts.join(u". "_s)};
}

bool UpdateThread::isOnTrial() const
{
    return d->mIsOnTrial;
}

Failure UpdateThread::wayBack() const
{
    return d->mWayBack;
}

QList<packages::Refusal> UpdateThread::refused() const
{
    return d->mRefused;
}

Failure UpdateThread::rollBack(const RunRequest& pRequest, qint64 pGeneration)
{
    if (isRunning()) {
        return {Failure::Kind::Io, u"An update is running"_s};
    }
    d->mRefused.clear();
    Workplace tWorkplace(d->mFileSystem, d->mProcesses, pRequest);
    if (const Failure tFailure = tWorkplace.open(packages::NewRoots::Leave)) {
        return tFailure;
    }
    const std::unique_ptr<Reporter> tReporter = d->makeReporter();
    Trial tTrial(pRequest, d->mFileSystem, d->mChecks, tWorkplace, *tReporter, d->mAbort);
    const Failure tFailure = tTrial.rollBack(pGeneration);
    d->mRefused = tTrial.refused();
    d->mIsOnTrial = d->mIsOnTrial && tFailure;
    return tFailure;
}

bool UpdateThread::start(const RunRequest& pRequest)
{
    if (isRunning()) {
        return false;
    }
    d->mRequest = pRequest;
    d->mIsOnTrial = false;
    d->mAbort.clear();
    d->mReporter = d->makeReporter();
    d->mFreeThread = std::make_unique<os::FreeThread>();
    d->mThread = std::thread([this] { d->work(); });
    return true;
}

void UpdateThread::abort()
{
    if (isRunning()) {
        d->mAbort.set();
    }
}

bool UpdateThread::isRunning() const
{
    return d->mReporter != nullptr;
}

Progress UpdateThread::progress() const
{
    return isRunning() ? d->mReporter->progress() : Progress();
}

} // namespace tarn::vkservice::update
