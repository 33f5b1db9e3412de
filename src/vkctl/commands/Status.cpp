#include "commands/Commands.h"
#include "CtlApplication.h"
#include "LeftOut.h"

#include "internal/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

int status(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    const auto tReport = pApp.report();
    if (!tReport) {
        return StatusFailed;
    }
    // A service of an earlier version knows of none.
    using vkcore::protocol::LeftOutPackages;
    const LeftOutPackages tLeftOut =
        pApp.call<LeftOutPackages>(vkcore::protocol::method::sGetLeftOut).value_or(LeftOutPackages());
    if (pApp.arguments().mIsJson) {
        QJsonObject tJson = tReport->json();
        tJson.insert("leftOut"_L1, toJson(tLeftOut.mPackages));
        pApp.printJson(tJson);
    } else {
        pApp.print(tReport->overview());
        for (const QString& tLine : LeftOut::lines(tLeftOut)) {
            pApp.print(tLine);
        }
        if (tReport->hasDamage()) {
            pApp.print(tReport->damage());
        }
    }
    return tReport->hasDamage() ? StatusDamaged : StatusSound;
}

} // namespace tarn::vkctl
