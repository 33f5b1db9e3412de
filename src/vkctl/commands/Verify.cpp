#include "commands/Commands.h"
#include "CtlApplication.h"

#include "internal/Methods.h"

namespace tarn::vkctl {

int verify(CtlApplication& pApp)
{
    if (!pApp.connectToService() || !pApp.connectMonitor(CtlApplication::Subject::Verification)) {
        return StatusFailed;
    }
    if (!pApp.call(vkcore::protocol::method::sStartVerification)) {
        return pApp.fail(CtlApplication::tr("The verification can't be started: %1").arg(pApp.reason()));
    }
    if (!pApp.follow(CtlApplication::tr("The verification"))) {
        return StatusFailed;
    }
    const auto tReport = pApp.report();
    if (!tReport) {
        return StatusFailed;
    }
    if (!tReport->failure().isEmpty()) {
        return pApp.fail(
            CtlApplication::tr("The verification did not come to its end: %1").arg(tReport->failure()));
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson(tReport->json());
    } else {
        pApp.print(tReport->summary());
    }
    return tReport->status();
}

} // namespace tarn::vkctl
