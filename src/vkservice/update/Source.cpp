#include "update/Source.h"

#include "update/FileSource.h"
#include "update/HttpSource.h"
#include "update/RunRequest.h"

#include <QtCore/QUrl>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

std::unique_ptr<Source> makeSource(const ServerAccess& pServer, const RunRequest& pRequest,
                                   os::FileSystem& pFileSystem, QString* pReason)
{
    const QUrl tUrl(pServer.mUri);
    if (tUrl.isLocalFile() && !tUrl.toLocalFile().isEmpty()) {
        return std::make_unique<FileSource>(pFileSystem, tUrl.toLocalFile());
    }
    if (tUrl.scheme() == "https"_L1 && !tUrl.host().isEmpty()) {
        return std::make_unique<HttpSource>(pServer, pRequest);
    }
    *pReason = u"Its address must begin with https:// or file://"_s;
    return nullptr;
}

} // namespace tarn::vkservice::update
