#pragma once

#include "os/PrivateFolder.h"
#include "packages/TreeFiles.h"
#include "tuf/Hashes.h"
#include "tuf/TargetFile.h"
#include "update/Sink.h"
#include "update/Source.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace tarn::os {
class AbortFlag;
}
namespace tarn::trees {
class FrameTable;
}

namespace tarn::vkservice::update {

// What a download must be: a file of the server or a part of it, proven by signed hashes.
struct Wanted
{
    struct Piece
    {
        qint64 mLength = 0;
        tuf::HashList mHashes;

        bool operator==(const Piece&) const = default;
    };

    QByteArray mName;   // in the folder of downloads
    QString mTitle;     // for messages
    QString mFetchPath; // below the server's targets folder
    std::optional<FilePart> mPart;
    qint64 mLength = 0;
    std::deque<Piece> mPieces; // make up mLength, in this order

    static Wanted archive(const tuf::TargetFile& pTarget);
    // An index, a delta or an attachment; pName is that of the file on the server.
    static Wanted sideFile(const packages::SideFile& pFile, const QString& pName);
    // Neighbouring frames of an archive, proven by the hashes of its index.
    static Wanted frames(const tuf::TargetFile& pTarget, const trees::FrameTable& pFrames, qsizetype pFirst,
                         qsizetype pCount);

    static QByteArray nameOf(const tuf::TargetFile& pTarget)
    {
        return tuf::namingHash(pTarget.mHashes).toHex();
    }
    // The archive or side file that a name of one of the above belongs to, or is a part of; null for
    // others.
    static QByteArray wholeOf(const QByteArray& pName);

    Failure notTheSigned() const;
};

// A file during its download, in the folder of downloads. It is named only by its expected hash and part. So
// a later run can resume it, and bytes of another file can never get in. Every byte is hashed, on arrival or
// when the file is opened again.
class DownloadFile : public Sink
{
public:
    DownloadFile(os::FileSystem& pFileSystem, const os::PrivateFolder& pFolder, Wanted pWanted);
    ~DownloadFile() override;

    const Wanted& wanted() const { return mWanted; }
    // Size of the file on disk, without opening it.
    qint64 onDisk() const { return mFolder.sizeOf(mWanted.mName); }
    bool isComplete() const { return onDisk() == mWanted.mLength; }

    // Creates the file, or opens an existing one and hashes its content. pProgress gets the bytes hashed
    // since its last call.
    Failure open(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress);
    // Called with the bytes received since its last call.
    void setProgress(const std::function<void(qint64)>& pProgress) { mProgress = pProgress; }

    qint64 received() const override { return mReceived; }
    qint64 maxLength() const override { return mWanted.mLength; }
    bool isResumable() const override { return true; }
    Failure restart() override;
    Failure write(QByteArrayView pData) override;
    // Writes what was received to disk, as far as possible.
    Failure close();

    // After close(): checks that this is what was signed. Removes the file if it is not.
    Failure verify();
    Failure discard();

private:
    class Proof;

    Failure hashFound(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress);
    Failure flush();
    Failure ioFailure(int pErrno) const;

    os::FileSystem& mFileSystem;
    const os::PrivateFolder& mFolder;
    Wanted mWanted;
    os::Descriptor mFile;
    std::unique_ptr<Proof> mProof;
    QByteArray mBuffer;
    qint64 mReceived = 0;
    std::function<void(qint64)> mProgress;
};

} // namespace tarn::vkservice::update
