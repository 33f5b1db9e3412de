#include "vkc_Application.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

namespace tarn::vkc {

bool VKCApplication::connectToServer(bool pStartService)
{
    if (mClient == nullptr) {
        mClient = new vkcore::IPCClient(this, nullptr);
    }
    if (mLink.connect(mClient, pStartService)) {
        return true;
    }
    printError(tr("Connection to the service failed!"));
    const QFileInfo tSocket(mClient->serverName());
    const QString tDir = tSocket.isRelative() ? QDir::tempPath() : tSocket.dir().absolutePath();
    return printError(tr("Please check the permissions of %1").arg(tDir));
}

void VKCApplication::cleanupServiceWorker()
{
    if (mQuitRequested) {
        mLink.releaseWorker();
    }
    mLink.endWorker();
}

bool VKCApplication::connectForChange()
{
    if (!connectToServer(true)) {
        return false;
    }
    if (mClient->isServiceActive(nullptr)) {
        return printError(tr("Cannot update settings while the service is active."));
    }
    if (mClient->isVKClientActive()) {
        return printError(tr("Cannot update settings while the wizard is active."));
    }
    return true;
}

} // namespace tarn::vkc
