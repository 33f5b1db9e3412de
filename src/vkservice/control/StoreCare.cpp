#include "control/StoreCare.h"

#include "process/ServiceApplication.h"
#include "store/StateStore.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using process::LogLevel;

StoreCare::StoreCare(store::StateStore& pStore, process::ServiceApplication& pApp)
    : mStore(pStore), mApp(pApp)
{
}

QString StoreCare::reason() const
{
    return mStore.database().errorText();
}

QString StoreCare::failed(const QString& pWhat)
{
    const QString tText = u"%1: the store failed (%2)."_s.arg(pWhat, reason());
    mApp.write(LogLevel::Error, tText);
    replaceIfDamaged();
    return tText;
}

void StoreCare::replaceIfDamaged()
{
    QString tReason;
    if (mStore.replaceIfDamaged(&tReason)) {
        Q_EMIT replaced(mStore.damagedFile());
    } else if (!tReason.isEmpty()) {
        mApp.write(LogLevel::Error, tReason);
    }
}

} // namespace tarn::vkservice::control
