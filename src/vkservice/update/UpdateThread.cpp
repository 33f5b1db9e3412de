#include "update/UpdateThread.h"

#include "os/AbortFlag.h"
#include "os/FreeProcessList.h"
#include "update/Reporter.h"
#include "update/Run.h"
#include "update/Workplace.h"

#include <QtCore/QMetaObject>

#include <thread>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

class UpdateThread::Private
{
public:
    Private(UpdateThread* pOwner, os::FileSystem& pFileSystem, os::ProcessList& pProcesses)
        : mOwner(pOwner), mFileSystem(pFileSystem), mProcesses(pProcesses)
    {
    }

    void work()
    {
        Run tRun(mRequest, mFileSystem, *mFreeProcesses, *mReporter, mAbort);
        RunResult tResult = tRun.run();
        tResult.mTraffic = tRun.traffic();
        tResult.mUnusableServers = tRun.unusableServers();
        QMetaObject::invokeMethod(
            mOwner, [this, tResult] { end(tResult); }, Qt::QueuedConnection);
    }

    void end(const RunResult& pResult)
    {
        mThread.join();
        mFreeProcesses.reset();
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
            });
    }

    UpdateThread* mOwner;
    os::FileSystem& mFileSystem;
    os::ProcessList& mProcesses;
    RunRequest mRequest;
    os::AbortFlag mAbort;
    std::unique_ptr<Reporter> mReporter;
    std::unique_ptr<os::FreeProcessList> mFreeProcesses; // for the run's thread, which confines itself
    std::thread mThread;
};

UpdateThread::UpdateThread(os::FileSystem& pFileSystem, os::ProcessList& pProcesses, QObject* pParent)
    : QObject(pParent), d(std::make_unique<Private>(this, pFileSystem, pProcesses))
{
}

UpdateThread::~UpdateThread()
{
    if (isRunning()) {
        d->mAbort.set();
        d->mThread.join();
    }
}

bool UpdateThread::recover(const RunRequest& pRequest, QString* pError)
{
    Workplace tWorkplace(d->mFileSystem, d->mProcesses, pRequest);
    if (const Failure tFailure = tWorkplace.open(packages::NewRoots::Leave)) {
        *pError = tFailure.mText;
        return false;
    }
    QStringList tTexts = tWorkplace.warnings();
    tTexts.append(tWorkplace.tidyUp());
    QString tLogText;
    if (const Failure tFailure = tWorkplace.updateInstallLog(&tLogText)) {
        tLogText = tFailure.mText;
    }
    tTexts.append(tLogText);
    tTexts.removeAll(QString());
    *pError = tTexts.join(u". "_s);
    return pError->isEmpty();
}

bool UpdateThread::start(const RunRequest& pRequest)
{
    if (isRunning()) {
        return false;
    }
    d->mRequest = pRequest;
    d->mAbort.clear();
    d->mReporter = d->makeReporter();
    d->mFreeProcesses = std::make_unique<os::FreeProcessList>(d->mProcesses);
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
