#include "MetadataSource.h"

#include "HttpsFetcher.h"
#include "Layout.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"

#include <QtCore/QDir>
#include <QtCore/QUrl>

namespace tarn::vkpublish {

FolderFetcher::FolderFetcher(os::FileSystem& pFileSystem, const QString& pFolder)
    : mFileSystem(pFileSystem), mFolder(pFolder)
{
}

tuf::Error FolderFetcher::fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
{
    return tuf::readWholeFile(mFileSystem,
                              mFolder + QLatin1Char('/') + QUrl::fromPercentEncoding(pPath.toLatin1()),
                              pMaxLength, pTo);
}

std::unique_ptr<tuf::Fetcher> openMetadata(const QString& pPlace, const QString& pCaFile, QString* pError)
{
    const QUrl tUrl(pPlace);
    if (tUrl.scheme() == QLatin1String("https") && !tUrl.host().isEmpty()) {
        if (!tUrl.userInfo().isEmpty()) {
            *pError = QStringLiteral("An address with a password in it can be seen by everybody on this "
                                     "machine: put user and password into ~/.netrc");
            return nullptr;
        }
        return std::make_unique<HttpsFetcher>(metadataFolder(pPlace), pCaFile);
    }
    if (pPlace.contains(QLatin1String("://")) && !tUrl.isLocalFile()) {
        *pError = QStringLiteral("%1 is not a folder, nor an address that begins with https:// or file://")
                      .arg(pPlace);
        return nullptr;
    }
    const QString tFolder = tUrl.isLocalFile() ? tUrl.toLocalFile() : pPlace;
    return std::make_unique<FolderFetcher>(os::realFileSystem(),
                                           metadataFolder(QDir::current().absoluteFilePath(tFolder)));
}

} // namespace tarn::vkpublish
