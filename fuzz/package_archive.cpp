// A package's archive, unpacked for real. Whatever its bytes are, nothing outside its folder changes, and
// what a package is taken for has only files, folders and links that stay inside, no larger than announced.
//
// An input that does not begin as zstd does is taken for the tar file inside, so that the fuzzer can get at
// it.
#include "support/ScratchFolder.h"
#include "support/StoredFrame.h"

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

void checkUnpacked(const QString& pFolder)
{
    qint64 tBytes = 0;
    QDirIterator tIt(pFolder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                     QDirIterator::Subdirectories);
    while (tIt.hasNext()) {
        const QFileInfo tInfo(tIt.next());
        if (tInfo.isSymLink()) {
            const QString tTarget = tInfo.canonicalFilePath(); // empty where it leads to nothing
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
    sFolder.write(tArchive, tInput.startsWith(fuzz::sZstdMagic) ? tInput : fuzz::storedFrame(tInput));

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
