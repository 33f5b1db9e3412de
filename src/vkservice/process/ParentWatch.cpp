#include "process/ParentWatch.h"

#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <sys/syscall.h>
#include <unistd.h>

namespace tarn::vkservice::process {

namespace {

constexpr int sPollMs = 1000;

} // namespace

ParentWatch::ParentWatch(QObject* pParent) : QObject(pParent), mParentPid(::getppid())
{
    mFd = static_cast<int>(::syscall(SYS_pidfd_open, mParentPid, 0));
    if (mFd >= 0) {
        mNotifier = std::make_unique<QSocketNotifier>(mFd, QSocketNotifier::Read);
        connect(mNotifier.get(), &QSocketNotifier::activated, this, &ParentWatch::look);
    } else {
        mPoll = std::make_unique<QTimer>();
        connect(mPoll.get(), &QTimer::timeout, this, &ParentWatch::look);
        mPoll->start(sPollMs);
    }
    // The parent may have ended before the descriptor existed.
    QTimer::singleShot(0, this, &ParentWatch::look);
}

ParentWatch::~ParentWatch()
{
    mNotifier.reset();
    if (mFd >= 0) {
        ::close(mFd);
    }
}

// The kernel assigns an orphan to another process before it reports the parent's end.
void ParentWatch::look()
{
    if (mGone || ::getppid() == mParentPid) {
        return;
    }
    mGone = true;
    mNotifier.reset();
    mPoll.reset();
    Q_EMIT gone();
}

} // namespace tarn::vkservice::process
