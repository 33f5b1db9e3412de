#include "OutputFile.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace tarn::vkc {

OutputFile::OutputFile(int pFd)
{
    open(pFd, QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::DontCloseHandle);
}

qint64 OutputFile::writeData(const char* pFrom, qint64 pSize)
{
    for (qint64 tDone = 0; tDone < pSize;) {
        const ssize_t tWritten = ::write(handle(), pFrom + tDone, static_cast<size_t>(pSize - tDone));
        if (tWritten >= 0) {
            tDone += tWritten;
        } else if (errno == EAGAIN) {
            pollfd tPoll{handle(), POLLOUT, 0};
            ::poll(&tPoll, 1, -1);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return pSize;
}

} // namespace tarn::vkc
