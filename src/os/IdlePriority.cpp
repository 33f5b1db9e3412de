#include "os/IdlePriority.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tarn::os {

namespace {

// Of linux/ioprio.h, which not every system has.
constexpr int sWhoProcess = 1;
constexpr int sIdleClass = 3 << 13;

} // namespace

void makeThreadIdle()
{
    sched_param tParam{};
    ::sched_setscheduler(0, SCHED_IDLE, &tParam);
    ::syscall(SYS_ioprio_set, sWhoProcess, 0, sIdleClass);
}

} // namespace tarn::os
