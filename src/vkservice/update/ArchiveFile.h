#pragma once

#include "os/PrivateFolder.h"
#include "tuf/Hashes.h"
#include "tuf/TargetFile.h"
#include "update/Sink.h"

#include <functional>
#include <memory>

namespace tarn::os {
class AbortFlag;
}

namespace tarn::vkservice::update {

Failure notTheSigned(const tuf::TargetFile& pTarget);

// A package during its download: a file in the folder of downloads, named only by its expected hash. So a
// later run can resume it, and bytes of another file can never get in. Every byte is hashed, on arrival or
// when the file is opened again.
class ArchiveFile : public Sink
{
public:
    ArchiveFile(os::FileSystem& pFileSystem, const os::PrivateFolder& pFolder,
                const tuf::TargetFile& pTarget);
    ~ArchiveFile() override;

    // The file's name in the folder.
    static QByteArray nameOf(const tuf::TargetFile& pTarget)
    {
        return tuf::namingHash(pTarget.mHashes).toHex();
    }
    // Size of the file on disk, without opening it.
    qint64 onDisk() const { return mFolder.sizeOf(mName); }
    bool isComplete() const { return onDisk() == mTarget.mLength; }

    // Creates the file, or opens an existing one and hashes its content. pProgress gets the bytes hashed
    // since its last call.
    Failure open(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress);
    // Called with the bytes received since its last call.
    void setProgress(const std::function<void(qint64)>& pProgress) { mProgress = pProgress; }

    qint64 received() const override { return mReceived; }
    qint64 maxLength() const override { return mTarget.mLength; }
    bool isResumable() const override { return true; }
    Failure restart() override;
    Failure write(QByteArrayView pData) override;
    // Writes what was received to disk, as far as possible.
    Failure close();

    // After close(): checks that this is the signed file. Removes the file if it is not.
    Failure verify();
    Failure discard();

private:
    Failure hashFound(const os::AbortFlag& pAbort, const std::function<void(qint64)>& pProgress);
    Failure flush();
    Failure ioFailure(int pErrno) const;

    os::FileSystem& mFileSystem;
    const os::PrivateFolder& mFolder;
    tuf::TargetFile mTarget;
    QByteArray mName;
    os::Descriptor mFile;
    std::unique_ptr<tuf::Hasher> mHasher;
    QByteArray mBuffer;
    qint64 mReceived = 0;
    std::function<void(qint64)> mProgress;
};

} // namespace tarn::vkservice::update
