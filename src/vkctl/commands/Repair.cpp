#include "commands/Commands.h"
#include "CtlApplication.h"

#include "internal/PlainText.h"

#include <QtCore/QJsonValue>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

namespace {

constexpr int sSuccess = 1; // the service's code

// Runs the update that repairs, and describes it in *pUpdate.
int update(CtlApplication& pApp, QJsonObject* pUpdate)
{
    vkcore::IPCClient& tClient = pApp.client();
    if (tClient.isVKClientActive()) {
        return pApp.fail(CtlApplication::tr("Cannot perform an update while the wizard is active."));
    }
    if (!pApp.connectMonitor(CtlApplication::Subject::Update)) {
        return StatusFailed;
    }
    if (!tClient.triggerUpdate(true)) {
        return pApp.fail(CtlApplication::tr("Failed to start update"));
    }
    if (!pApp.follow(CtlApplication::tr("The repair"))) {
        return StatusFailed;
    }
    const QString tText = vkcore::singleLine(tClient.getLastServiceResultStr(true), vkcore::sMaxMessage);
    const int tCode = tClient.getLastServiceResult(true) & 0xff;
    if (tCode != sSuccess) {
        return pApp.fail(CtlApplication::tr("The packages were not repaired: %1").arg(tText));
    }
    *pUpdate = {{u"code"_s, tCode}, {u"text"_s, tText}};
    if (!pApp.arguments().mIsJson) {
        pApp.print(CtlApplication::tr("Update finished: %1").arg(tText));
    }
    return StatusSound;
}

} // namespace

int repair(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    const auto tBefore = pApp.report();
    if (!tBefore) {
        return StatusFailed;
    }
    QJsonObject tUpdate;
    if (tBefore->hasDamage()) {
        if (const int tStatus = update(pApp, &tUpdate); tStatus != StatusSound) {
            return tStatus;
        }
    }
    const auto tAfter = pApp.report();
    if (!tAfter) {
        return StatusFailed;
    }
    if (pApp.arguments().mIsJson) {
        QJsonObject tJson = tAfter->json();
        tJson.insert("update"_L1, tUpdate.isEmpty() ? QJsonValue() : QJsonValue(tUpdate));
        pApp.printJson(tJson);
    } else if (tAfter->hasDamage()) {
        pApp.print(tAfter->damage());
    } else {
        pApp.print(tBefore->hasDamage()
                       ? CtlApplication::tr("The damaged packages were installed again.")
                       : CtlApplication::tr(
                             "No package is known to be damaged; \"vkctl verify\" looks for damage."));
    }
    return tAfter->hasDamage() ? StatusDamaged : StatusSound;
}

} // namespace tarn::vkctl
