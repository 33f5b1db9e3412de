#include "control/UpdateControl.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "Service.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace ipc;

namespace {

Reply progress(Service& pService)
{
    const update::Progress tProgress = pService.updates().progress();
    const QString tText = tProgress.mText.isNull() ? QString(QLatin1String("")) : tProgress.mText;
    return Reply::result(QJsonObject{
        {u"activity"_s, static_cast<int>(tProgress.mActivity)},
        {u"cancelable"_s, tProgress.mCancelable},
        {u"text"_s, tText},
        {u"bytesDone"_s, tProgress.mBytesDone},
        {u"bytesTotal"_s, tProgress.mBytesTotal},
        {u"done"_s, tProgress.mDone},
        {u"total"_s, tProgress.mTotal},
        {u"package"_s, tProgress.mPackage},
        {u"packageCount"_s, tProgress.mPackageCount},
        {u"failedCount"_s, tProgress.mFailedCount},
    });
}

const RunRecord& record(Service& pService, bool pThisSession)
{
    return pThisSession ? pService.updates().sessionRun() : pService.updates().lastRun();
}

Reply lastResult(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tThisSession = tParams.get<bool>("thisSession");
    return tParams.ok() ? Reply::result(record(pService, tThisSession).mCode) : tParams.invalid();
}

Reply lastResultText(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tThisSession = tParams.get<bool>("thisSession");
    return tParams.ok() ? Reply::result(pService.updates().resultText(record(pService, tThisSession)))
                        : tParams.invalid();
}

Reply trigger(Service& pService, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tManual = tParams.get<bool>("manual");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    if (pService.isEnding()) {
        return Reply::refused(u"The service is about to end."_s);
    }
    QString tReason;
    const bool tStarted = pService.updates().trigger(tManual, &tReason);
    return Reply::of(tStarted, tReason);
}

} // namespace

void addUpdateMethods(MethodTable& pTable, Service& pService)
{
    using Kind = MethodTable::Kind;
    pTable.add(u"isServiceActive"_s, Kind::Query,
               [&](Connection&, const QJsonObject&) { return Reply::result(pService.updates().isActive()); });
    pTable.add(u"getServiceStatus"_s, Kind::Query, [&](Connection&, const QJsonObject&) {
        return Reply::result(static_cast<int>(pService.updates().status()));
    });
    pTable.add(u"getServiceProgress"_s, Kind::Query,
               [&](Connection&, const QJsonObject&) { return progress(pService); });
    pTable.add(u"getLastServiceResult"_s, Kind::Query,
               [&](Connection&, const QJsonObject& pParams) { return lastResult(pService, pParams); });
    pTable.add(u"getLastServiceResultStr"_s, Kind::Query,
               [&](Connection&, const QJsonObject& pParams) { return lastResultText(pService, pParams); });
    pTable.add(u"triggerUpdate"_s, Kind::Query,
               [&](Connection&, const QJsonObject& pParams) { return trigger(pService, pParams); });
    pTable.add(u"abortUpdate"_s, Kind::Query, [&](Connection&, const QJsonObject&) {
        return Reply::of(pService.updates().abort(), u"No update is under way."_s);
    });
}

} // namespace tarn::vkservice::methods
