#include "network/MetadataSource.h"

#include "network/HttpsFetcher.h"
#include "publication/Layout.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"

#include <QtCore/QDir>
#include <QtCore/QUrl>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

FolderFetcher::FolderFetcher(os::FileSystem& pFileSystem, const QString& pFolder)
    : mFileSystem(pFileSystem), mFolder(pFolder)
{
}

Failure FolderFetcher::fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
{
    const QString tPath = mFolder + u'/' + QUrl::fromPercentEncoding(pPath.toLatin1());
    const Result<QByteArray> tFile = os::readFile(mFileSystem, tPath, pMaxLength);
    *pTo = tFile.valueOr({});
    return tFile.failure().mKind == Failure::Kind::Content ? tFile.failure().as(Failure::Kind::Untrusted)
                                                           : tFile.failure();
}

Result<Place> readPlace(const QString& pText)
{
    const QUrl tUrl(pText);
    if (tUrl.scheme() == "https"_L1 && !tUrl.host().isEmpty()) {
        if (!tUrl.userInfo().isEmpty()) {
            return Failure::content(u"Other users of this machine can see a password in an address: put user "
                                    "and password into ~/.netrc"_s);
        }
        return Place{true, tUrl.toString(QUrl::FullyEncoded | QUrl::StripTrailingSlash)};
    }
    if (pText.contains("://"_L1) && !tUrl.isLocalFile()) {
        return Failure::content(
            u"%1 is neither a folder nor an address that begins with https:// or file://"_s.arg(pText));
    }
    const QString tFolder = tUrl.isLocalFile() ? tUrl.toLocalFile() : pText;
    return Place{false, QDir::cleanPath(QDir::current().absoluteFilePath(tFolder))};
}

Result<std::unique_ptr<tuf::Fetcher>> openMetadata(const QString& pPlace, const QString& pCaFile)
{
    const Result<Place> tPlace = readPlace(pPlace);
    if (!tPlace) {
        return tPlace.failure();
    }
    const QString tFolder = metadataFolder(tPlace->mPath);
    if (tPlace->mIsWeb) {
        return std::unique_ptr<tuf::Fetcher>(new HttpsFetcher({.mFolder = tFolder, .mCaFile = pCaFile}));
    }
    return std::unique_ptr<tuf::Fetcher>(new FolderFetcher(os::realFileSystem(), tFolder));
}

} // namespace tarn::vkpublish
