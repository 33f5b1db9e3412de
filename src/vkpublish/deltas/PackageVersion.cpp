#include "deltas/PackageVersion.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "trees/FrameStream.h"
#include "trees/IndexText.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using os::Descriptor;
using trees::FrameTable;
using trees::Tree;

namespace {

constexpr mode_t sPrivate = 0700;
constexpr mode_t sPrivateFile = 0600;
constexpr qsizetype sBlockSize = 256 * 1024;

} // namespace

// Takes files out of an archive, in their order, and writes them one behind the other.
class PackageVersion::Extraction
{
public:
    explicit Extraction(PackageVersion& pOf)
        : mOf(pOf), mFrames(pOf.mTree.frames()),
          mStream(pOf.mFileSystem, mFrames, {0, mFrames.count(), {0, mFrames.packedSize()}})
    {
    }

    Failure open()
    {
        const QByteArray tContent = QFile::encodeName(mOf.contentPath());
        const int tFlags = O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC;
        mContent = Descriptor(mOf.mFileSystem, mOf.mFileSystem.open(tContent, tFlags, sPrivateFile));
        return mContent.isOpen() ? mStream.open(mOf.mArchive) : writeFailure();
    }

    Failure take(qint64 pFile)
    {
        const Tree::Node& tNode = mOf.mTree.at(static_cast<size_t>(pFile - 1));
        if (Failure tFailure =
                check(mFrames.frameAt(tNode.mAt), mFrames.frameAt(tNode.mAt + tNode.mSize - 1))) {
            return tFailure;
        }
        if (Failure tFailure = mStream.skipTo(tNode.mAt)) {
            return tFailure;
        }
        tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
        for (qint64 tLeft = tNode.mSize; tLeft > 0;) {
            QByteArrayView tBytes;
            if (Failure tFailure = mStream.read(tLeft, &tBytes)) {
                return tFailure;
            }
            tHasher.add(tBytes);
            if (Failure tFailure = write(tBytes)) {
                return tFailure;
            }
            tLeft -= tBytes.size();
        }
        if (trees::digestOf(tHasher.result().front()) != tNode.mHash) {
            return Failure::content(u"%1 in %2 does not have the hash that the index names"_s.arg(
                QString::fromUtf8(mOf.mTree.path(tNode)), mOf.mArchive));
        }
        mOf.mPlaces[static_cast<size_t>(pFile)] = mOf.mContentSize;
        mOf.mContentSize += tNode.mSize;
        return {};
    }

    Failure finish()
    {
        Failure tFailure = flush();
        return !tFailure && mContent.close() != 0 ? writeFailure() : tFailure;
    }

private:
    Failure check(qsizetype pFirst, qsizetype pLast)
    {
        pFirst = std::max(pFirst, mChecked);
        mChecked = std::max(mChecked, pLast + 1);
        return pFirst > pLast
                   ? Failure()
                   : trees::checkArchive(mOf.mFileSystem, mOf.mArchive, mFrames, pFirst, pLast + 1 - pFirst);
    }

    Failure write(QByteArrayView pBytes)
    {
        mWaiting.append(pBytes);
        return mWaiting.size() < sBlockSize ? Failure() : flush();
    }

    Failure flush()
    {
        const QByteArray tBytes = std::exchange(mWaiting, QByteArray());
        return os::writeAll(mOf.mFileSystem, mContent.fd(), tBytes.constData(),
                            static_cast<size_t>(tBytes.size())) == 0
                   ? Failure()
                   : writeFailure();
    }

    Failure writeFailure() const { return Failure::fromErrno(errno, u"write %1"_s.arg(mOf.contentPath())); }

    PackageVersion& mOf;
    const FrameTable& mFrames;
    trees::FrameStream mStream;
    qsizetype mChecked = 0; // frames up to here are
    Descriptor mContent;
    QByteArray mWaiting;
};

PackageVersion::~PackageVersion()
{
    if (!mScratch.isEmpty()) {
        (void)os::removeTree(mFileSystem, mScratch); // the next publication removes what is left
    }
}

Failure PackageVersion::open(const QString& pIndex, const QString& pArchive,
                             const trees::IndexLimits& pLimits, const QString& pScratch)
{
    if (mFileSystem.makeDir(QFile::encodeName(pScratch), sPrivate) != 0) {
        return Failure::fromErrno(errno, u"make %1"_s.arg(pScratch));
    }
    mScratch = pScratch;
    mPath = pIndex;
    mArchive = pArchive;
    mLimits = pLimits;
    // The text is there unpacked, so that any part of it can be read.
    return trees::unpackIndex(mFileSystem, pIndex, textPath(), &mIndex);
}

Failure PackageVersion::readEntries()
{
    dropTree();
    if (Failure tFailure = mTree.read(mFileSystem, mPath, mLimits)) {
        return tFailure;
    }
    mSizes = mTree.sizes();
    mSizes[0] = mIndex.mLength;
    mPlaces.resize(mSizes.size(), -1); // what is laid open stays so
    return {};
}

QString PackageVersion::textPath() const
{
    return mScratch + u"/index"_s;
}

QString PackageVersion::contentPath() const
{
    return mScratch + u"/content"_s;
}

Failure PackageVersion::layOpen(std::vector<qint64> pFiles)
{
    std::erase_if(pFiles,
                  [this](qint64 pFile) { return pFile == 0 || mPlaces[static_cast<size_t>(pFile)] >= 0; });
    if (pFiles.empty()) {
        return {};
    }
    std::sort(pFiles.begin(), pFiles.end());
    pFiles.erase(std::unique(pFiles.begin(), pFiles.end()), pFiles.end());
    Extraction tExtraction(*this);
    if (Failure tFailure = tExtraction.open()) {
        return tFailure;
    }
    for (const qint64 tFile : pFiles) {
        if (Failure tFailure = tExtraction.take(tFile)) {
            return tFailure;
        }
    }
    return tExtraction.finish();
}

Failure PackageVersion::read(const trees::Piece& pPiece, QByteArray* pTo) const
{
    const QString tPath = pPiece.mEntry == 0 ? textPath() : contentPath();
    const qint64 tPlace = pPiece.mEntry == 0 ? 0 : mPlaces[static_cast<size_t>(pPiece.mEntry)];
    const Descriptor tFile(mFileSystem,
                           mFileSystem.open(QFile::encodeName(tPath), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!tFile.isOpen() || ::lseek(tFile.fd(), tPlace + pPiece.mBytes.mFirst, SEEK_SET) < 0) {
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
