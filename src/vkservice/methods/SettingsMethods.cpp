#include "control/Configuration.h"
#include "control/MailControl.h"
#include "control/UpdateControl.h"
#include "internal/Protocol.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace ipc;

namespace {

const QString sLastRun = u"service.lastRun"_s;
constexpr qsizetype sMaxText = 64 * 1024;

// The password stays here: a client sends the proxy back with passwordChanged false, and then the stored one
// stays.
Reply getProxy(const SettingsParts& pParts)
{
    auto tProxy = pParts.mSettings.proxy();
    if (!tProxy) {
        return storeFailure(pParts.mStore, u"The proxy settings"_s);
    }
    tProxy->mProxy.mPassword = QString();
    return Reply::result(QJsonObject{
        {u"mode"_s, static_cast<int>(tProxy->mMode)},
        {u"proxy"_s, protocol::toJson(tProxy->mProxy)},
    });
}

Reply setProxy(const SettingsParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    store::ProxySettings tProxy;
    tProxy.mMode = tParams.enumerator<NetProxyMode>("mode", NetProxyModeManual);
    tParams.object("proxy", &tProxy.mProxy);
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    const NetProxy& tNew = tProxy.mProxy;
    if (tNew.mHost.size() + tNew.mUser.size() + tNew.mPassword.size() > sMaxText) {
        return Reply::refused(u"The texts of the proxy are too long."_s);
    }
    return pParts.mSettings.setProxy(tProxy) ? Reply::done()
                                             : storeFailure(pParts.mStore, u"The proxy settings"_s);
}

Reply getDataDirectory(const SettingsParts& pParts)
{
    const auto tPath = pParts.mSettings.dataDirectory();
    if (!tPath) {
        return storeFailure(pParts.mStore, u"The data directory"_s);
    }
    return Reply::result(tPath->isEmpty() ? pParts.mConfiguration.variables().text(u"install.dir"_s)
                                          : *tPath);
}

// Whether the directory is there and can be written is looked at when it is used: it may be a disk that
// is not mounted yet.
Reply setDataDirectory(const SettingsParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const QString tPath = tParams.get<QString>("path");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    if ((!tPath.isEmpty() && !QDir::isAbsolutePath(tPath)) || tPath.contains(QChar(0)) ||
        tPath.size() > sMaxText) {
        return Reply::refused(u"The data directory has to be an absolute path, or empty for the default."_s);
    }
    return pParts.mSettings.setDataDirectory(tPath) ? Reply::done()
                                                    : storeFailure(pParts.mStore, u"The data directory"_s);
}

Reply getLanguages(const SettingsParts& pParts)
{
    const auto tApp = pParts.mSettings.appLanguage();
    const auto tData = pParts.mSettings.dataLanguage();
    if (!tApp || !tData) {
        return storeFailure(pParts.mStore, u"The languages"_s);
    }
    return Reply::result(QJsonObject{
        {u"app"_s, pParts.mApp.languageOr(*tApp)},
        {u"data"_s, pParts.mApp.languageOr(*tData)},
    });
}

bool isLanguage(const QString& pCode)
{
    static const QRegularExpression sForm(
        u"\\A[A-Za-z]{2,8}([_-][A-Za-z0-9]{1,8}){0,3}(@[A-Za-z]{1,16})?\\z"_s,
        QRegularExpression::DontCaptureOption);
    return pCode.isNull() || sForm.match(pCode).hasMatch();
}

Reply setLanguages(const SettingsParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const QString tApp = tParams.get<QString>("app");
    const QString tData = tParams.get<QString>("data");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    if (!isLanguage(tApp) || !isLanguage(tData)) {
        return Reply::refused(u"A language is a code such as \"de\" or \"pt_BR\"."_s);
    }
    return pParts.mSettings.setLanguages(tApp, tData) ? Reply::done()
                                                      : storeFailure(pParts.mStore, u"The languages"_s);
}

QString lastRunText(const SettingsParts& pParts, const QString& pDefault)
{
    const QDateTime tFinished = pParts.mUpdates.lastRun().mFinished;
    return tFinished.isValid() ? tFinished.toString(u"yyyyMMddhhmmss"_s) : pDefault;
}

// A secret stays here, whoever asks. Its length is told, so that a client can show that there is one.
QString shown(const QString& pName, const QString& pValue)
{
    const bool tSecret = pName.contains("password"_L1, Qt::CaseInsensitive);
    return tSecret ? QString(pValue.size(), u'*') : pValue;
}

Reply getVariable(const SettingsParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const QString tName = tParams.get<QString>("name");
    const QString tDefault = tParams.get<QString>("default");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    if (tName == sLastRun) {
        return Reply::result(protocol::toJson(lastRunText(pParts, tDefault)));
    }
    if (control::MailControl::isVerification(tName)) {
        return Reply::result(pParts.mMail.verificationState(tName));
    }
    const auto tValue = pParts.mConfiguration.variables().value(tName);
    if (!tValue) {
        return storeFailure(pParts.mStore, u"The configuration variable"_s);
    }
    return Reply::result(protocol::toJson(tValue->isNull() ? tDefault : shown(tName, *tValue)));
}

Reply setVariable(const SettingsParts& pParts, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const QString tName = tParams.get<QString>("name");
    const QString tValue = tParams.get<QString>("value");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    if (tName == sLastRun) {
        return Reply::refused(u"The variable service.lastRun is set by the service alone."_s);
    }
    QString tReason;
    if (control::MailControl::isVerification(tName)) {
        const bool tDone = pParts.mMail.verify(tName, tValue, &tReason);
        return Reply::of(tDone, tReason);
    }
    const bool tDone = pParts.mConfiguration.set(tName, tValue, &tReason);
    return Reply::of(tDone, tReason);
}

} // namespace

void addSettingsMethods(MethodTable& pTable, const SettingsParts& pParts)
{
    using Kind = MethodTable::Kind;
    const auto tAdd = [&](const char* pName, Kind pKind,
                          Reply (*pHandler)(const SettingsParts&, const QJsonObject&)) {
        pTable.add(QLatin1String(pName), pKind, [pParts, pHandler](Connection&, const QJsonObject& pParams) {
            return pHandler(pParts, pParams);
        });
    };
    const auto tAddGetter = [&](const char* pName, Reply (*pHandler)(const SettingsParts&)) {
        pTable.add(QLatin1String(pName), Kind::Query,
                   [pParts, pHandler](Connection&, const QJsonObject&) { return pHandler(pParts); });
    };
    tAddGetter("getNetProxySettings", &getProxy);
    tAdd("setNetProxySettings", Kind::Change, &setProxy);
    tAddGetter("getKdmlDataDirectory", &getDataDirectory);
    tAdd("setKdmlDataDirectory", Kind::Change, &setDataDirectory);
    tAddGetter("getLanguages", &getLanguages);
    tAdd("setLanguages", Kind::Change, &setLanguages);
    tAdd("getConfigValue", Kind::Query, &getVariable);
    tAdd("setConfigValue", Kind::Change, &setVariable);
}

} // namespace tarn::vkservice::methods
