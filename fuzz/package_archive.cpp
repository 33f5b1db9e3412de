// A package's archive, unpacked to disk. Whatever its bytes, nothing outside its folder changes, and an
// accepted package has only files, folders and links that stay inside, and is not larger than announced.
//
// An input without the magic number of zstd is used as the tar file inside, so that the fuzzer can reach it.
#include "support/ScratchFolder.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "packages/Unpacker.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>

#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn;

namespace {

constexpr qint64 sMaxBytes = 1024 * 1024;
const QByteArray sZstdMagic = QByteArrayLiteral("\x28\xb5\x2f\xfd");

// A zstd frame with the bytes uncompressed.
QByteArray stored(const QByteArray& pTar)
{
    constexpr qsizetype sMaxBlock = 128 * 1024;
    constexpr quint32 sLast = 1;
    QByteArray tFrame = sZstdMagic + QByteArrayLiteral("\x00\x58"); // no checksum, no size, a window of 2 MiB
    const auto tAppend = [&tFrame](const QByteArray& pBlock, quint32 pFlags) {
        const quint32 tHeader = pFlags | static_cast<quint32>(pBlock.size()) << 3;
        for (const int tShift : {0, 8, 16}) {
            tFrame.append(static_cast<char>(tHeader >> tShift));
        }
        tFrame.append(pBlock);
    };
    for (qsizetype i = 0; i < pTar.size(); i += sMaxBlock) {
        tAppend(pTar.mid(i, sMaxBlock), 0);
    }
    tAppend({}, sLast);
    return tFrame;
}

void checkUnpacked(const QString& pFolder)
{
    qint64 tBytes = 0;
    QDirIterator tIt(pFolder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                     QDirIterator::Subdirectories);
    while (tIt.hasNext()) {
        const QFileInfo tInfo(tIt.next());
        if (tInfo.isSymLink()) {
            const QString tTarget = tInfo.canonicalFilePath(); // empty for a dangling link
            if (!tTarget.isEmpty() && tTarget != pFolder && !tTarget.startsWith(pFolder + u'/')) {
                std::abort();
            }
        } else if (tInfo.isFile()) {
            tBytes += tInfo.size();
        } else if (!tInfo.isDir()) {
            std::abort();
        }
    }
    if (tBytes > sMaxBytes) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static const fuzz::ScratchFolder sFolder;
    const QByteArray tInput(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    const QString tArchive = u"package.tar.zst"_s;
    const QString tTarget = QFileInfo(sFolder.path()).canonicalFilePath() + u"/package"_s;
    sFolder.write(tArchive, tInput.startsWith(sZstdMagic) ? tInput : stored(tInput));

    packages::Unpacker tUnpacker(os::realFileSystem());
    constexpr int sMaxEntries = 200;
    if (!tUnpacker.unpack(sFolder.path(tArchive), tTarget, {sMaxBytes, sMaxEntries})) {
        checkUnpacked(tTarget);
    }
    if (os::removeTree(os::realFileSystem(), tTarget)) {
        std::abort();
    }
    const QStringList tLeft =
        QDir(sFolder.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    if (tLeft != QStringList{tArchive}) {
        std::abort();
    }
    return 0;
}
