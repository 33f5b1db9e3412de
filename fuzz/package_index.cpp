// The index of a package, as it is published, or its text. Whatever it says, what comes out are paths that
// stay inside, in their order, of files that have bytes of the archive for themselves.
#include "support/ScratchFolder.h"
#include "support/StoredFrame.h"

#include "os/FileSystem.h"
#include "packages/EntryPath.h"
#include "trees/IndexReader.h"

#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn;
using namespace tarn::trees;

namespace {

constexpr qint64 sMaxBytes = 1000 * 1000;
constexpr int sMaxDepth = 8;

void require(bool pCondition)
{
    if (!pCondition) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static const fuzz::ScratchFolder sFolder;
    const QByteArray tInput(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    const QString tName = u"index"_s;
    sFolder.write(tName, tInput.startsWith(fuzz::sZstdMagic) ? tInput : fuzz::storedFrame(tInput));

    IndexReader tReader(os::realFileSystem());
    if (tReader.open(sFolder.path(tName),
                     {.mMaxBytes = sMaxBytes, .mArchiveSize = 100, .mMaxDepth = sMaxDepth})) {
        return 0;
    }
    IndexEntry tEntry;
    Failure tFailure;
    QByteArrayList tLast;
    qint64 tBytes = 0;
    qint64 tEnd = 0;
    while (tReader.next(&tEntry, &tFailure)) {
        const auto tNames = packages::entryPath(tEntry.mPath, sMaxDepth);
        require(tNames && comesBefore(tLast, *tNames));
        tLast = *tNames;
        require(entryFromLine(toLine(tEntry, tEnd), tEnd) == tEntry);
        if (tEntry.mKind == EntryKind::File) {
            require(tEntry.mAt >= tEnd && tEntry.mSize >= 0);
            tEnd = tEntry.mAt + tEntry.mSize;
            tBytes += tEntry.mSize;
        }
        require(tBytes <= sMaxBytes && tEnd <= tReader.frames().unpackedSize());
    }
    return 0;
}
