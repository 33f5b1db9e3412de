#include "mail/Random.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>

namespace tarn::vkservice::mail {

QByteArray randomBytes(int pCount)
{
    QByteArray tBytes(pCount, '\0');
    qsizetype tDone = 0;
    while (tDone < tBytes.size()) {
        const ssize_t tGot = getrandom(tBytes.data() + tDone, static_cast<size_t>(tBytes.size() - tDone), 0);
        if (tGot > 0) {
            tDone += tGot;
        } else if (errno != EINTR) {
            // If the kernel has no random numbers, abort: a guessable secret would be worse than no service.
            std::abort();
        }
    }
    return tBytes;
}

} // namespace tarn::vkservice::mail
