#include "trees/IndexWriter.h"

#include "trees/FrameTable.h"

#include <zstd.h>

namespace tarn::trees {

namespace {

constexpr int sLevel = 19;

} // namespace

QByteArray indexText(const std::vector<Frame>& pFrames, const std::vector<IndexEntry>& pEntries)
{
    IndexHeader tHeader{.mFrames = static_cast<qint64>(pFrames.size()),
                        .mEntries = static_cast<qint64>(pEntries.size())};
    for (const IndexEntry& tEntry : pEntries) {
        tHeader.mBytes += tEntry.mSize;
    }
    QByteArray tText = toLine(tHeader) + '\n';
    for (const Frame& tFrame : pFrames) {
        tText += toLine(tFrame) + '\n';
    }
    qint64 tEnd = 0;
    for (const IndexEntry& tEntry : pEntries) {
        tText += toLine(tEntry, tEnd) + '\n';
        tEnd = tEntry.mKind == EntryKind::File ? tEntry.mAt + tEntry.mSize : tEnd;
    }
    return tText;
}

QByteArray packIndex(const QByteArray& pText)
{
    const std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx*)> tEncoder(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(tEncoder.get(), ZSTD_c_compressionLevel, sLevel);
    ZSTD_CCtx_setParameter(tEncoder.get(), ZSTD_c_windowLog, sMaxWindowLog);
    ZSTD_CCtx_setParameter(tEncoder.get(), ZSTD_c_checksumFlag, 1);
    QByteArray tPacked(static_cast<qsizetype>(ZSTD_compressBound(static_cast<size_t>(pText.size()))),
                       Qt::Uninitialized);
    const size_t tSize = ZSTD_compress2(tEncoder.get(), tPacked.data(), static_cast<size_t>(tPacked.size()),
                                        pText.constData(), static_cast<size_t>(pText.size()));
    tPacked.resize(ZSTD_isError(tSize) != 0 ? 0 : static_cast<qsizetype>(tSize));
    return tPacked;
}

} // namespace tarn::trees
