#include "deltas/SegmentPacker.h"

#include "deltas/Difference.h"
#include "deltas/Relation.h"

#include <zstd.h>

#include <algorithm>
#include <bit>
#include <memory>

namespace tarn::vkpublish {

using trees::PatchMethod;

namespace {

constexpr int sLevel = 19;
constexpr int sMinWindowLog = 10; // the library's least
constexpr int sMaxTableLog = 22;  // entries of four bytes: more would take more memory than they save bytes

// The encoder goes with the frame: its tables and the sorted suffixes are not there at the same time.
QByteArray frame(QByteArrayView pContent, QByteArrayView pPrefix)
{
    const auto tWithin = static_cast<quint64>(pContent.size() + pPrefix.size());
    const int tWindowLog = std::max(sMinWindowLog, static_cast<int>(std::bit_width(tWithin)));
    const std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx*)> tOwner(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx* tEncoder = tOwner.get();
    ZSTD_CCtx_setParameter(tEncoder, ZSTD_c_compressionLevel, sLevel);
    ZSTD_CCtx_setParameter(tEncoder, ZSTD_c_windowLog, tWindowLog);
    ZSTD_CCtx_setParameter(tEncoder, ZSTD_c_hashLog, std::min(tWindowLog, sMaxTableLog - 1));
    ZSTD_CCtx_setParameter(tEncoder, ZSTD_c_chainLog, std::min(tWindowLog, sMaxTableLog));
    ZSTD_CCtx_setParameter(tEncoder, ZSTD_c_enableLongDistanceMatching, pPrefix.isEmpty() ? 0 : 1);
    ZSTD_CCtx_refPrefix(tEncoder, pPrefix.data(), static_cast<size_t>(pPrefix.size()));
    QByteArray tPacked(static_cast<qsizetype>(ZSTD_compressBound(static_cast<size_t>(pContent.size()))),
                       Qt::Uninitialized);
    const size_t tSize = ZSTD_compress2(tEncoder, tPacked.data(), static_cast<size_t>(tPacked.size()),
                                        pContent.data(), static_cast<size_t>(pContent.size()));
    tPacked.resize(ZSTD_isError(tSize) != 0 ? 0 : static_cast<qsizetype>(tSize));
    tPacked.squeeze();
    return tPacked;
}

QByteArray steps(QByteArrayView pBase, QByteArrayView pMade)
{
    const Difference tDifference = difference(pBase, pMade);
    const QByteArray tControl = frame(tDifference.mControl, {});
    const QByteArray tBytes = frame(tDifference.mDifference, {});
    const QByteArray tExtra = frame(tDifference.mExtra, {});
    const bool tIsUsable = tDifference.mControl.size() <= trees::DeltaLimits::maxControl(pMade.size()) &&
                           !tControl.isEmpty() && !tBytes.isEmpty() && !tExtra.isEmpty();
    return tIsUsable ? tControl + tBytes + tExtra : QByteArray();
}

} // namespace

PackedSegment packSegment(QByteArrayView pBase, QByteArrayView pMade)
{
    PackedSegment tBest;
    const auto tTake = [&tBest](PatchMethod pMethod, const QByteArray& pBytes) {
        if (!pBytes.isEmpty() && (tBest.mBytes.isEmpty() || pBytes.size() < tBest.mBytes.size())) {
            tBest = {pMethod, pBytes};
        }
    };
    const bool tIsRelated = !pBase.isEmpty() && areRelated(pBase, pMade);
    if (tIsRelated) {
        tTake(PatchMethod::Zstd, frame(pMade, pBase));
        tTake(PatchMethod::Bsdiff, steps(pBase, pMade));
    }
    // A base that saves half of the bytes is never worse than none.
    if (!tIsRelated || tBest.mBytes.size() > pMade.size() / 2) {
        tTake(PatchMethod::Plain, frame(pMade, {}));
    }
    return tBest;
}

} // namespace tarn::vkpublish
