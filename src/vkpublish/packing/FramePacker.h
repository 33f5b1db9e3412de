#pragma once

#include "internal/Failure.h"
#include "os/HelperThreads.h"
#include "trees/IndexEntry.h"

#include <QtCore/QByteArray>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

namespace tarn::vkpublish {

// Packs frames, several at a time, and gives them out in their order; the same bytes whatever the number of
// threads is. At most one frame more than threads are in memory, and as many packed ones; each thread takes
// 90 MiB for its encoder at level 19.
class FramePacker
{
public:
    // Called by the thread that calls add() and finish().
    using Output = std::function<Failure(const QByteArray& pPacked)>;

    FramePacker(int pLevel, int pThreads, Output pOutput);
    ~FramePacker();
    FramePacker(const FramePacker&) = delete;
    FramePacker& operator=(const FramePacker&) = delete;

    // Takes the bytes of the next frame, which are not empty; waits while all threads are busy.
    Failure add(QByteArray pFrame);
    // Waits for all frames.
    Failure finish();
    // Of the frames that were given out.
    const std::vector<trees::Frame>& frames() const { return mFrames; }

private:
    struct Packed
    {
        qint64 mUnpacked = 0;
        QByteArray mBytes; // empty: there was no memory
        tuf::Hash mHash;
    };

    void work();
    Failure giveOut(size_t pMostWaiting);

    const int mLevel;
    const Output mOutput;
    std::vector<trees::Frame> mFrames;
    size_t mAdded = 0;

    std::mutex mMutex; // guards what follows
    std::condition_variable mChanged;
    std::map<size_t, QByteArray> mWaiting;
    std::map<size_t, Packed> mReady;
    bool mIsEnding = false;

    os::HelperThreads mThreads;
};

} // namespace tarn::vkpublish
