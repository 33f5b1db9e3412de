#include "trees/IndexText.h"

#include "os/FileTools.h"
#include "trees/ZstdLines.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <zstd.h>

#include <cerrno>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

constexpr qsizetype sBlockSize = 256 * 1024;
constexpr int sQuickLevel = 3;

os::Descriptor newFile(os::FileSystem& pFileSystem, const QString& pPath)
{
    return {pFileSystem,
            pFileSystem.open(QFile::encodeName(pPath), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600)};
}

Failure write(os::FileSystem& pFileSystem, int pFd, const char* pData, size_t pSize, const QString& pPath)
{
    return os::writeAll(pFileSystem, pFd, pData, pSize) != 0
               ? Failure::fromErrno(errno, u"write %1"_s.arg(pPath))
               : Failure();
}

// The next lines, about a block of them; empty behind the last.
Failure nextBlock(ZstdLines* pLines, QByteArray* pTo)
{
    pTo->clear();
    while (pTo->size() < sBlockSize) {
        QByteArray tLine;
        if (Failure tFailure = pLines->next(&tLine)) {
            return tFailure;
        }
        if (tLine.isNull()) {
            return {};
        }
        *pTo += tLine + '\n';
    }
    return {};
}

} // namespace

Result<packages::IndexName> nameOfIndex(os::FileSystem& pFileSystem, const QString& pPacked,
                                        const std::function<Failure(const QByteArray&)>& pSink)
{
    ZstdLines tLines(pFileSystem);
    Failure tFailure = tLines.open(pPacked);
    QByteArray tBlock;
    while (!tFailure && !(tFailure = nextBlock(&tLines, &tBlock)) && !tBlock.isEmpty()) {
        tFailure = pSink ? pSink(tBlock) : Failure();
    }
    return tFailure ? Result<packages::IndexName>(tFailure) : tLines.name();
}

Failure unpackIndex(os::FileSystem& pFileSystem, const QString& pPacked, const QString& pText,
                    packages::IndexName* pTo)
{
    os::Descriptor tFile = newFile(pFileSystem, pText);
    if (!tFile.isOpen()) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pText));
    }
    const Result<packages::IndexName> tName =
        nameOfIndex(pFileSystem, pPacked, [&](const QByteArray& pBlock) {
            return write(pFileSystem, tFile.fd(), pBlock.constData(), static_cast<size_t>(pBlock.size()),
                         pText);
        });
    if (!tName) {
        return tName.failure();
    }
    *pTo = *tName;
    return tFile.close() != 0 ? Failure::fromErrno(errno, u"write %1"_s.arg(pText)) : Failure();
}

Failure packIndexFile(os::FileSystem& pFileSystem, const QString& pText, const QString& pPacked)
{
    const os::Descriptor tFrom = os::openRegular(pFileSystem, QFile::encodeName(pText));
    if (!tFrom.isOpen()) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(pText));
    }
    os::Descriptor tTo = newFile(pFileSystem, pPacked);
    if (!tTo.isOpen()) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pPacked));
    }
    const std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx*)> tEncoder(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(tEncoder.get(), ZSTD_c_compressionLevel, sQuickLevel);
    ZSTD_CCtx_setParameter(tEncoder.get(), ZSTD_c_checksumFlag, 1);
    std::vector<char> tText(static_cast<size_t>(sBlockSize));
    std::vector<char> tPacked(ZSTD_CStreamOutSize());
    for (ssize_t tGot = 1; tGot != 0;) {
        tGot = pFileSystem.read(tFrom.fd(), tText.data(), tText.size());
        if (tGot < 0) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(pText));
        }
        ZSTD_inBuffer tIn{tText.data(), static_cast<size_t>(tGot), 0};
        const ZSTD_EndDirective tMode = tGot == 0 ? ZSTD_e_end : ZSTD_e_continue;
        size_t tLeft = 0;
        do {
            ZSTD_outBuffer tOut{tPacked.data(), tPacked.size(), 0};
            tLeft = ZSTD_compressStream2(tEncoder.get(), &tOut, &tIn, tMode);
            if (ZSTD_isError(tLeft) != 0) {
                return Failure::content(u"%1 cannot be packed"_s.arg(pText));
            }
            if (Failure tFailure = write(pFileSystem, tTo.fd(), tPacked.data(), tOut.pos, pPacked)) {
                return tFailure;
            }
        } while (tIn.pos < tIn.size || (tMode == ZSTD_e_end && tLeft > 0));
    }
    return pFileSystem.fsync(tTo.fd()) != 0 || tTo.close() != 0
               ? Failure::fromErrno(errno, u"write %1"_s.arg(pPacked))
               : Failure();
}

} // namespace tarn::trees
