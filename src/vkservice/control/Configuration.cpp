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
}

} // namespace tarn::vkservice::control
