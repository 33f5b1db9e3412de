#pragma once

#include "schedule/Windows.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>

#include <optional>

namespace tarn::vkservice::schedule {

class Clock;

// Signals when something that waits may go on: after a pause or, if it waits for a window, inside of one.
// Without windows the pause is all.
class WindowTimer : public QObject
{
    Q_OBJECT

public:
    // A window that ends sooner than this is left for the next one.
    static constexpr int sLeastSeconds = 10 * 60;

    // pMachine identifies this machine, for the jitter.
    WindowTimer(Clock& pClock, const QByteArray& pMachine, QObject* pParent = nullptr);

    // Machines with the same window are spread over pJitterSeconds, or over the first half of the window if
    // that is shorter.
    void setWindows(const Windows& pWindows, int pJitterSeconds);
    // opened() comes once, for the last of these calls.
    void waitForWindow(int pPauseSeconds) { wait(pPauseSeconds, true); }
    void pause(int pSeconds) { wait(pSeconds, false); }
    void stop();

Q_SIGNALS:
    void opened();

private:
    void wait(int pPauseSeconds, bool pForWindow);
    void evaluate();
    QDateTime dueTime(const QDateTime& pNow) const;

    Clock& mClock;
    QByteArray mMachine;
    Windows mWindows;
    int mJitter = 0;
    std::optional<QDateTime> mNotBefore; // none: nothing waits
    int mPause = 0;
    bool mForWindow = true;
};

} // namespace tarn::vkservice::schedule
