#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace tarn::os {

// Threads that share work with the one that starts them. The system may have none to give: then that one does
// all of it, or says why it can't.
class HelperThreads
{
public:
    // Up to pCount of them, each of which runs pWork once.
    HelperThreads(size_t pCount, const std::function<void()>& pWork);
    ~HelperThreads() { join(); }
    HelperThreads(const HelperThreads&) = delete;
    HelperThreads& operator=(const HelperThreads&) = delete;

    void join();
    size_t count() const { return mThreads.size(); }

private:
    std::vector<std::thread> mThreads;
};

} // namespace tarn::os
