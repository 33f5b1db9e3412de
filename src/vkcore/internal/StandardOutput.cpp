#include "internal/StandardOutput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tarn::vkcore {

namespace {

int sLost = 0;

void note(bool pIsDone)
{
    sLost = pIsDone || sLost != 0 ? sLost : errno;
}

} // namespace

void holdStandardDescriptors()
{
    for (const int tFd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(tFd, F_GETFD) < 0) {
            // The lowest that is free, which is this one. Its direction is the wrong one.
            (void)::open("/dev/null", tFd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

void writeOutput(const QByteArray& pBytes)
{
    const auto tSize = static_cast<size_t>(pBytes.size());
    note(std::fwrite(pBytes.constData(), 1, tSize, stdout) == tSize);
}

int flushOutput()
{
    note(std::fflush(stdout) == 0);
    return sLost;
}

void writeError(const QByteArray& pBytes)
{
    (void)flushOutput();
    (void)std::fwrite(pBytes.constData(), 1, static_cast<size_t>(pBytes.size()), stderr);
    (void)std::fflush(stderr);
}

} // namespace tarn::vkcore
