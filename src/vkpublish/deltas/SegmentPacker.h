#pragma once

#include "trees/Delta.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <memory>

struct ZSTD_CCtx_s;

namespace tarn::vkpublish {

struct PackedSegment
{
    trees::PatchMethod mMethod = trees::PatchMethod::Plain;
    QByteArray mBytes;
};

// Packs segments by the method that makes the fewest bytes of each; the same bytes from the same input.
class SegmentPacker
{
public:
    SegmentPacker();
    ~SegmentPacker();

    // Without bytes if there is no memory for it.
    PackedSegment pack(QByteArrayView pBase, QByteArrayView pMade);

private:
    QByteArray frame(QByteArrayView pContent, QByteArrayView pPrefix);
    QByteArray steps(QByteArrayView pBase, QByteArrayView pMade);

    std::unique_ptr<ZSTD_CCtx_s, size_t (*)(ZSTD_CCtx_s*)> mEncoder;
};

} // namespace tarn::vkpublish
