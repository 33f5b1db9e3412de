#include "internal/LineBuffer.h"

#include "internal/Protocol.h"

namespace tarn::vkcore::protocol {

namespace {

// An idle connection does not keep the memory of its longest line.
constexpr qsizetype sKeptCapacity = 64 * 1024;

} // namespace

void LineBuffer::append(const QByteArray& pBytes)
{
    if (mTooLong) {
        return;
    }
    if (mStart > mBytes.size() / 2) {
        mBytes.remove(0, mStart);
        mScanned -= mStart;
        mStart = 0;
    }
    mBytes.append(pBytes);
}

std::optional<QByteArray> LineBuffer::takeLine()
{
    const qsizetype tEnd = mBytes.indexOf('\n', mScanned);
    const qsizetype tLength = (tEnd < 0 ? mBytes.size() : tEnd) - mStart;
    if (tLength > sMaxLine) {
        *this = LineBuffer();
        mTooLong = true;
        return std::nullopt;
    }
    if (tEnd < 0) {
        mScanned = mBytes.size();
        return std::nullopt;
    }
    QByteArray tLine = mBytes.mid(mStart, tLength);
    mStart = mScanned = tEnd + 1;
    if (mStart > mBytes.size() / 2 && mBytes.capacity() > sKeptCapacity) {
        mBytes = mBytes.mid(mStart);
        mStart = mScanned = 0;
    } else if (mStart == mBytes.size()) {
        mBytes.resize(0);
        mStart = mScanned = 0;
    }
    return tLine;
}

} // namespace tarn::vkcore::protocol
