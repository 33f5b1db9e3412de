#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"
#include "packages/TreeFiles.h"
#include "tuf/Hashes.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <memory>

struct ZSTD_DCtx_s;

namespace tarn::trees {

// The lines of a text packed with zstd, one after the other. Needs some MiB, however long the text is.
class ZstdLines
{
public:
    explicit ZstdLines(os::FileSystem& pFileSystem);
    ~ZstdLines();

    enum class Extent
    {
        WholeFile,
        FirstFrame, // what follows it is not read as text
    };

    Failure open(const QString& pPath, Extent pExtent = Extent::WholeFile);
    // Bytes of the file that the lines up to here were made of, to the end of a frame once the text ends.
    qint64 packedEnd() const { return mPackedTotal; }
    // The next line without its end; a null one behind the last. A line of more than 64 KiB, a last one
    // without end, and more than 4 GiB of text are failures.
    Failure next(QByteArray* pLine);
    // Of the whole text, once its end was reached. May be called once.
    packages::IndexName name();

private:
    Failure fill();
    Failure readPacked();

    os::FileSystem& mFileSystem;
    QString mPath;
    Extent mExtent = Extent::WholeFile;
    os::Descriptor mFile;
    std::unique_ptr<ZSTD_DCtx_s, size_t (*)(ZSTD_DCtx_s*)> mDecoder;
    QByteArray mPacked;
    qsizetype mPackedDone = 0;
    qint64 mPackedTotal = 0;
    QByteArray mText;
    qsizetype mTextDone = 0;
    qint64 mTotal = 0;
    tuf::Hasher mHasher{tuf::HashAlgorithm::Sha256};
    size_t mOpenFrame = 0; // not 0: bytes of a frame must follow
    bool mAtEnd = false;
};

} // namespace tarn::trees
