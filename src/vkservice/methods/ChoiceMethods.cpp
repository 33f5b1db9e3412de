#include "control/StoreCare.h"
#include "internal/Methods.h"
#include "methods/Group.h"
#include "methods/Methods.h"
#include "packages/PackageInfo.h"
#include "store/HoldTable.h"
#include "store/Settings.h"
#include "update/Choices.h"

#include <QtCore/QDateTime>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;
using store::HoldTable;

namespace {

Reply noName()
{
    return Reply::refused(u"A package's name has at most 100 of the characters a to z, 0 to 9 and . _ + -, "
                          "and begins with a letter or digit."_s);
}

Reply answer(const ChoiceParts& pParts, HoldTable::Outcome pOutcome)
{
    switch (pOutcome) {
    case HoldTable::Outcome::Done:
        return Reply::done();
    case HoldTable::Outcome::NoEntry:
        return Reply::result(false);
    case HoldTable::Outcome::Full:
        return Reply::refused(u"No more than %1 packages can be held."_s.arg(HoldTable::sMostHolds));
    case HoldTable::Outcome::Failed:
        break;
    }
    return storeFailure(pParts.mStore, u"The held packages"_s);
}

Reply getHolds(const ChoiceParts& pParts)
{
    auto tHolds = pParts.mHolds.entries();
    if (!tHolds) {
        return storeFailure(pParts.mStore, u"The held packages"_s);
    }
    const QDateTime tNow = QDateTime::currentDateTime();
    tHolds->removeIf(
        [&tNow](const HoldEntry& pHold) { return pHold.mUntil.isValid() && pHold.mUntil <= tNow; });
    return Reply::result(toJson(HoldEntries{*tHolds}));
}

Reply setHold(const ChoiceParts& pParts, const HoldEntry& pHold)
{
    if (!packages::isPackageName(pHold.mName)) {
        return noName();
    }
    if (!pHold.mVersions.isEmpty() && update::versionPrefix(pHold.mVersions).isEmpty()) {
        return Reply::refused(u"The versions are one to four numbers with dots, such as 1.2."_s);
    }
    if (pHold.mUntil.isValid() && pHold.mUntil <= QDateTime::currentDateTime()) {
        return Reply::refused(u"The end of the hold is in the past."_s);
    }
    return answer(pParts, pParts.mHolds.set(pHold));
}

Reply removeHold(const ChoiceParts& pParts, const PackageName& pPackage)
{
    return packages::isPackageName(pPackage.mName) ? answer(pParts, pParts.mHolds.remove(pPackage.mName))
                                                   : noName();
}

Reply getChannel(const ChoiceParts& pParts)
{
    const auto tChannel = pParts.mSettings.channel();
    return tChannel ? Reply::result(tChannel->isEmpty() ? u"stable"_s : *tChannel)
                    : storeFailure(pParts.mStore, u"The channel"_s);
}

Reply setChannel(const ChoiceParts& pParts, const Channel& pChannel)
{
    const bool tIsStable = pChannel.mChannel.isEmpty() || pChannel.mChannel == "stable"_L1;
    if (!tIsStable && !packages::isChannel(pChannel.mChannel)) {
        return Reply::refused(u"A channel's name has at most 32 of the characters a to z, 0 to 9 and . _ -, "
                              "and begins with a letter or digit."_s);
    }
    return pParts.mSettings.setChannel(tIsStable ? QString() : pChannel.mChannel)
               ? Reply::done()
               : storeFailure(pParts.mStore, u"The channel"_s);
}

Reply getLeftOut(const ChoiceParts& pParts)
{
    const auto tPackages = pParts.mSettings.leftOut();
    return tPackages ? Reply::result(toJson(LeftOutPackages{*tPackages}))
                     : storeFailure(pParts.mStore, u"The packages that were left out"_s);
}

} // namespace

void addChoiceMethods(MethodTable& pTable, const ChoiceParts& pParts)
{
    using Kind = MethodTable::Kind;
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetHolds, &getHolds);
    tGroup.add(method::sSetHold, Kind::Change, &setHold);
    tGroup.add(method::sRemoveHold, Kind::Change, &removeHold);
    tGroup.add(method::sGetChannel, &getChannel);
    tGroup.add(method::sSetChannel, Kind::Change, &setChannel);
    tGroup.add(method::sGetLeftOut, &getLeftOut);
}

} // namespace tarn::vkservice::methods
