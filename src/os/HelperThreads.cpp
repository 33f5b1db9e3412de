#include "os/HelperThreads.h"

#include <system_error>

namespace tarn::os {

HelperThreads::HelperThreads(size_t pCount, const std::function<void()>& pWork)
{
    mThreads.reserve(pCount);
    try {
        while (mThreads.size() < pCount) {
            mThreads.emplace_back(pWork);
        }
    } catch (const std::system_error&) {
        // The number of processes is limited, or there is no memory for a stack.
    }
}

void HelperThreads::join()
{
    for (std::thread& tThread : mThreads) {
        tThread.join();
    }
    mThreads.clear();
}

} // namespace tarn::os
