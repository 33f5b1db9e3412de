#include "packing/Packer.h"

#include "packing/FrameCutter.h"
#include "packing/FramePacker.h"
#include "packing/FrameSize.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>

#include <cerrno>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using os::FileSystem;

namespace {

// The archive file: receives the packed bytes and hashes them.
class Output
{
public:
    Output(FileSystem& pFileSystem, const QString& pPath) : mFileSystem(pFileSystem), mPath(pPath)
    {
        // What is there may belong to somebody else, who could change it later.
        if (mFileSystem.unlink(QFile::encodeName(pPath)) != 0 && errno != ENOENT) {
            return;
        }
        mFile = os::Descriptor(mFileSystem,
                               mFileSystem.open(QFile::encodeName(pPath),
                                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    }
    ~Output()
    {
        if (!mFinished) {
            mFileSystem.unlink(QFile::encodeName(mPath));
        }
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    bool isOpen() const { return mFile.isOpen(); }

    Failure write(const QByteArray& pBytes)
    {
        mHasher.add(pBytes);
        mLength += pBytes.size();
        return os::writeAll(mFileSystem, mFile.fd(), pBytes.constData(),
                            static_cast<size_t>(pBytes.size())) == 0
                   ? Failure()
                   : failure();
    }

    Failure finish(PackResult* pTo)
    {
        if (mFileSystem.fsync(mFile.fd()) != 0 || mFile.close() != 0) {
            return failure();
        }
        mFinished = true;
        pTo->mLength = mLength;
        pTo->mHashes = mHasher.result();
        return {};
    }

    Failure failure() const { return Failure::fromErrno(errno, u"write %1"_s.arg(mPath)); }

private:
    FileSystem& mFileSystem;
    QString mPath;
    os::Descriptor mFile;
    bool mFinished = false;
    qint64 mLength = 0;
    tuf::Hasher mHasher{tuf::HashAlgorithm::Sha256};
};

// Cuts the stream into frames, and notes where each file is in it.
class Frames : public TarSink
{
public:
    Frames(qint64 pFrameSize, FramePacker* pPacker) : mCutter(pFrameSize), mPacker(pPacker) {}

    Failure beginEntry(qint64 pLength) override { return mCutter.begin(pLength) ? flush() : Failure(); }

    Failure write(QByteArrayView pBytes) override
    {
        if (mContent) {
            mContent->add(pBytes);
        }
        mPosition += pBytes.size();
        while (!pBytes.isEmpty()) {
            const qint64 tCount = std::min<qint64>(mCutter.room(), pBytes.size());
            mFrame.append(pBytes.first(tCount));
            pBytes = pBytes.sliced(tCount);
            if (mCutter.advance(tCount)) {
                if (Failure tFailure = flush()) {
                    return tFailure;
                }
            }
        }
        return {};
    }

    void beginContent(const FolderEntry& /*pEntry*/) override
    {
        mContent = std::make_unique<tuf::Hasher>(tuf::HashAlgorithm::Sha256);
        mFiles.push_back({.mAt = mPosition, .mHash = {}});
    }
    void endContent() override
    {
        mFiles.back().mHash = mContent->result().front();
        mContent.reset();
    }

    Failure flush()
    {
        return mFrame.isEmpty() ? Failure() : mPacker->add(std::exchange(mFrame, QByteArray()));
    }

    struct File
    {
        qint64 mAt = 0; // in the stream
        tuf::Hash mHash;
    };
    const std::vector<File>& files() const { return mFiles; }

private:
    FrameCutter mCutter;
    FramePacker* mPacker;
    QByteArray mFrame;
    qint64 mPosition = 0; // in the stream
    std::unique_ptr<tuf::Hasher> mContent;
    std::vector<File> mFiles;
};

std::vector<trees::IndexEntry> indexEntries(const TarStream& pStream,
                                            const std::vector<FolderEntry>& pEntries,
                                            const std::vector<Frames::File>& pFiles)
{
    std::vector<trees::IndexEntry> tEntries;
    auto tFile = pFiles.begin();
    for (const FolderEntry& tEntry : pEntries) {
        trees::IndexEntry tNew;
        tNew.mPath = tEntry.mPath;
        if (S_ISLNK(tEntry.mStat.st_mode)) {
            tNew.mKind = trees::EntryKind::Link;
            tNew.mTarget = tEntry.mLinkTarget;
        } else if (S_ISREG(tEntry.mStat.st_mode)) {
            tNew.mKind = trees::EntryKind::File;
            tNew.mIsExecutable = TarStream::isExecutable(tEntry);
            tNew.mTime = pStream.timeOf(tEntry);
            tNew.mSize = tEntry.mStat.st_size;
            tNew.mHash = tFile->mHash;
            tNew.mAt = tFile->mAt;
            ++tFile;
        }
        tEntries.push_back(tNew);
    }
    return tEntries;
}

} // namespace

Failure packFolder(FileSystem& pFileSystem, const QString& pFolder, const std::vector<FolderEntry>& pEntries,
                   const PackOptions& pOptions, const QString& pArchive, PackResult* pTo)
{
    Output tOutput(pFileSystem, pArchive);
    if (!tOutput.isOpen()) {
        return tOutput.failure();
    }
    TarStream tStream(pFileSystem, pFolder, pOptions.mLatest);
    const Result<qint64> tFrameSize = chooseFrameSize(tStream, pEntries);
    if (!tFrameSize) {
        return tFrameSize.failure();
    }
    FramePacker tPacker(pOptions.mLevel, pOptions.mThreads,
                        [&](const QByteArray& pPacked) { return tOutput.write(pPacked); });
    Frames tFrames(*tFrameSize, &tPacker);
    if (Failure tFailure = tStream.run(pEntries, &tFrames)) {
        return tFailure;
    }
    if (Failure tFailure = tFrames.flush()) {
        return tFailure;
    }
    if (Failure tFailure = tPacker.finish()) {
        return tFailure;
    }
    pTo->mFrames = tPacker.frames();
    pTo->mEntries = indexEntries(tStream, pEntries, tFrames.files());
    for (const trees::IndexEntry& tEntry : pTo->mEntries) {
        pTo->mInstalledSize += tEntry.mSize;
    }
    return tOutput.finish(pTo);
}

} // namespace tarn::vkpublish
