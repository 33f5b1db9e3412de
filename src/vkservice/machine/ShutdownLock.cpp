#include "machine/ShutdownLock.h"

#include "machine/SystemBus.h"

#include <systemd/sd-bus.h>

#include <fcntl.h>
#include <unistd.h>

namespace tarn::vkservice::machine {

namespace {

// -1 if logind refuses it.
int inhibit(const SystemBus& pBus, const QByteArray& pWhy, const char* pMode)
{
    SystemBus::Message tCall = pBus.newCall(
        {"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager"}, "Inhibit");
    if (!tCall || sd_bus_message_append(tCall.get(), "ssss", "shutdown:sleep", "vkservice", pWhy.constData(),
                                        pMode) < 0) {
        return -1;
    }
    const SystemBus::Message tReply = pBus.call(std::move(tCall));
    int tFd = -1;
    return tReply && sd_bus_message_read(tReply.get(), "h", &tFd) > 0 ? ::fcntl(tFd, F_DUPFD_CLOEXEC, 0) : -1;
}

} // namespace

// Only privileged users may block a shutdown; others may delay it for some seconds.
ShutdownLock::ShutdownLock(const QString& pWhy)
{
    const SystemBus tBus{QDeadlineTimer(sMostMs)};
    const QByteArray tWhy = pWhy.toUtf8();
    mFd = inhibit(tBus, tWhy, "block");
    if (mFd < 0) {
        mFd = inhibit(tBus, tWhy, "delay");
    }
}

ShutdownLock::~ShutdownLock()
{
    if (mFd >= 0) {
        ::close(mFd);
    }
}

} // namespace tarn::vkservice::machine
