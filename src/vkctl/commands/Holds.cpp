#include "commands/Commands.h"
#include "CtlApplication.h"
#include "PlainTexts.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"

#include <vkcore/Version.h>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;
using vkcore::singleLine;

namespace {

// A day begins at midnight, local time.
QDateTime dateFrom(const QString& pText)
{
    const QDate tDay = QDate::fromString(pText, Qt::ISODate);
    return tDay.isValid() ? tDay.startOfDay()
                          : QDateTime::fromString(QString(pText).replace(u' ', u'T'), Qt::ISODate);
}

// False, with the reason on standard error, if the command line does not say what to hold.
bool readHold(CtlApplication& pApp, HoldEntry* pTo)
{
    const Arguments& tArguments = pApp.arguments();
    pTo->mName = tArguments.mOperands.value(0);
    pTo->mVersions = tArguments.mOperands.value(1);
    bool tOk = true;
    if (!pTo->mVersions.isNull()) {
        vkcore::Version::fromString(pTo->mVersions, &tOk);
    }
    if (!tOk) {
        pApp.fail(CtlApplication::tr("Not the beginning of a version: %1").arg(pTo->mVersions));
        return false;
    }
    if (tArguments.mValues.contains(u"until"_s)) {
        const QString tText = tArguments.mValues.value(u"until"_s);
        pTo->mUntil = dateFrom(tText);
        if (pTo->mUntil <= QDateTime::currentDateTime() || !pTo->mUntil.isValid()) {
            pApp.fail(CtlApplication::tr("Not a date in the future: %1").arg(tText));
            return false;
        }
    }
    return true;
}

QString holdText(const HoldEntry& pHold)
{
    QString tText = singleLine(pHold.mName);
    if (!pHold.mVersions.isEmpty()) {
        tText += u' ' + singleLine(pHold.mVersions);
    }
    return pHold.mUntil.isValid() ? CtlApplication::tr("%1 until %2").arg(tText, dateText(pHold.mUntil))
                                  : tText;
}

int showHolds(CtlApplication& pApp)
{
    const auto tHolds = pApp.call<HoldEntries>(method::sGetHolds);
    if (!tHolds) {
        return pApp.fail(CtlApplication::tr("Failed to get the held packages."));
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson(toJson(*tHolds));
        return StatusSound;
    }
    pApp.print(CtlApplication::tr("Held packages: %1").arg(tHolds->mHolds.size()));
    for (const HoldEntry& tHold : tHolds->mHolds) {
        pApp.print(u"  "_s + holdText(tHold));
    }
    return StatusSound;
}

} // namespace

int hold(CtlApplication& pApp)
{
    HoldEntry tHold;
    if (!readHold(pApp, &tHold) || !pApp.connectToService()) {
        return StatusFailed;
    }
    if (!pApp.call(method::sSetHold, toJson(tHold))) {
        return pApp.fail(CtlApplication::tr("The package can't be held: %1").arg(pApp.reason()));
    }
    return showHolds(pApp);
}

int unhold(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    const QString tName = pApp.arguments().mOperands.value(0);
    const auto tDone = pApp.call(method::sRemoveHold, toJson(PackageName{tName}));
    if (!tDone) {
        return pApp.fail(CtlApplication::tr("The hold can't be ended: %1").arg(pApp.reason()));
    }
    if (!tDone->toBool()) {
        return pApp.fail(CtlApplication::tr("Not held: %1").arg(tName));
    }
    return showHolds(pApp);
}

int holds(CtlApplication& pApp)
{
    return pApp.connectToService() ? showHolds(pApp) : int(StatusFailed);
}

} // namespace tarn::vkctl
