#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"

#include <vkcore/NetProxy.h>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

using vkcore::NetProxy;
using vkcore::NetProxyMode;

int VKCApplication::cmdShowSettings()
{
    const bool tShowAll = noOwnOptions();
    const auto tShow = [this, tShowAll](unsigned long pOption) {
        return tShowAll || optEnabled(pOption, false);
    };

    if (!connectToServer(true)) {
        return 1;
    }
    if (tShow(OPT_SERVER) && !showDefaultServer()) {
        return 1;
    }
    if (tShow(OPT_PROXY) && !showProxy()) {
        return 1;
    }
    if (tShow(OPT_DATA_DIR) && !showDataDirectory()) {
        return 1;
    }
    showLanguages(tShow(OPT_APP_LANGUAGE), tShow(OPT_DATA_LANGUAGE));
    showConfigVars();
    return 0;
}

bool VKCApplication::showDefaultServer()
{
    QString tUrl;
    QString tUser;
    if (!mClient->getDefaultServer(&tUrl, &tUser, nullptr)) {
        return printError(tr("Failed to query current server"));
    }
    const QString tAddress = addressText(QUrl::fromEncoded(tUrl.toUtf8(), QUrl::TolerantMode), tUrl);
    printLine(tr("Default server: %1 (username=%2)").arg(tAddress, tUser));
    return true;
}

bool VKCApplication::showProxy()
{
    NetProxyMode tMode = vkcore::NetProxyModeNone;
    NetProxy tProxy(false, true);
    if (!mClient->getNetProxySettings(&tMode, &tProxy)) {
        return printError(tr("Failed to query proxy settings"));
    }
    QString tDescription;
    switch (tMode) {
    case vkcore::NetProxyModeNone:
    case vkcore::NetProxyModeManual:
        tDescription = tProxy.mEnabled && tProxy.mConfigured
                           ? tr("%1:%2 (username=%3)", "%1 and %2 are the proxy host/port %3 is the username")
                                 .arg(tProxy.mHost)
                                 .arg(tProxy.mPort)
                                 .arg(tProxy.mUser)
                           : tr("disabled");
        break;
    case vkcore::NetProxyModeOs:
        tDescription = tr("Using operating system settings");
        break;
    }
    printLine(tr("Proxy: %1").arg(tDescription));
    return true;
}

bool VKCApplication::showDataDirectory()
{
    const QString tPath = mClient->getKdmlDataDirectory();
    if (tPath.isNull()) {
        return printError(tr("Failed to query the kdml data directory"));
    }
    printLine(tr("Data directory: %1").arg(tPath));
    return true;
}

// A failed query is reported but does not end the command: scripts depend on the lines that follow.
void VKCApplication::showLanguages(bool pApp, bool pData)
{
    if (!pApp && !pData) {
        return;
    }
    QString tAppLang;
    QString tDataLang;
    if (!mClient->getLanguages(&tAppLang, &tDataLang)) {
        printError(tr("Failed to query languages."));
    }
    if (pApp) {
        printLine(tr("Application language: %1 (%2)").arg(getLangName(tAppLang), tAppLang));
    }
    if (pData) {
        printLine(tr("Data language: %1 (%2)").arg(getLangName(tDataLang), tDataLang));
    }
}

void VKCApplication::showConfigVars()
{
    if (!optEnabled(OPT_CONFIG_VAR, false)) {
        return;
    }
    for (const QString& tName : optArgs(OPT_CONFIG_VAR)) {
        QString tValue = mClient->getConfigValue(tName, QString());
        if (tName.contains(u"password"_s, Qt::CaseInsensitive)) {
            tValue.fill(u'*');
        }
        printLine(u"%1: %2"_s.arg(tName, tValue));
    }
}

// One of the two languages of update-settings.
struct VKCApplication::LanguageGroup
{
    unsigned long mOption;
    QList<QString> (vkcore::Application::*mAvailable)() const;
    bool (*mSet)(vkcore::IPCClient* pClient, const QString& pLang);
    QString mInvalid; // with the argument for %1
    QString mFailed;
    QString mHeadline;
};

// Each part is read, changed and sent back as a whole. Parts already sent stay changed when a later one
// fails.
int VKCApplication::cmdUpdateSettings()
{
    if (noOwnOptions()) {
        return 0;
    }
    if (!connectForChange() || !updateDefaultServer() || !updateProxy() || !updateDataDirectory()) {
        return 1;
    }
    const LanguageGroup tGroups[] = {
        {.mOption = OPT_APP_LANGUAGE,
         .mAvailable = &VKCApplication::getAvailableAppLanguages,
         .mSet = [](vkcore::IPCClient* pClient,
                    const QString& pLang) { return pClient->setLanguages(pLang, QString()); },
         .mInvalid = tr("Invalid application language '%1'"),
         .mFailed = tr("Failed to set the application language"),
         .mHeadline = tr("Available application languages:")},
        {.mOption = OPT_DATA_LANGUAGE,
         .mAvailable = &VKCApplication::getAvailableDataLanguages,
         .mSet = [](vkcore::IPCClient* pClient,
                    const QString& pLang) { return pClient->setLanguages(QString(), pLang); },
         .mInvalid = tr("Invalid data language '%1'"),
         .mFailed = tr("Failed to set the data language"),
         .mHeadline = tr("Available data languages:")},
    };
    for (const LanguageGroup& tGroup : tGroups) {
        if (const std::optional<int> tStatus = updateLanguage(tGroup)) {
            return *tStatus;
        }
    }
    if (!updateConfigVars()) {
        return 1;
    }
    if (!mClient->reloadConfig()) {
        return fail(tr("Failed to reload the service configuration"));
    }
    printLine(tr("The changes were successfully applied."));
    return 0;
}

