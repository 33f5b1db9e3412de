#include "control/Configuration.h"
#include "control/MailControl.h"
#include "control/UpdateControl.h"
#include "internal/Methods.h"
#include "methods/Group.h"
#include "methods/Methods.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore;
using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;

namespace {

const QString sLastRun = u"service.lastRun"_s;
constexpr qsizetype sMaxText = 64 * 1024;

// The password is never sent to clients: a client returns the proxy with passwordChanged false, which keeps
// the stored password.
Reply getProxy(const SettingsParts& pParts)
{
    auto tProxy = pParts.mSettings.proxy();
    if (!tProxy) {
        return storeFailure(pParts.mStore, u"The proxy settings"_s);
    }
    tProxy->mProxy.mPassword = QString();
    return Reply::result(toJson(*tProxy));
}

Reply setProxy(const SettingsParts& pParts, const ProxySettings& pProxy)
{
    if (!isKnown(pProxy.mMode, NetProxyModeManual)) {
        return Reply::invalidParams(u"mode is not one from 0 to 2"_s);
    }
    const NetProxy& tNew = pProxy.mProxy;
    if (tNew.mHost.size() + tNew.mUser.size() + tNew.mPassword.size() > sMaxText) {
        return Reply::refused(u"The texts of the proxy are too long."_s);
    }
    return pParts.mSettings.setProxy(pProxy) ? Reply::done()
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

// The directory is checked when it is used, not here: it may be on a disk that is not mounted yet.
Reply setDataDirectory(const SettingsParts& pParts, const DataDirectory& pDirectory)
{
    const QString& tPath = pDirectory.mPath;
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
    return Reply::result(toJson(
        LanguageChoice{.mApp = pParts.mApp.languageOr(*tApp), .mData = pParts.mApp.languageOr(*tData)}));
}

bool isLanguage(const QString& pCode)
{
    static const QRegularExpression sForm(
        u"\\A[A-Za-z]{2,8}([_-][A-Za-z0-9]{1,8}){0,3}(@[A-Za-z]{1,16})?\\z"_s,
        QRegularExpression::DontCaptureOption);
    return pCode.isNull() || sForm.match(pCode).hasMatch();
}

Reply setLanguages(const SettingsParts& pParts, const LanguageChoice& pChoice)
{
    if (!isLanguage(pChoice.mApp) || !isLanguage(pChoice.mData)) {
        return Reply::refused(u"A language is a code such as \"de\" or \"pt_BR\"."_s);
    }
    return pParts.mSettings.setLanguages(pChoice.mApp, pChoice.mData)
               ? Reply::done()
               : storeFailure(pParts.mStore, u"The languages"_s);
}

QString lastRunText(const SettingsParts& pParts, const QString& pDefault)
{
    const QDateTime tFinished = pParts.mUpdates.lastRun().mFinished;
    return tFinished.isValid() ? tFinished.toString(u"yyyyMMddhhmmss"_s) : pDefault;
}

// A secret is never sent to any client. Its length is sent, so that a client can show that it is set.
QString shown(const QString& pName, const QString& pValue)
{
    const bool tSecret = pName.contains("password"_L1, Qt::CaseInsensitive);
    return tSecret ? QString(pValue.size(), u'*') : pValue;
}

Reply getVariable(const SettingsParts& pParts, const VariableQuery& pQuery)
{
    const QString& tName = pQuery.mName;
    if (tName == sLastRun) {
        return Reply::result(toJson(lastRunText(pParts, pQuery.mDefault)));
    }
    if (control::MailControl::isVerification(tName)) {
        return Reply::result(pParts.mMail.verificationState(tName));
    }
    const auto tValue = pParts.mConfiguration.variables().value(tName);
    if (!tValue) {
        return storeFailure(pParts.mStore, u"The configuration variable"_s);
    }
    return Reply::result(toJson(tValue->isNull() ? pQuery.mDefault : shown(tName, *tValue)));
}

Reply setVariable(const SettingsParts& pParts, const Variable& pVariable)
{
    const QString& tName = pVariable.mName;
    if (tName == sLastRun) {
        return Reply::refused(u"Only the service can set the variable service.lastRun."_s);
    }
    return Reply::of(control::MailControl::isVerification(tName)
                         ? pParts.mMail.verify(tName, pVariable.mValue)
                         : pParts.mConfiguration.set(tName, pVariable.mValue));
}

} // namespace

void addSettingsMethods(MethodTable& pTable, const SettingsParts& pParts)
{
    using Kind = MethodTable::Kind;
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetNetProxySettings, &getProxy);
    tGroup.add(method::sSetNetProxySettings, Kind::Change, &setProxy);
    tGroup.add(method::sGetKdmlDataDirectory, &getDataDirectory);
    tGroup.add(method::sSetKdmlDataDirectory, Kind::Change, &setDataDirectory);
    tGroup.add(method::sGetLanguages, &getLanguages);
    tGroup.add(method::sSetLanguages, Kind::Change, &setLanguages);
    tGroup.add(method::sGetConfigValue, Kind::Query, &getVariable);
    tGroup.add(method::sSetConfigValue, Kind::Change, &setVariable);
}

} // namespace tarn::vkservice::methods
