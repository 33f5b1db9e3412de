#include "update/Source.h"

#include "update/FileSource.h"
#include "update/HttpSource.h"

#include <QtCore/QUrl>

namespace tarn::vkservice::update {

std::unique_ptr<Source> makeSource(const ServerAccess& pServer, const RunRequest& pRequest,
                                   os::FileSystem& pFileSystem, QString* pReason)
{
    const QUrl tUrl(pServer.mUri);
    if (tUrl.isLocalFile() && !tUrl.toLocalFile().isEmpty()) {
        return std::make_unique<FileSource>(pFileSystem, tUrl.toLocalFile());
    }
    if (tUrl.scheme() == QLatin1String("https") && !tUrl.host().isEmpty()) {
        return std::make_unique<HttpSource>(pServer, pRequest);
    }
    *pReason = QStringLiteral("Its address must begin with https:// or file://");
    return nullptr;
}

} // namespace tarn::vkservice::update
