#include "verify/VerifyThread.h"

#include "os/AbortFlag.h"
#include "verify/Verification.h"

#include <QtCore/QMetaObject>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>

#include <thread>

namespace tarn::vkservice::verify {

class VerifyThread::Private : public VerificationListener
{
public:
    Private(VerifyThread* pOwner, os::FileSystem& pFileSystem) : mOwner(pOwner), mFileSystem(pFileSystem) {}

    void onPackage(const packages::PackageCheck& pCheck) override
    {
        QMetaObject::invokeMethod(
            mOwner, [this, pCheck] { Q_EMIT mOwner->packageChecked(pCheck); }, Qt::QueuedConnection);
    }
    void onProgress(const VerifyProgress& pProgress) override
    {
        const QMutexLocker tLocker(&mMutex);
        mProgress = pProgress;
    }

    void work()
    {
        const VerifyOutcome tOutcome = Verification(mRequest, mFileSystem, mAbort, *this).run();
        QMetaObject::invokeMethod(
            mOwner, [this, tOutcome] { end(tOutcome); }, Qt::QueuedConnection);
    }
    void end(const VerifyOutcome& pOutcome)
    {
        mThread.join();
        Q_EMIT mOwner->finished(pOutcome);
    }

    VerifyThread* mOwner;
    os::FileSystem& mFileSystem;
    VerifyRequest mRequest;
    os::AbortFlag mAbort;
    mutable QMutex mMutex; // guards mProgress
    VerifyProgress mProgress;
    std::thread mThread;
};

VerifyThread::VerifyThread(os::FileSystem& pFileSystem, QObject* pParent)
    : QObject(pParent), d(std::make_unique<Private>(this, pFileSystem))
{
}

VerifyThread::~VerifyThread()
{
    if (isRunning()) {
        d->mAbort.set();
        d->mThread.join();
    }
}

bool VerifyThread::start(const VerifyRequest& pRequest)
{
    if (isRunning()) {
        return false;
    }
    d->mRequest = pRequest;
    d->mAbort.clear();
    d->onProgress({});
    d->mThread = std::thread([this] { d->work(); });
    return true;
}

void VerifyThread::abort()
{
    if (isRunning()) {
        d->mAbort.set();
    }
}

bool VerifyThread::isRunning() const
{
    return d->mThread.joinable();
}

VerifyProgress VerifyThread::progress() const
{
    const QMutexLocker tLocker(&d->mMutex);
    return d->mProgress;
}

} // namespace tarn::vkservice::verify
