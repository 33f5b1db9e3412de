#include <vkcore/Server.h>

#include <QtCore/QDir>

namespace tarn::vkcore {

// The application is part of the public signature, but unused.
Server::Server(Application*) {}
Server::~Server() = default;

QString Server::getSuggestedName() const
{
    const QUrl tUrl = getUrl();
    if (tUrl.isLocalFile()) {
        return QDir(QDir::cleanPath(tUrl.toLocalFile())).dirName();
    }
    return tUrl.host();
}

QUrl Server::getUrl() const
{
    return QUrl::fromEncoded(mUri.toUtf8(), QUrl::TolerantMode);
}

} // namespace tarn::vkcore
