#include "packing/FramePacker.h"

#include "trees/FrameTable.h"
#include "tuf/Hashes.h"

#include <zstd.h>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

QByteArray packed(ZSTD_CCtx* pEncoder, const QByteArray& pFrame)
{
    QByteArray tPacked(static_cast<qsizetype>(ZSTD_compressBound(static_cast<size_t>(pFrame.size()))),
                       Qt::Uninitialized);
    const size_t tSize = ZSTD_compress2(pEncoder, tPacked.data(), static_cast<size_t>(tPacked.size()),
                                        pFrame.constData(), static_cast<size_t>(pFrame.size()));
    tPacked.resize(ZSTD_isError(tSize) != 0 ? 0 : static_cast<qsizetype>(tSize));
    tPacked.squeeze();
    return tPacked;
}

} // namespace

FramePacker::FramePacker(int pLevel, int pThreads, Output pOutput)
    : mLevel(pLevel), mOutput(std::move(pOutput)),
      mThreads(static_cast<size_t>(std::max(pThreads, 1)), [this] { work(); })
{
}

FramePacker::~FramePacker()
{
    {
        const std::lock_guard tLock(mMutex);
        mIsEnding = true;
        mWaiting.clear();
    }
    mChanged.notify_all();
}

void FramePacker::work()
{
    const std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx*)> tEncoder(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(tEncoder.get(), ZSTD_c_compressionLevel, mLevel);
    ZSTD_CCtx_setParameter(tEncoder.get(), ZSTD_c_windowLog, trees::sMaxWindowLog);
    std::unique_lock tLock(mMutex);
    for (;;) {
        mChanged.wait(tLock, [this] { return mIsEnding || !mWaiting.empty(); });
        if (mIsEnding) {
            return;
        }
        const auto tNode = mWaiting.extract(mWaiting.begin());
        tLock.unlock();
        Packed tPacked{tNode.mapped().size(), packed(tEncoder.get(), tNode.mapped()), {}};
        tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
        tHasher.add(tPacked.mBytes);
        tPacked.mHash = tHasher.result().front();
        tLock.lock();
        mReady.emplace(tNode.key(), std::move(tPacked));
        mChanged.notify_all();
    }
}

Failure FramePacker::add(QByteArray pFrame)
{
    if (mThreads.count() == 0) {
        return Failure::content(u"The system has no thread left to pack the package with"_s);
    }
    if (Failure tFailure = giveOut(mThreads.count())) {
        return tFailure;
    }
    {
        const std::lock_guard tLock(mMutex);
        mWaiting.emplace(mAdded++, std::move(pFrame));
    }
    mChanged.notify_all();
    return {};
}

Failure FramePacker::finish()
{
    return giveOut(0);
}

// Gives out what is ready, and waits until no more than so many frames are left.
Failure FramePacker::giveOut(size_t pMostWaiting)
{
    std::unique_lock tLock(mMutex);
    for (;;) {
        const auto tNode = mReady.extract(mFrames.size());
        if (tNode.empty()) {
            if (mAdded - mFrames.size() <= pMostWaiting) {
                return {};
            }
            mChanged.wait(tLock);
            continue;
        }
        tLock.unlock();
        const Packed& tPacked = tNode.mapped();
        if (tPacked.mBytes.isEmpty()) {
            return Failure::content(u"There is not enough memory to pack the package"_s);
        }
        mFrames.push_back(
            {.mPacked = tPacked.mBytes.size(), .mUnpacked = tPacked.mUnpacked, .mHash = tPacked.mHash});
        if (Failure tFailure = mOutput(tPacked.mBytes)) {
            return tFailure;
        }
        tLock.lock();
    }
}

} // namespace tarn::vkpublish
