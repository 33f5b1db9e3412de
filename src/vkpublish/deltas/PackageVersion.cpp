#include "deltas/PackageVersion.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "packages/Unpacker.h"
#include "trees/IndexText.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using os::Descriptor;

namespace {

constexpr mode_t sPrivate = 0700;

} // namespace

PackageVersion::~PackageVersion()
{
    if (!mScratch.isEmpty()) {
        (void)os::removeTree(mFileSystem, mScratch); // the next publication removes what is left
    }
}

Failure PackageVersion::open(const QString& pIndex, const trees::IndexLimits& pLimits,
                             const QString& pScratch)
{
    if (mFileSystem.makeDir(QFile::encodeName(pScratch), sPrivate) != 0) {
        return Failure::fromErrno(errno, u"make %1"_s.arg(pScratch));
    }
    mScratch = pScratch;
    mMaxBytes = pLimits.mMaxBytes;
    // The text is there unpacked, so that any part of it can be read.
    if (Failure tFailure = trees::unpackIndex(mFileSystem, pIndex, textPath(), &mIndex)) {
        return tFailure;
    }
    return readEntries(pIndex, pLimits);
}

QString PackageVersion::textPath() const
{
    return mScratch + u"/index"_s;
}

Failure PackageVersion::readEntries(const QString& pIndex, const trees::IndexLimits& pLimits)
{
    trees::IndexReader tReader(mFileSystem);
    if (Failure tFailure = tReader.open(pIndex, pLimits)) {
        return tFailure;
    }
    mSizes = {mIndex.mLength};
    trees::IndexEntry tEntry;
    Failure tFailure;
    while (tReader.next(&tEntry, &tFailure)) {
        mSizes.push_back(tEntry.mKind == trees::EntryKind::File ? tEntry.mSize : -1);
        mEntries.push_back(tEntry);
    }
    return tFailure;
}

Failure PackageVersion::unpack(const QString& pArchive)
{
    mFolder = mScratch + u"/package"_s;
    return packages::Unpacker(mFileSystem).unpack(pArchive, mFolder, {.mMaxBytes = mMaxBytes});
}

Failure PackageVersion::read(const trees::Piece& pPiece, QByteArray* pTo) const
{
    const QString tPath =
        pPiece.mEntry == 0
            ? textPath()
            : mFolder + u'/' + QFile::decodeName(mEntries[static_cast<size_t>(pPiece.mEntry - 1)].mPath);
    const Descriptor tFile(mFileSystem,
                           mFileSystem.open(QFile::encodeName(tPath), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!tFile.isOpen() || ::lseek(tFile.fd(), pPiece.mBytes.mFirst, SEEK_SET) < 0) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(tPath));
    }
    const qsizetype tBegin = pTo->size();
    pTo->resize(tBegin + pPiece.mBytes.mLength);
    for (qsizetype tAt = tBegin; tAt < pTo->size();) {
        const ssize_t tGot =
            mFileSystem.read(tFile.fd(), pTo->data() + tAt, static_cast<size_t>(pTo->size() - tAt));
        if (tGot == 0) {
            return Failure::content(u"%1 is shorter than its index tells"_s.arg(tPath));
        }
        if (tGot < 0 && errno != EINTR) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(tPath));
        }
        tAt += std::max<ssize_t>(tGot, 0);
    }
    return {};
}

} // namespace tarn::vkpublish
