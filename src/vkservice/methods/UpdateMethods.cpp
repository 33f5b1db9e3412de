#include "control/UpdateControl.h"
#include "ipc/Params.h"
#include "methods/Methods.h"
#include "Service.h"

namespace tarn::vkservice::methods {

using namespace ipc;

namespace {

Reply progress(Service& pService)
{
    const update::Progress tProgress = pService.updates().progress();
    const QString tText = tProgress.mText.isNull() ? QString(QLatin1String("")) : tProgress.mText;
    return Reply::result(QJsonObject{
        {QStringLiteral("activity"), static_cast<int>(tProgress.mActivity)},
        {QStringLiteral("cancelable"), tProgress.mCancelable},
        {QStringLiteral("text"), tText},
        {QStringLiteral("bytesDone"), tProgress.mBytesDone},
        {QStringLiteral("bytesTotal"), tProgress.mBytesTotal},
        {QStringLiteral("done"), tProgress.mDone},
        {QStringLiteral("total"), tProgress.mTotal},
        {QStringLiteral("package"), tProgress.mPackage},
        {QStringLiteral("packageCount"), tProgress.mPackageCount},
        {QStringLiteral("failedCount"), tProgress.mFailedCount},
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
        return Reply::refused(QStringLiteral("The service is about to end."));
    }
    QString tReason;
    const bool tStarted = pService.updates().trigger(tManual, &tReason);
    return Reply::of(tStarted, tReason);
}

} // namespace

void addUpdateMethods(MethodTable& pTable, Service& pService)
{
    using Kind = MethodTable::Kind;
    pTable.add(QStringLiteral("isServiceActive"), Kind::Query,
               [&](Connection&, const QJsonObject&) { return Reply::result(pService.updates().isActive()); });
    pTable.add(QStringLiteral("getServiceStatus"), Kind::Query, [&](Connection&, const QJsonObject&) {
        return Reply::result(static_cast<int>(pService.updates().status()));
    });
    pTable.add(QStringLiteral("getServiceProgress"), Kind::Query,
               [&](Connection&, const QJsonObject&) { return progress(pService); });
    pTable.add(QStringLiteral("getLastServiceResult"), Kind::Query,
               [&](Connection&, const QJsonObject& pParams) { return lastResult(pService, pParams); });
    pTable.add(QStringLiteral("getLastServiceResultStr"), Kind::Query,
               [&](Connection&, const QJsonObject& pParams) { return lastResultText(pService, pParams); });
    pTable.add(QStringLiteral("triggerUpdate"), Kind::Query,
               [&](Connection&, const QJsonObject& pParams) { return trigger(pService, pParams); });
    pTable.add(QStringLiteral("abortUpdate"), Kind::Query, [&](Connection&, const QJsonObject&) {
        return Reply::of(pService.updates().abort(), QStringLiteral("No update is under way."));
    });
}

} // namespace tarn::vkservice::methods