bool VKCApplication::updateDefaultServer()
{
    if (!optPassed(OPT_SERVER) && !optPassed(OPT_USER) && !optPassed(OPT_PASSWORD)) {
        return true;
    }
    QString tUrl;
    QString tUser;
    QString tPassword;
    if (!mClient->getDefaultServer(&tUrl, &tUser, &tPassword)) {
        return printError(tr("Failed to query current server"));
    }
    if (optPassed(OPT_SERVER) && !readAddress(optArg(OPT_SERVER, QString()), &tUrl)) {
        return false;
    }
    if (optPassed(OPT_USER)) {
        tUser = optArg(OPT_USER, QString());
    }
    if (optPassed(OPT_PASSWORD)) {
        tPassword = optPassword(OPT_PASSWORD, tr("Server password:"));
    }
    if (!mClient->updateDefaultServer(tUrl, tUser, tPassword)) {
        return printError(tr("Failed to update default server"));
    }
    return true;
}

// "HOST:PORT", or an empty text for no proxy. The host is not looked at.
static bool readProxy(const QString& pTyped, NetProxy* pProxy)
{
    if (pTyped.isEmpty()) {
        *pProxy = NetProxy(false, true);
        return true;
    }
    const qsizetype tColon = pTyped.indexOf(u':');
    if (tColon < 0) {
        return false;
    }
    pProxy->mHost = pTyped.left(tColon);
    bool tOk = false;
    const int tPort = pTyped.mid(tColon + 1).toInt(&tOk);
    if (!tOk || tPort < 1 || tPort > 65535) {
        return false;
    }
    pProxy->mPort = static_cast<quint32>(tPort);
    return true;
}

bool VKCApplication::updateProxy()
{
    if (!optPassed(OPT_PROXY_MODE) && !optPassed(OPT_PROXY) && !optPassed(OPT_PROXY_USER) &&
        !optPassed(OPT_PROXY_PASSWORD)) {
        return true;
    }
    NetProxyMode tMode = vkcore::NetProxyModeNone;
    NetProxy tProxy(false, true);
    if (!mClient->getNetProxySettings(&tMode, &tProxy)) {
        return printError(tr("Failed to query proxy settings"));
    }
    if (optPassed(OPT_PROXY_MODE)) {
        bool tOk = false;
        const QString tWord = optArg(OPT_PROXY_MODE, QString());
        tMode = vkcore::netProxyModeFromStr(tWord, &tOk);
        if (!tOk) {
            return printError(tr("Invalid proxy mode %1").arg(tWord));
        }
    }
    if (optPassed(OPT_PROXY) && !readProxy(optArg(OPT_PROXY, QString()), &tProxy)) {
        return printError(tr("Invalid proxy '%1'").arg(optArg(OPT_PROXY, QString())));
    }
    if (optPassed(OPT_PROXY_USER)) {
        tProxy.mUser = optArg(OPT_PROXY_USER, QString());
    }
    if (optPassed(OPT_PROXY_PASSWORD)) {
        tProxy.mPassword = optPassword(OPT_PROXY_PASSWORD, tr("Proxy password:"));
        tProxy.mPasswordChanged = true;
    }
    tProxy.mEnabled = !tProxy.mHost.isEmpty();
    tProxy.mConfigured = tProxy.mEnabled;
    if (!mClient->setNetProxySettings(tMode, tProxy)) {
        return printError(tr("Failed to update proxy settings"));
    }
    return true;
}

bool VKCApplication::updateDataDirectory()
{
    if (optPassed(OPT_DATA_DIR) && !mClient->setKdmlDataDirectory(optArg(OPT_DATA_DIR, QString()))) {
        return printError(tr("Failed to set the kdml data directory"));
    }
    return true;
}

// Without a value, or with an invalid one, the option lists the possible values, and the command ends without
// a reload.
std::optional<int> VKCApplication::updateLanguage(const LanguageGroup& pGroup)
{
    if (!optPassed(pGroup.mOption)) {
        return std::nullopt;
    }
    const QList<QString> tLanguages = (this->*pGroup.mAvailable)();
    int tStatus = 0;
    if (optHasArg(pGroup.mOption)) {
        const QString tLang = optArg(pGroup.mOption, QString());
        if (tLanguages.contains(tLang)) {
            if (!pGroup.mSet(mClient, tLang)) {
                return fail(pGroup.mFailed);
            }
            return std::nullopt;
        }
        tStatus = fail(pGroup.mInvalid.arg(tLang));
    }
    printLine(pGroup.mHeadline);
    for (const QString& tCode : tLanguages) {
        printLine(u"  %1: %2"_s.arg(tCode, getLangName(tCode)));
    }
    return tStatus;
}

bool VKCApplication::updateConfigVars()
{
    for (const QString& tArg : optArgs(OPT_CONFIG_VAR)) {
        const qsizetype tColon = tArg.indexOf(u':');
        if (tColon < 0) {
            return printError(tr("Invalid argument to --config-var: '%1'").arg(tArg));
        }
        const QString tName = tArg.left(tColon);
        if (!mClient->setConfigValue(tName, tArg.mid(tColon + 1))) {
            return printError(tr("Failed to set configuration variable '%1'").arg(tName));
        }
    }
    return true;
}

} // namespace tarn::vkc
