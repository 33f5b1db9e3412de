#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::machine {

// While it lives, the machine does not shut down or sleep by itself: an inhibitor lock of systemd-logind. The
// lock also ends with the process. Without logind there is none, and nothing fails.
class ShutdownLock
{
public:
    // Takes at most this long.
    static constexpr int sMostMs = 2000;

    ShutdownLock() = default;
    // pWhy: for users who ask what holds the machine.
    explicit ShutdownLock(const QString& pWhy);
    ~ShutdownLock();
    ShutdownLock(const ShutdownLock&) = delete;
    ShutdownLock& operator=(const ShutdownLock&) = delete;

    bool isHeld() const { return mFd >= 0; }

private:
    int mFd = -1;
};

} // namespace tarn::vkservice::machine
