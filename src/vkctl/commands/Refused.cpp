#include "commands/Commands.h"
#include "CtlApplication.h"
#include "PlainTexts.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;
using vkcore::singleLine;

int refused(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    const auto tRefused = pApp.call<RefusalEntries>(method::sGetRefusals);
    if (!tRefused) {
        return pApp.fail(CtlApplication::tr("Failed to get the refused packages."));
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson(toJson(*tRefused));
        return StatusSound;
    }
    for (const RefusalEntry& tEntry : tRefused->mRefused) {
        pApp.print(u"%1 %2  %3  %4"_s.arg(singleLine(tEntry.mPackage), singleLine(tEntry.mVersion),
                                          dateText(tEntry.mDate),
                                          singleLine(tEntry.mReason, vkcore::sMaxMessage)));
    }
    if (tRefused->mRefused.isEmpty()) {
        pApp.print(CtlApplication::tr("No package is refused."));
    }
    return StatusSound;
}

int accept(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    const QString tName = pApp.arguments().mOperands.first();
    const auto tOutcome = pApp.call<Outcome>(method::sAcceptPackage, toJson(PackageName{tName}));
    if (!tOutcome || !tOutcome->mDone) {
        const QString tReason = tOutcome ? singleLine(tOutcome->mReason, vkcore::sMaxMessage) : pApp.reason();
        return pApp.fail(CtlApplication::tr("The package was not accepted: %1").arg(tReason));
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson({{"package"_L1, tName}});
    } else {
        pApp.print(CtlApplication::tr("The package %1 may be installed again.").arg(singleLine(tName)));
    }
    return StatusSound;
}

} // namespace tarn::vkctl
