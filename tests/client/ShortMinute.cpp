// Preloaded into rkm: the minute that a worker may take to quit passes at once. All other waits are
// unchanged, so a different limit than a minute is noticed.

#include <csignal>

#include <dlfcn.h>
#include <poll.h>

extern "C" __attribute__((visibility("default"))) int ppoll(pollfd* pPolls, nfds_t pCount,
                                                            const timespec* pTimeout, const sigset_t* pMask)
{
    using Function = int (*)(pollfd*, nfds_t, const timespec*, const sigset_t*);
    static const auto sReal = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "ppoll"));
    const timespec tMoment{0, 100 * 1000 * 1000};
    const bool tMinute = pTimeout != nullptr && pTimeout->tv_sec >= 59 && pTimeout->tv_sec <= 60;
    return sReal(pPolls, pCount, tMinute ? &tMoment : pTimeout, pMask);
}
