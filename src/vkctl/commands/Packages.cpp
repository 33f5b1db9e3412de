#include "commands/Commands.h"
#include "CtlApplication.h"

namespace tarn::vkctl {

int packages(CtlApplication& pApp)
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
        pApp.print(tReport->table());
    }
    return StatusSound;
}

} // namespace tarn::vkctl
