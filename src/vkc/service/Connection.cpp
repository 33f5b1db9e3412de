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
    writeStdErr(tr("Connection to the service failed!"), true, true);
    const QFileInfo tSocket(mClient->serverName());
    const QString tDir = tSocket.isRelative() ? QDir::tempPath() : tSocket.dir().absolutePath();
    writeStdErr(tr("Please check the permissions of %1").arg(tDir), true, true);
    return false;
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
        writeStdErr(tr("Cannot update settings while the service is active."), true, true);
        return false;
    }
    if (mClient->isVKClientActive()) {
        writeStdErr(tr("Cannot update settings while the wizard is active."), true, true);
        return false;
    }
    return true;
}

} // namespace tarn::vkc
