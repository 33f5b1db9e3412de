#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"
#include "trees/FrameRuns.h"

#include <memory>

struct ZSTD_DCtx_s;

namespace tarn::os {
class AbortFlag;
}

namespace tarn::trees {

// Whether a file has exactly the bytes of these frames. Content if it does not. pAbort may be null.
Failure checkFrames(os::FileSystem& pFileSystem, const QString& pFile, const FrameTable& pFrames,
                    const FrameRun& pRun, const os::AbortFlag* pAbort = nullptr);

// Whether an archive has the bytes of these frames where its index says. Content if it does not.
Failure checkArchive(os::FileSystem& pFileSystem, const QString& pArchive, const FrameTable& pFrames,
                     qsizetype pFirst, qsizetype pCount);

// The content of checked frames, from one position to a later one. Needs some 10 MiB.
class FrameStream
{
public:
    FrameStream(os::FileSystem& pFileSystem, const FrameTable& pFrames, const FrameRun& pRun);
    ~FrameStream();

    Failure open(const QString& pFile);
    // Goes to a position in the unpacked archive, not before the one that was read last.
    Failure skipTo(qint64 pPosition);
    // At least one byte, at most pMost and a block.
    Failure read(qint64 pMost, QByteArrayView* pTo);

private:
    Failure fill();
    Failure damaged() const;

    os::FileSystem& mFileSystem;
    const FrameTable& mFrames;
    FrameRun mRun;
    QString mPath;
    os::Descriptor mFile;
    std::unique_ptr<ZSTD_DCtx_s, size_t (*)(ZSTD_DCtx_s*)> mDecoder;
    QByteArray mPacked;
    qsizetype mPackedDone = 0;
    QByteArray mText;
    qsizetype mTextDone = 0;
    qint64 mPosition; // of mText[mTextDone]
};

} // namespace tarn::trees
