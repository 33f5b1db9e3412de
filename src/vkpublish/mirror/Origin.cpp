#include "mirror/Origin.h"

#include "network/HttpsFetcher.h"
#include "network/Receiver.h"
#include "publication/Layout.h"

#include "os/Descriptor.h"
#include "os/FileSystem.h"

#include <QtCore/QFile>
#include <QtCore/QUrl>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qsizetype sBlockSize = 1024 * 1024;

HttpsAccess below(HttpsAccess pAccess, const QString& pFolder)
{
    pAccess.mFolder = pFolder;
    return pAccess;
}

class WebOrigin : public Origin
{
public:
    WebOrigin(const QString& pAddress, const HttpsAccess& pAccess)
        : mMetadata(below(pAccess, metadataFolder(pAddress))),
          mTargets(below(pAccess, targetsFolder(pAddress)))
    {
    }

    tuf::Fetcher& metadata() override { return mMetadata; }
    Failure get(const QString& pPath, Receiver& pTo) override
    {
        return mTargets.get(pPath, HttpsClient::Size::Large, pTo);
    }

private:
    HttpsFetcher mMetadata;
    HttpsClient mTargets;
};

class FolderOrigin : public Origin
{
public:
    FolderOrigin(os::FileSystem& pFileSystem, const QString& pFolder)
        : mFileSystem(pFileSystem), mFolder(targetsFolder(pFolder)),
          mMetadata(pFileSystem, metadataFolder(pFolder))
    {
    }

    tuf::Fetcher& metadata() override { return mMetadata; }
    Failure get(const QString& pPath, Receiver& pTo) override;

private:
    os::FileSystem& mFileSystem;
    QString mFolder;
    FolderFetcher mMetadata;
};

Failure FolderOrigin::get(const QString& pPath, Receiver& pTo)
{
    const QString tPath = mFolder + u'/' + QUrl::fromPercentEncoding(pPath.toLatin1());
    // Not blocking: a pipe in place of the file must not block the run.
    const os::Descriptor tFile(mFileSystem,
                               mFileSystem.open(QFile::encodeName(tPath), O_RDONLY | O_NONBLOCK));
    struct stat tStat;
    if (!tFile.isOpen() || ::fstat(tFile.fd(), &tStat) != 0) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(tPath));
    }
    if (!S_ISREG(tStat.st_mode)) {
        return Failure::content(u"%1 is not a regular file"_s.arg(tPath));
    }
    if (::lseek(tFile.fd(), pTo.received(), SEEK_SET) < 0) {
        return Failure::fromErrno(errno, u"read %1"_s.arg(tPath));
    }
    QByteArray tBlock(sBlockSize, Qt::Uninitialized);
    for (;;) {
        const ssize_t tGot = mFileSystem.read(tFile.fd(), tBlock.data(), static_cast<size_t>(tBlock.size()));
        if (tGot == 0) {
            return {};
        }
        if (tGot < 0 && errno != EINTR) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(tPath));
        }
        if (tGot > 0) {
            if (Failure tFailure = pTo.write(QByteArrayView(tBlock).first(tGot))) {
                return tFailure;
            }
        }
    }
}

} // namespace

std::unique_ptr<Origin> openOrigin(os::FileSystem& pFileSystem, const Place& pPlace,
                                   const HttpsAccess& pAccess)
{
    if (pPlace.mIsWeb) {
        return std::make_unique<WebOrigin>(pPlace.mPath, pAccess);
    }
    return std::make_unique<FolderOrigin>(pFileSystem, pPlace.mPath);
}

} // namespace tarn::vkpublish
