#include "update/Source.h"

#include "update/FileSource.h"

#include <QtCore/QUrl>

namespace tarn::vkservice::update {

std::unique_ptr<Source> makeSource(const ServerAccess& pServer, const RunRequest&,
                                   os::FileSystem& pFileSystem, QString* pReason)
{
    const QUrl tUrl(pServer.mUri);
    if (tUrl.isLocalFile() && !tUrl.toLocalFile().isEmpty()) {
        return std::make_unique<FileSource>(pFileSystem, tUrl.toLocalFile());
    }
    *pReason = QStringLiteral("Its address must begin with https:// or file://");
    return nullptr;
}

} // namespace tarn::vkservice::update
