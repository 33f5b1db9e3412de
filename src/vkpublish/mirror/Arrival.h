#pragma once

#include "network/Receiver.h"

#include "os/PrivateFolder.h"
#include "tuf/Hashes.h"

#include <functional>
#include <memory>

namespace tarn::vkpublish {

class Origin;

// A file of a repository, as signed.
struct SignedFile
{
    QString mPath;      // below the repository's folder
    QString mFetchPath; // below its targets folder, percent-encoded
    qint64 mLength = 0;
    tuf::HashList mHashes;
};

// A file on its way into a mirror, in a private folder until it is proven. Its name there is its hash, so
// what a kill has left is continued, and never as another file.
class Arrival : public Receiver
{
public:
    Arrival(os::FileSystem& pFileSystem, const os::PrivateFolder& pFolder, const SignedFile& pFile);

    // Gets, proves and syncs the file, and then gives it the name pTo. A broken transfer continues a few
    // times, after pauses; pWait waits that many seconds.
    Failure bring(Origin& pOrigin, const QString& pTo, const std::function<void(int)>& pWait);
    // The bytes that the origin has sent.
    qint64 transferred() const { return mTransferred; }

    qint64 received() const override { return mReceived; }
    Failure restart() override;
    Failure write(QByteArrayView pData) override;

private:
    Failure open();
    Failure transfer(Origin& pOrigin, const std::function<void(int)>& pWait);
    Failure prove();
    Failure place(const QString& pTo);
    QString path() const { return mFolder.pathOf(mName); }

    os::FileSystem& mFileSystem;
    const os::PrivateFolder& mFolder;
    const SignedFile& mSigned;
    QByteArray mName;
    os::Descriptor mFile;
    std::unique_ptr<tuf::Hasher> mHasher;
    qint64 mReceived = 0;
    qint64 mTransferred = 0;
};

} // namespace tarn::vkpublish
