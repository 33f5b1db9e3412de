#include "commands/Commands.h"
#include "CtlApplication.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;

int rollBack(CtlApplication& pApp)
{
    GenerationNumber tTo;
    if (const QStringList tOperands = pApp.arguments().mOperands; !tOperands.isEmpty()) {
        bool tIsNumber = false;
        tTo.mGeneration = tOperands.first().toLongLong(&tIsNumber);
        if (!tIsNumber || tTo.mGeneration < 1) {
            return pApp.fail(CtlApplication::tr("Not a number of a generation: %1").arg(tOperands.first()));
        }
    }
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    if (pApp.client().isVKClientActive()) {
        return pApp.fail(CtlApplication::tr("Cannot go back while the wizard is active."));
    }
    const auto tBefore = pApp.call<RefusalEntries>(method::sGetRefusals);
    const auto tOutcome = pApp.call<Outcome>(method::sRollBack, toJson(tTo));
    if (!tOutcome || !tOutcome->mDone) {
        const QString tReason =
            tOutcome ? vkcore::singleLine(tOutcome->mReason, vkcore::sMaxMessage) : pApp.reason();
        return pApp.fail(CtlApplication::tr("The packages were not changed: %1").arg(tReason));
    }
    const auto tGenerations = pApp.call<GenerationEntries>(method::sGetGenerations);
    const auto tRefused = pApp.call<RefusalEntries>(method::sGetRefusals);
    if (!tGenerations || tGenerations->mGenerations.isEmpty() || !tRefused) {
        return pApp.fail(CtlApplication::tr("Failed to get the generations."));
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson(toJson(tGenerations->mGenerations.first()));
        return StatusSound;
    }
    pApp.print(
        CtlApplication::tr("Generation %1 is in use.").arg(tGenerations->mGenerations.first().mGeneration));
    for (const RefusalEntry& tEntry : tRefused->mRefused) {
        const bool tIsOld =
            tBefore && std::any_of(tBefore->mRefused.begin(), tBefore->mRefused.end(),
                                   [&](const RefusalEntry& pOther) { return pOther.mHash == tEntry.mHash; });
        if (!tIsOld) {
            pApp.print(CtlApplication::tr("Not installed again until \"vkctl accept %1\": %1 %2")
                           .arg(vkcore::singleLine(tEntry.mPackage), vkcore::singleLine(tEntry.mVersion)));
        }
    }
    return StatusSound;
}

} // namespace tarn::vkctl
