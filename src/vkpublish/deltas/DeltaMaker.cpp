#include "deltas/DeltaMaker.h"

#include "deltas/DeltaPlan.h"
#include "deltas/Relation.h"
#include "deltas/SegmentPacker.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "os/HelperThreads.h"
#include "trees/IndexWriter.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>

#include <cerrno>
#include <condition_variable>
#include <map>
#include <mutex>
#include <numeric>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using os::Descriptor;

using os::FileSystem;
using trees::Segment;

namespace {

constexpr qsizetype sBlockSize = 256 * 1024;

// A new file that is removed again unless it is kept.
class NewFile
{
public:
    NewFile(FileSystem& pFileSystem, const QString& pPath) : mFileSystem(pFileSystem), mPath(pPath) {}
    ~NewFile()
    {
        if (mIsMade && !mIsKept) {
            mFileSystem.unlink(QFile::encodeName(mPath));
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // What is there may belong to somebody else, who could change it later.
    Failure open()
    {
        if (mFileSystem.unlink(QFile::encodeName(mPath)) != 0 && errno != ENOENT) {
            return failure();
        }
        mFile = Descriptor(mFileSystem,
                           mFileSystem.open(QFile::encodeName(mPath),
                                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        mIsMade = mFile.isOpen();
        return mIsMade ? Failure() : failure();
    }
    Failure write(const QByteArray& pBytes)
    {
        return os::writeAll(mFileSystem, mFile.fd(), pBytes.constData(),
                            static_cast<size_t>(pBytes.size())) == 0
                   ? Failure()
                   : failure();
    }
    Failure keep()
    {
        if (mFileSystem.fsync(mFile.fd()) != 0 || mFile.close() != 0) {
            return failure();
        }
        mIsKept = true;
        return {};
    }
    const QString& path() const { return mPath; }

private:
    Failure failure() const { return Failure::fromErrno(errno, u"write %1"_s.arg(mPath)); }

    FileSystem& mFileSystem;
    QString mPath;
    Descriptor mFile;
    bool mIsMade = false;
    bool mIsKept = false;
};

Failure readAll(const PackageVersion& pFrom, const trees::Pieces& pPieces, QByteArray* pTo)
{
    pTo->clear();
    for (const trees::Piece& tPiece : pPieces) {
        if (Failure tFailure = pFrom.read(tPiece, pTo)) {
            return tFailure;
        }
    }
    return {};
}

Failure readSegment(const PackageVersion& pOld, const PackageVersion& pNew, const Segment& pSegment,
                    QByteArray* pBase, QByteArray* pMade)
{
    const Failure tFailure = readAll(pOld, pSegment.mFrom, pBase);
    return tFailure ? tFailure : readAll(pNew, pSegment.mMakes, pMade);
}

// What the files take, packed as the archive is, that have nothing in common with old ones.
Failure estimateUnrelated(const PackageVersion& pOld, const PackageVersion& pNew,
                          const std::vector<Segment>& pSegments, qint64* pBytes)
{
    qint64 tUnrelated = 0;
    QByteArray tBase;
    QByteArray tMade;
    for (const Segment& tSegment : pSegments) {
        if (Failure tFailure = readSegment(pOld, pNew, tSegment, &tBase, &tMade)) {
            return tFailure;
        }
        tUnrelated += areRelated(tBase, tMade) ? 0 : tMade.size();
    }
    const qint64 tAll = std::accumulate(pNew.sizes().begin(), pNew.sizes().end(), qint64(0));
    *pBytes =
        static_cast<qint64>(static_cast<double>(tUnrelated) / static_cast<double>(std::max<qint64>(tAll, 1)) *
                            static_cast<double>(pNew.archiveSize()));
    return {};
}

// Packs the segments, several at a time, and writes them in their order.
class Work
{
public:
    Work(const PackageVersion& pOld, const PackageVersion& pNew, std::vector<Segment>* pSegments,
         NewFile* pOutput)
        : mOld(pOld), mNew(pNew), mSegments(*pSegments), mOutput(pOutput)
    {
    }

    Failure run(int pThreads)
    {
        mMaxWaiting = 2 * static_cast<size_t>(pThreads);
        os::HelperThreads tThreads(static_cast<size_t>(pThreads) - 1, [this] { packAll(); });
        packAll();
        tThreads.join();
        return mFailure;
    }

private:
    void packAll()
    {
        while (const std::optional<size_t> tNumber = take()) {
            PackedSegment tPacked;
            const Failure tFailure = pack(mSegments[*tNumber], &tPacked);
            finish(*tNumber, tFailure, tPacked);
        }
    }

    // The number of the next segment to pack, once the one that all wait for is not too far behind.
    std::optional<size_t> take()
    {
        std::unique_lock tLock(mMutex);
        mChanged.wait(tLock, [this] { return mFailure || mTaken < mWritten + mMaxWaiting; });
        return mFailure || mTaken == mSegments.size() ? std::nullopt : std::optional(mTaken++);
    }

    Failure pack(const Segment& pSegment, PackedSegment* pTo) const
    {
        QByteArray tBase;
        QByteArray tMade;
        if (Failure tFailure = readSegment(mOld, mNew, pSegment, &tBase, &tMade)) {
            return tFailure;
        }
        *pTo = packSegment(tBase, tMade);
        return pTo->mBytes.isEmpty() ? Failure::content(u"A segment of a delta cannot be packed"_s)
                                     : Failure();
    }

    void finish(size_t pNumber, const Failure& pFailure, const PackedSegment& pPacked)
    {
        const std::lock_guard tLock(mMutex);
        mFailure = mFailure ? mFailure : pFailure;
        mReady.emplace(pNumber, pPacked);
        while (!mFailure && !mReady.empty() && mReady.begin()->first == mWritten) {
            const PackedSegment& tNext = mReady.begin()->second;
            mSegments[mWritten].mMethod = tNext.mMethod;
            mSegments[mWritten].mPacked.mLength = tNext.mBytes.size();
            mFailure = mOutput->write(tNext.mBytes);
            mReady.erase(mReady.begin());
            ++mWritten;
        }
        mChanged.notify_all();
    }

    const PackageVersion& mOld;
    const PackageVersion& mNew;
    std::vector<Segment>& mSegments;
    NewFile* mOutput;
    size_t mMaxWaiting = 0;

    std::mutex mMutex; // guards what follows, and the segments' methods and lengths
    std::condition_variable mChanged;
    size_t mTaken = 0;
    size_t mWritten = 0;
    std::map<size_t, PackedSegment> mReady;
    Failure mFailure;
};

// Lays open the files that the segments read.
Failure layOpen(const std::vector<Segment>& pSegments, PackageVersion& pOld, PackageVersion& pNew)
{
    std::vector<qint64> tOld;
    std::vector<qint64> tNew;
    const auto tAdd = [](const trees::Pieces& pPieces, std::vector<qint64>* pTo) {
        for (const trees::Piece& tPiece : pPieces) {
            if (pTo->empty() || pTo->back() != tPiece.mEntry) {
                pTo->push_back(tPiece.mEntry);
            }
        }
    };
    for (const Segment& tSegment : pSegments) {
        tAdd(tSegment.mFrom, &tOld);
        tAdd(tSegment.mMakes, &tNew);
    }
    if (Failure tFailure = pOld.layOpen(std::move(tOld))) {
        return tFailure;
    }
    return pNew.layOpen(std::move(tNew));
}

// The trees and the threads are not in memory at the same time.
Failure plan(PackageVersion& pOld, PackageVersion& pNew, std::vector<Segment>* pTo)
{
    Failure tFailure = pOld.readEntries();
    tFailure = tFailure ? tFailure : pNew.readEntries();
    if (!tFailure) {
        *pTo = planDelta(pOld, pNew);
        tFailure = layOpen(*pTo, pOld, pNew);
    }
    pOld.dropTree();
    pNew.dropTree();
    return tFailure;
}

QByteArray header(const PackageVersion& pOld, const PackageVersion& pNew,
                  const std::vector<Segment>& pSegments)
{
    trees::DeltaHeader tHeader{
        .mOld = pOld.index(), .mNew = pNew.index(), .mSegments = static_cast<qint64>(pSegments.size())};
    QByteArray tLines;
    for (const Segment& tSegment : pSegments) {
        tHeader.mPacked += tSegment.mPacked.mLength;
        tLines += toLine(tSegment, pOld.sizes(), pNew.sizes()) + '\n';
    }
    return trees::packIndex(toLine(tHeader) + '\n' + tLines);
}

// The header, and behind it what the other file holds.
Failure putTogether(FileSystem& pFileSystem, const QByteArray& pHeader, const QString& pSegments,
                    NewFile* pOutput, DeltaResult* pTo)
{
    const Descriptor tFrom(pFileSystem, pFileSystem.open(QFile::encodeName(pSegments), O_RDONLY | O_CLOEXEC));
    if (!tFrom.isOpen()) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(pSegments));
    }
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    QByteArray tBytes = pHeader;
    ssize_t tGot = 0;
    do {
        tHasher.add(tBytes);
        pTo->mLength += tBytes.size();
        if (Failure tFailure = pOutput->write(tBytes)) {
            return tFailure;
        }
        tBytes.resize(sBlockSize);
        tGot = pFileSystem.read(tFrom.fd(), tBytes.data(), static_cast<size_t>(sBlockSize));
        tBytes.resize(std::max<ssize_t>(tGot, 0));
    } while (tGot > 0);
    pTo->mHash = tHasher.result().front();
    return tGot == 0 ? Failure() : Failure::fromErrno(errno, u"read %1"_s.arg(pSegments));
}

} // namespace

Failure makeDelta(FileSystem& pFileSystem, PackageVersion& pOld, PackageVersion& pNew, int pThreads,
                  qint64 pMostBytes, const QString& pOutput, DeltaResult* pTo)
{
    NewFile tPacked(pFileSystem, pOutput + u".segments"_s);
    NewFile tOutput(pFileSystem, pOutput);
    for (NewFile* tFile : {&tPacked, &tOutput}) {
        if (Failure tFailure = tFile->open()) {
            return tFailure;
        }
    }
    std::vector<Segment> tSegments;
    if (Failure tFailure = plan(pOld, pNew, &tSegments)) {
        return tFailure;
    }
    qint64 tUnrelated = 0;
    if (Failure tFailure = estimateUnrelated(pOld, pNew, tSegments, &tUnrelated)) {
        return tFailure;
    }
    if (tUnrelated >= pMostBytes) {
        return {};
    }
    if (Failure tFailure = Work(pOld, pNew, &tSegments, &tPacked).run(std::max(pThreads, 1))) {
        return tFailure;
    }
    if (Failure tFailure =
            putTogether(pFileSystem, header(pOld, pNew, tSegments), tPacked.path(), &tOutput, pTo)) {
        return tFailure;
    }
    return tOutput.keep();
}

} // namespace tarn::vkpublish
