#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

namespace tarn::vkc {

bool VKCApplication::connectToServer(bool pStartService)
{
    if (mClient == nullptr) {
        mClient = new vkcore::IPCClient(this, nullptr);
    }
    if (connectToServer(mClient, pStartService)) {
        return true;
    }
    printError(tr("Connection to the service failed!"));
    const QFileInfo tSocket(mClient->serverName());
    const QString tDir = tSocket.isRelative() ? QDir::tempPath() : tSocket.dir().absolutePath();
    return printError(tr("Please check the permissions of %1").arg(tDir));
}

bool VKCApplication::connectToServer(vkcore::IPCClient* pClient, bool pStartService)
{
    if (optPassed(OPT_SOCKET)) {
        pClient->setServerName(optArg(OPT_SOCKET, QString()));
    }
    if (pClient->testConnect(5000)) {
        return pClient->ping();
    }
    return pStartService && startService() && pingWorker(pClient);
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
