#include "packing/FrameSize.h"

#include "packing/FrameCutter.h"

#include "os/HelperThreads.h"
#include "trees/FrameTable.h"

#include <zstd.h>

#include <array>
#include <atomic>
#include <limits>
#include <memory>
#include <vector>

namespace tarn::vkpublish {

namespace {

constexpr qint64 sMiB = 1024 * 1024;
constexpr std::array<qint64, 5> sFrameSizes{4 * sMiB, 8 * sMiB, 16 * sMiB, 32 * sMiB, 64 * sMiB};
constexpr qint64 sOneFrame = std::numeric_limits<qint64>::max() / 4;
constexpr qint64 sMostPercent = 2;
constexpr int sLevel = 3;
constexpr qsizetype sBatch = 8 * sMiB;

// A stretch of the stream, and the entries that begin in it.
struct Batch
{
    struct Begin
    {
        qsizetype mAt = 0;
        qint64 mLength = 0;
    };

    QByteArray mBytes;
    std::vector<Begin> mEntries;
};

// The stream packed with one size of frames. Only the length is kept.
class Trial
{
public:
    explicit Trial(qint64 pFrameSize) : mCutter(pFrameSize)
    {
        ZSTD_CCtx_setParameter(mEncoder.get(), ZSTD_c_compressionLevel, sLevel);
        ZSTD_CCtx_setParameter(mEncoder.get(), ZSTD_c_windowLog, trees::sMaxWindowLog);
    }

    void add(const Batch& pBatch)
    {
        QByteArrayView tLeft(pBatch.mBytes);
        qsizetype tAt = 0;
        for (const Batch::Begin& tEntry : pBatch.mEntries) {
            pack(tLeft.first(tEntry.mAt - tAt));
            tLeft = tLeft.sliced(tEntry.mAt - tAt);
            tAt = tEntry.mAt;
            if (mCutter.begin(tEntry.mLength)) {
                step({}, ZSTD_e_end);
            }
        }
        pack(tLeft);
    }
    void end() { step({}, ZSTD_e_end); }

    qint64 packed() const { return mPacked; }

private:
    void pack(QByteArrayView pBytes)
    {
        while (!pBytes.isEmpty()) {
            const qint64 tCount = std::min(mCutter.room(), pBytes.size());
            step(pBytes.first(tCount), mCutter.advance(tCount) ? ZSTD_e_end : ZSTD_e_continue);
            pBytes = pBytes.sliced(tCount);
        }
    }

    void step(QByteArrayView pBytes, ZSTD_EndDirective pMode)
    {
        ZSTD_inBuffer tIn{pBytes.data(), static_cast<size_t>(pBytes.size()), 0};
        size_t tLeft = 0;
        do {
            ZSTD_outBuffer tOut{mOut.data(), mOut.size(), 0};
            tLeft = ZSTD_compressStream2(mEncoder.get(), &tOut, &tIn, pMode);
            mPacked += static_cast<qint64>(tOut.pos);
        } while (ZSTD_isError(tLeft) == 0 && (pMode == ZSTD_e_end ? tLeft > 0 : tIn.pos < tIn.size));
    }

    FrameCutter mCutter;
    std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx*)> mEncoder{ZSTD_createCCtx(), ZSTD_freeCCtx};
    std::vector<char> mOut = std::vector<char>(128 * 1024);
    qint64 mPacked = 0;
};

// Gives the stream to all trials at the same time.
class Trials : public TarSink
{
public:
    Trials()
    {
        mTrials.emplace_back(sOneFrame);
        for (const qint64 tSize : sFrameSizes) {
            mTrials.emplace_back(tSize);
        }
    }

    Failure beginEntry(qint64 pLength) override
    {
        mBatch.mEntries.push_back({mBatch.mBytes.size(), pLength});
        return {};
    }
    Failure write(QByteArrayView pBytes) override
    {
        mBatch.mBytes.append(pBytes);
        if (mBatch.mBytes.size() >= sBatch) {
            flush();
        }
        return {};
    }
    void beginContent(const FolderEntry& /*pEntry*/) override {}
    void endContent() override {}

    qint64 best()
    {
        flush();
        for (Trial& tTrial : mTrials) {
            tTrial.end();
        }
        const qint64 tMost = mTrials.front().packed() + mTrials.front().packed() * sMostPercent / 100;
        for (size_t i = 0; i < sFrameSizes.size(); ++i) {
            if (mTrials[i + 1].packed() <= tMost) {
                return sFrameSizes[i];
            }
        }
        return sFrameSizes.back();
    }

private:
    void flush()
    {
        std::atomic<size_t> tNext = 0;
        const auto tAddToSome = [&] {
            for (size_t i = tNext++; i < mTrials.size(); i = tNext++) {
                mTrials[i].add(mBatch);
            }
        };
        os::HelperThreads tThreads(mTrials.size() - 1, tAddToSome);
        tAddToSome();
        tThreads.join();
        mBatch.mBytes.resize(0);
        mBatch.mEntries.clear();
    }

    std::vector<Trial> mTrials;
    Batch mBatch;
};

} // namespace

Result<qint64> chooseFrameSize(TarStream& pStream, const std::vector<FolderEntry>& pEntries)
{
    qint64 tTotal = 0;
    for (const FolderEntry& tEntry : pEntries) {
        tTotal += S_ISREG(tEntry.mStat.st_mode) ? tEntry.mStat.st_size : 0;
    }
    if (tTotal <= sFrameSizes.front()) {
        return sFrameSizes.front(); // one frame, or nearly so
    }
    Trials tTrials;
    if (Failure tFailure = pStream.run(pEntries, &tTrials)) {
        return tFailure;
    }
    return tTrials.best();
}

} // namespace tarn::vkpublish
