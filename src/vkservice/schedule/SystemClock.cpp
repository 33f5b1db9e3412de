#include "schedule/SystemClock.h"

#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

namespace tarn::vkservice::schedule {

namespace {

// A change of the time zone is not announced, so the time is checked at least this often.
constexpr qint64 sLongestSleepSeconds = 600;

} // namespace

SystemClock::SystemClock(QObject* pParent) : Clock(pParent)
{
    // On the real-time clock, because it continues while the machine sleeps.
    mTimerFd = ::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (mTimerFd >= 0) {
        mNotifier = std::make_unique<QSocketNotifier>(mTimerFd, QSocketNotifier::Read);
        connect(mNotifier.get(), &QSocketNotifier::activated, this, &SystemClock::onTimer);
        return;
    }
    mFallback = std::make_unique<QTimer>();
    mFallback->setSingleShot(true);
    connect(mFallback.get(), &QTimer::timeout, this, &Clock::woke);
}

SystemClock::~SystemClock()
{
    mNotifier.reset();
    if (mTimerFd >= 0) {
        ::close(mTimerFd);
    }
}

QDateTime SystemClock::moment() const
{
    return QDateTime::currentDateTime();
}

void SystemClock::wakeAt(const QDateTime& pWhen)
{
    const qint64 tNow = QDateTime::currentSecsSinceEpoch();
    const qint64 tWanted = pWhen.isValid() ? pWhen.toSecsSinceEpoch() : 0;
    const qint64 tAt = std::clamp(tWanted, tNow + 1, tNow + sLongestSleepSeconds);
    if (mFallback) {
        mFallback->stop();
        if (pWhen.isValid()) {
            mFallback->start(static_cast<int>(std::min<qint64>(tAt - tNow, 60) * 1000));
        }
        return;
    }
    itimerspec tSpec = {};
    tSpec.it_value.tv_sec = pWhen.isValid() ? tAt : 0;
    ::timerfd_settime(mTimerFd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &tSpec, nullptr);
}

void SystemClock::onTimer()
{
    // When the clock is set, the read fails; that is a reason to check the time, too.
    quint64 tExpirations = 0;
    [[maybe_unused]] const ssize_t tRead = ::read(mTimerFd, &tExpirations, sizeof(tExpirations));
    Q_EMIT woke();
}

} // namespace tarn::vkservice::schedule
