#include "MetadataSource.h"

#include "HttpsFetcher.h"
#include "Layout.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"

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
    return tuf::readWholeFile(mFileSystem, mFolder + u'/' + QUrl::fromPercentEncoding(pPath.toLatin1()),
                              pMaxLength, pTo);
}

std::unique_ptr<tuf::Fetcher> openMetadata(const QString& pPlace, const QString& pCaFile, QString* pError)
{
    const QUrl tUrl(pPlace);
    if (tUrl.scheme() == "https"_L1 && !tUrl.host().isEmpty()) {
        if (!tUrl.userInfo().isEmpty()) {
            *pError = u"Other users of this machine can see a password in an address: put user "
                      "and password into ~/.netrc"_s;
            return nullptr;
        }
        return std::make_unique<HttpsFetcher>(metadataFolder(pPlace), pCaFile);
    }
    if (pPlace.contains("://"_L1) && !tUrl.isLocalFile()) {
        *pError = u"%1 is neither a folder nor an address that begins with https:// or file://"_s.arg(pPlace);
        return nullptr;
    }
    const QString tFolder = tUrl.isLocalFile() ? tUrl.toLocalFile() : pPlace;
    return std::make_unique<FolderFetcher>(os::realFileSystem(),
                                           metadataFolder(QDir::current().absoluteFilePath(tFolder)));
}

} // namespace tarn::vkpublish
