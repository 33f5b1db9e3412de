#include "control/Configuration.h"

#include "control/KnownVariables.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"

namespace tarn::vkservice::control {

using process::LogLevel;

Configuration::Configuration(store::ConfigVariables& pVariables, process::ServiceApplication& pApp)
    : mVariables(pVariables), mApp(pApp)
{
    addKnownVariables(mVariables, mApp.configDir());
    mVariables.setConfiguration([this](const QString& pKey) { return mApp.configValue(pKey); });
}

bool Configuration::set(const QString& pName, const QString& pValue, QString* pReason)
{
    if (!mVariables.set(pName, pValue, pReason)) {
        return false;
    }
    Q_EMIT changed();
    return true;
}

bool Configuration::reload(QString* pError)
{
    if (!mApp.reloadConfiguration(pError)) {
        mApp.write(LogLevel::Error, *pError);
        return false;
    }
    logComplaints();
    Q_EMIT changed();
    return true;
}

void Configuration::logComplaints() const
{
    const QStringList tComplaints = mVariables.complaints();
    for (const QString& tComplaint : tComplaints) {
        mApp.write(LogLevel::Warning, tComplaint);
    }
}

} // namespace tarn::vkservice::control
