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

Failure StoreCare::failure(const QString& pWhat)
{
    const Failure tFailure{Failure::Kind::Damaged, u"%1: the store failed (%2)"_s.arg(pWhat, reason())};
    mApp.write(LogLevel::Error, tFailure.mText + u'.');
    replaceIfDamaged();
    return tFailure;
}

void StoreCare::replaceIfDamaged()
{
    if (!mStore.isDamaged()) {
        return;
    }
    if (const Failure tFailure = mStore.replace()) {
        mApp.write(LogLevel::Error, tFailure.mText + u'.');
    } else {
        Q_EMIT replaced(mStore.damagedFile());
    }
}

} // namespace tarn::vkservice::control
