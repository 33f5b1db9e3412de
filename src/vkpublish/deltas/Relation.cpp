#include "deltas/Relation.h"

#include <QtCore/QtGlobal>

#include <cstddef>
#include <unordered_set>

namespace tarn::vkpublish {

namespace {

constexpr qsizetype sRun = 16;                   // bytes
constexpr qsizetype sUnrelated = 65536;          // in so many bytes one common run is nothing
constexpr qsizetype sSmall = 4096;               // a patch is tried as quickly
constexpr quint64 sFactor = 0x9e3779b97f4a7c15U; // odd, its bits are spread evenly

quint64 power(quint64 pBase, qsizetype pExponent)
{
    quint64 tPower = 1;
    for (qsizetype i = 0; i < pExponent; ++i) {
        tPower *= pBase;
    }
    return tPower;
}

// The hash of a run of bytes that moves on byte by byte.
class RollingHash
{
public:
    explicit RollingHash(QByteArrayView pText) : mText(pText)
    {
        for (qsizetype i = 0; i < sRun; ++i) {
            mValue = mValue * sFactor + byteAt(i);
        }
    }
    void next()
    {
        mValue = (mValue - byteAt(mAt) * mFirst) * sFactor + byteAt(mAt + sRun);
        ++mAt;
    }
    quint64 value() const { return mValue; }

private:
    quint64 byteAt(qsizetype pAt) const { return static_cast<uchar>(mText[pAt]) + 1U; }

    QByteArrayView mText;
    quint64 mFirst = power(sFactor, sRun - 1);
    quint64 mValue = 0;
    qsizetype mAt = 0;
};

} // namespace

bool areRelated(QByteArrayView pBase, QByteArrayView pMade)
{
    if (pBase.size() < sSmall || pMade.size() < sSmall) {
        return true;
    }
    std::unordered_set<quint64> tRuns;
    tRuns.reserve(static_cast<size_t>(pBase.size() / sRun));
    for (qsizetype i = 0; i + sRun <= pBase.size(); i += sRun) {
        tRuns.insert(RollingHash(pBase.sliced(i)).value());
    }
    RollingHash tHash(pMade);
    qsizetype tCommon = tRuns.count(tHash.value()) > 0 ? 1 : 0;
    for (qsizetype i = 1; i + sRun <= pMade.size() && tCommon <= pMade.size() / sUnrelated; ++i) {
        tHash.next();
        tCommon += tRuns.count(tHash.value()) > 0 ? 1 : 0;
    }
    return tCommon > pMade.size() / sUnrelated;
}

} // namespace tarn::vkpublish
