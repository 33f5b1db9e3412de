#include "os/AbortFlag.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace tarn::os {

AbortFlag::AbortFlag() : mFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

AbortFlag::~AbortFlag()
{
    ::close(mFd);
}

void AbortFlag::set()
{
    mSet = true;
    const std::uint64_t tOne = 1;
    [[maybe_unused]] const ssize_t tDone = ::write(mFd, &tOne, sizeof tOne);
}

void AbortFlag::clear()
{
    mSet = false;
    std::uint64_t tCount;
    [[maybe_unused]] const ssize_t tDone = ::read(mFd, &tCount, sizeof tCount);
}

bool AbortFlag::wait(int pMilliseconds) const
{
    pollfd tPoll{mFd, POLLIN, 0};
    ::poll(&tPoll, 1, pMilliseconds);
    return isSet();
}

} // namespace tarn::os
