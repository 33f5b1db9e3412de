#include "control/UpdateControl.h"
#include "ipc/Params.h"
#include "methods/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using control::UpdateControl;
using namespace ipc;

namespace {

Reply progress(const UpdateControl& pUpdates)
{
    const update::Progress tProgress = pUpdates.progress();
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

const RunRecord& record(const UpdateControl& pUpdates, bool pThisSession)
{
    return pThisSession ? pUpdates.sessionRun() : pUpdates.lastRun();
}

Reply lastResult(const UpdateControl& pUpdates, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tThisSession = tParams.get<bool>("thisSession");
    return tParams.ok() ? Reply::result(record(pUpdates, tThisSession).mCode) : tParams.invalid();
}

Reply lastResultText(const UpdateControl& pUpdates, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tThisSession = tParams.get<bool>("thisSession");
    return tParams.ok() ? Reply::result(pUpdates.resultText(record(pUpdates, tThisSession)))
                        : tParams.invalid();
}

Reply trigger(UpdateControl& pUpdates, const QJsonObject& pParams)
{
    Params tParams(pParams);
    const bool tManual = tParams.get<bool>("manual");
    if (!tParams.ok()) {
        return tParams.invalid();
    }
    QString tReason;
    const bool tStarted = pUpdates.trigger(tManual, &tReason);
    return Reply::of(tStarted, tReason);
}

} // namespace

void addUpdateMethods(MethodTable& pTable, UpdateControl& pUpdates)
{
    using Kind = MethodTable::Kind;
    pTable.add(u"isServiceActive"_s, Kind::Query,
               [&pUpdates](Connection&, const QJsonObject&) { return Reply::result(pUpdates.isActive()); });
    pTable.add(u"getServiceStatus"_s, Kind::Query, [&pUpdates](Connection&, const QJsonObject&) {
        return Reply::result(static_cast<int>(pUpdates.status()));
    });
    pTable.add(u"getServiceProgress"_s, Kind::Query,
               [&pUpdates](Connection&, const QJsonObject&) { return progress(pUpdates); });
    pTable.add(u"getLastServiceResult"_s, Kind::Query, [&pUpdates](Connection&, const QJsonObject& pParams) {
        return lastResult(pUpdates, pParams);
    });
    pTable.add(
        u"getLastServiceResultStr"_s, Kind::Query,
        [&pUpdates](Connection&, const QJsonObject& pParams) { return lastResultText(pUpdates, pParams); });
    pTable.add(u"triggerUpdate"_s, Kind::Query,
               [&pUpdates](Connection&, const QJsonObject& pParams) { return trigger(pUpdates, pParams); });
    pTable.add(u"abortUpdate"_s, Kind::Query, [&pUpdates](Connection&, const QJsonObject&) {
        return Reply::of(pUpdates.abort(), u"No update is under way."_s);
    });
}

} // namespace tarn::vkservice::methods
