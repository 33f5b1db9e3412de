#include "store/RunCounters.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::store {

namespace {

const QString sRuns = u"counters.runs."_s;
const QString sReceived = u"counters.received"_s;
const QString sSaved = u"counters.saved"_s;
const QString sUnpaid = u"counters.unpaid"_s;

} // namespace

void RunCounters::add(const RunRecord& pRecord, const RunTraffic& pTraffic)
{
    ++mRuns[pRecord.mCode];
    mReceived += pTraffic.mReceived;
    mUnpaid += pTraffic.mReceived;
    if (pTraffic.mWhole > 0) {
        mSaved += std::max<qint64>(0, pTraffic.mWhole - mUnpaid);
        mUnpaid = 0;
    }
}

QHash<QString, QString> RunCounters::toSettings() const
{
    QHash<QString, QString> tSettings{{sReceived, QString::number(mReceived)},
                                      {sSaved, QString::number(mSaved)},
                                      {sUnpaid, QString::number(mUnpaid)}};
    for (auto tRun = mRuns.begin(); tRun != mRuns.end(); ++tRun) {
        tSettings.insert(sRuns + QString::number(tRun.key()), QString::number(tRun.value()));
    }
    return tSettings;
}

RunCounters RunCounters::fromSettings(const QHash<QString, QString>& pStored)
{
    RunCounters tCounters;
    tCounters.mReceived = pStored.value(sReceived).toLongLong();
    tCounters.mSaved = pStored.value(sSaved).toLongLong();
    tCounters.mUnpaid = pStored.value(sUnpaid).toLongLong();
    for (auto tStored = pStored.begin(); tStored != pStored.end(); ++tStored) {
        if (tStored.key().startsWith(sRuns)) {
            tCounters.mRuns.insert(tStored.key().mid(sRuns.size()).toInt(), tStored.value().toLongLong());
        }
    }
    return tCounters;
}

} // namespace tarn::vkservice::store
