#pragma once

#include <atomic>

namespace tarn::os {

// A stop request from one thread. Others poll it, or wait for it together with other descriptors.
class AbortFlag
{
public:
    AbortFlag();
    ~AbortFlag();
    AbortFlag(const AbortFlag&) = delete;
    AbortFlag& operator=(const AbortFlag&) = delete;

    void set();
    void clear();
    bool isSet() const { return mSet.load(std::memory_order_relaxed); }
    // Readable for poll() from set() to clear().
    int fd() const { return mFd; }
    // Waits; true as soon as the flag is set, false when the time is over.
    bool wait(int pMilliseconds) const;

private:
    std::atomic<bool> mSet{false};
    int mFd;
};

} // namespace tarn::os
