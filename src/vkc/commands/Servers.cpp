#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

using vkcore::GRef;
using vkcore::Server;
using vkcore::ServerList;

// Servers are numbered from 1 for people, and by their position from 0 for the service.

GRef<ServerList> VKCApplication::fetchServerList()
{
    GRef<ServerList> tList(new ServerList(this));
    if (!mClient->getServerList(tList.get())) {
        printError(tr("Failed to get server list!"));
        return GRef<ServerList>();
    }
    return tList;
}

bool VKCApplication::readAddress(const QString& pTyped, QString* pUri)
{
    const QUrl tUrl = QUrl::fromUserInput(pTyped, QString());
    const QRegularExpression tSchemes(u"^(file|https)$"_s);
    if (!tUrl.isValid() || !tSchemes.match(tUrl.scheme()).hasMatch()) {
        return printError(tr("Invalid or unsupported URL: %1").arg(pTyped));
    }
    *pUri = QString::fromUtf8(tUrl.toEncoded(QUrl::FullyEncoded));
    return true;
}

QString VKCApplication::addressText(const QUrl& pUrl, const QString& pStored)
{
    return pUrl.scheme() == u"file"_s ? QDir::toNativeSeparators(pUrl.toLocalFile()) : pStored;
}

int VKCApplication::cmdListServers()
{
    if (!connectToServer(true)) {
        return 1;
    }
    const GRef<ServerList> tList = fetchServerList();
    if (!tList) {
        return 1;
    }
    const QString tIndent = u"    "_s;
    for (qsizetype i = 0; i < tList->mServers.size(); ++i) {
        const GRef<Server> tServer = tList->mServers.at(i);
        const QString tAddress = addressText(tServer->getUrl(), tServer->getUri());
        printLine(u"%1) %2"_s.arg(QString::number(i + 1), tServer->getName()));
        printLine(tIndent + tr("Address: %1").arg(tAddress));
        printLine(tIndent + tr("Username: %1").arg(tServer->getUserName()));
        printLine(tIndent + tr("Enabled: %1").arg(yesNo(tServer->isEnabled())));
        printLine(tIndent + tr("Default server: %1").arg(yesNo(tServer->isDefault())));
        printLine(QString());
    }
    return 0;
}

int VKCApplication::cmdAddServer()
{
    return addOrChangeServer(0, QString());
}

int VKCApplication::cmdUpdateServer()
{
    if (optPassed(OPT_MATCH_INDEX)) {
        const QString tTyped = optArg(OPT_MATCH_INDEX, QString());
        const int tNumber = tTyped.toInt(); // 0 if it is not a number
        if (tNumber < 1) {
            return fail(tr("Invalid server number %1.").arg(tTyped));
        }
        return addOrChangeServer(tNumber, QString());
    }
    const QString tName = optArg(OPT_MATCH_NAME, QString());
    if (tName.isEmpty()) {
        return fail(tr("Server name or number must be specified."));
    }
    return addOrChangeServer(-1, tName);
}

// A number above 0 changes the server with that number, otherwise a name the server with that name; without
// both a server is added. Only the call at the end changes the service.
int VKCApplication::addOrChangeServer(int pNumber, const QString& pName)
{
    if (!connectForChange()) {
        return 1;
    }
    const GRef<ServerList> tList = fetchServerList();
    if (!tList) {
        return 1;
    }

    const bool tAdd = pNumber <= 0 && pName.isEmpty();
    int tPosition = pNumber - 1;
    GRef<Server> tServer;
    if (tAdd) {
        tServer = GRef<Server>(new Server(this));
        tServer->setEnabled(false);
    } else {
        if (pNumber <= 0) {
            tPosition = findServerByName(tList.get(), pName);
            if (tPosition < 0) {
                return 1;
            }
        } else if (tList->mServers.size() < pNumber) {
            return fail(tr("Invalid server number %1.").arg(pNumber));
        }
        tServer = tList->mServers.at(tPosition);
    }

    if (!applyServerOptions(tServer.get())) {
        return 1;
    }
    const bool tDone =
        tAdd ? mClient->addServer(tServer.get()) : mClient->changeServer(tPosition, tServer.get());
    if (!tDone) {
        return 1;
    }
    if (optEnabled(OPT_ENABLE, false) && tServer->isEnabled()) {
        printLine(u'\n' + tr("The server was enabled successfully."));
    }
    return 0;
}

bool VKCApplication::applyServerOptions(Server* pServer)
{
    if (optPassed(OPT_NAME)) {
        pServer->setName(optArg(OPT_NAME, QString()));
    }
    // Asked of the old address on purpose: a new server without a name is stored without one.
    if (pServer->getName().isEmpty()) {
        pServer->setName(pServer->getSuggestedName());
    }
    if (optPassed(OPT_SERVER)) {
        QString tUri;
        if (!readAddress(optArg(OPT_SERVER, QString()), &tUri)) {
            return false;
        }
        pServer->setUri(tUri);
    }
    if (pServer->getUri().isEmpty()) {
        return printError(tr("Server address must be specified"));
    }
    if (optPassed(OPT_USER)) {
        pServer->setUserName(optArg(OPT_USER, QString()));
    }
    if (optPassed(OPT_PASSWORD)) {
        pServer->setPassword(optPassword(OPT_PASSWORD, tr("Server password:")));
        pServer->setSavePassword(true);
    }
    if (optPassed(OPT_DEFAULT)) {
        pServer->setDefault(optEnabled(OPT_DEFAULT, false));
    }
    if (optPassed(OPT_ENABLE)) {
        pServer->setEnabled(optEnabled(OPT_ENABLE, false));
    }
    return true;
}

int VKCApplication::cmdRemoveServer()
{
    if (!connectForChange()) {
        return 1;
    }
    const GRef<ServerList> tList = fetchServerList();
    if (!tList) {
        return 1;
    }

    int tPosition = -1;
    if (optPassed(OPT_MATCH_INDEX)) {
        const QString tTyped = optArg(OPT_MATCH_INDEX, QString());
        const int tNumber = tTyped.toInt(); // 0 if it is not a number
        if (tNumber < 1 || tNumber > tList->mServers.size()) {
            return fail(tr("Invalid server number %1").arg(tTyped));
        }
        tPosition = tNumber - 1;
    } else if (optPassed(OPT_MATCH_NAME)) {
        tPosition = findServerByName(tList.get(), optArg(OPT_MATCH_NAME, QString()));
        if (tPosition < 0) {
            return 1;
        }
    } else {
        return fail(tr("Server name or number must be specified."));
    }
    return mClient->removeServer(tPosition) ? 0 : 1;
}

// The only exact match counts, otherwise the only partial match, even if there are several exact ones.
int VKCApplication::findServerByName(ServerList* pServerList, const QString& pName)
{
    if (pName.isEmpty()) {
        printError(tr("Server name to match against must not be empty."));
        return -1;
    }
    QList<int> tExact;
    QList<int> tPartial;
    for (int i = 0; i < pServerList->mServers.size(); ++i) {
        const QString& tName = pServerList->mServers.at(i)->getName();
        if (tName == pName) {
            tExact.append(i);
        } else if (tName.contains(pName, Qt::CaseSensitive)) {
            tPartial.append(i);
        }
    }
    if (tExact.size() == 1) {
        return tExact.first();
    }
    if (tPartial.size() == 1) {
        return tPartial.first();
    }
    printError(tr("The name '%1' does not uniquely identify a server.").arg(pName));
    return -1;
}

} // namespace tarn::vkc
