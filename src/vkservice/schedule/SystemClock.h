#pragma once

#include "schedule/Clock.h"

#include <memory>

class QSocketNotifier;
class QTimer;

namespace tarn::vkservice::schedule {

// The machine's clock.
class SystemClock : public Clock
{
    Q_OBJECT

public:
    explicit SystemClock(QObject* pParent = nullptr);
    ~SystemClock() override;

    void wakeAt(const QDateTime& pWhen) override;

private:
    QDateTime moment() const override;
    void onTimer();

    int mTimerFd = -1;
    std::unique_ptr<QSocketNotifier> mNotifier;
    std::unique_ptr<QTimer> mFallback; // used if the kernel has no timer
};

} // namespace tarn::vkservice::schedule
