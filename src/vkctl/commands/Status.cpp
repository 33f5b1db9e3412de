#include "commands/Commands.h"
#include "CtlApplication.h"
#include "status/StatusSections.h"

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
    QStringList tLines;
    QJsonObject tJson = tReport->json();
    for (const MakeStatusSection tMake : statusSections()) {
        const StatusSection tSection = tMake(pApp);
        tLines += tSection.mLines;
        for (auto tMember = tSection.mMembers.begin(); tMember != tSection.mMembers.end(); ++tMember) {
            tJson.insert(tMember.key(), tMember.value());
        }
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson(tJson);
    } else {
        tLines.append(tReport->overview());
        if (tReport->hasDamage()) {
            tLines.append(tReport->damage());
        }
        pApp.print(tLines.join(u'\n'));
    }
    return tReport->hasDamage() ? StatusDamaged : StatusSound;
}

} // namespace tarn::vkctl
