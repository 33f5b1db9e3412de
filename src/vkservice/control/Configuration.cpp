#include "control/Configuration.h"

#include "control/KnownVariables.h"
#include "process/Credentials.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"

namespace tarn::vkservice::control {

using namespace Qt::StringLiterals;
using process::LogLevel;

namespace {

// Secrets that systemd may pass in a file of the same name, which then counts instead of the key.
constexpr const char* sCredentials[] = {"mail.password"};

QString fromCredential(const QString& pKey)
{
    for (const char* tName : sCredentials) {
        if (pKey == u"service."_s + QLatin1String(tName)) {
            return process::credential(QLatin1String(tName)).valueOr(QString());
        }
    }
    return {};
}

} // namespace

Configuration::Configuration(store::ConfigVariables& pVariables, process::ServiceApplication& pApp)
    : mVariables(pVariables), mApp(pApp)
{
    addKnownVariables(mVariables, mApp.configDir());
    mVariables.setConfiguration([this](const QString& pKey) {
        const QString tSecret = fromCredential(pKey);
        return tSecret.isEmpty() ? mApp.configValue(pKey) : tSecret;
    });
}

Failure Configuration::set(const QString& pName, const QString& pValue)
{
    const Failure tFailure = mVariables.set(pName, pValue);
    if (!tFailure) {
        Q_EMIT changed();
    }
    return tFailure;
}

Failure Configuration::reload()
{
    if (const Failure tFailure = mApp.reloadConfiguration()) {
        mApp.write(LogLevel::Error, tFailure.mText + u'.');
        return tFailure;
    }
    logComplaints();
    Q_EMIT changed();
    return {};
}

void Configuration::logComplaints() const
{
    const QStringList tComplaints = mVariables.complaints();
    for (const QString& tComplaint : tComplaints) {
        mApp.write(LogLevel::Warning, tComplaint);
    }
    for (const char* tName : sCredentials) {
        if (const Result<QString> tSecret = process::credential(QLatin1String(tName)); !tSecret) {
            mApp.write(LogLevel::Warning, tSecret.failure().mText + u'.');
        }
    }
}

} // namespace tarn::vkservice::control
