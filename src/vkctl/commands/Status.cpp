#include "commands/Commands.h"
#include "CtlApplication.h"

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
    if (pApp.arguments().mIsJson) {
        pApp.printJson(tReport->json());
    } else {
        pApp.print(tReport->overview());
        if (tReport->hasDamage()) {
            pApp.print(tReport->damage());
        }
    }
    return tReport->hasDamage() ? StatusDamaged : StatusSound;
}

} // namespace tarn::vkctl
