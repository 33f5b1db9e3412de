#pragma once

#include "values/RunRecord.h"

#include <QtCore/QHash>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkservice::store {

// What all runs since the store was made add up to.
struct RunCounters
{
    QMap<int, qint64> mRuns; // by ResultCode
    qint64 mReceived = 0;    // bytes of packages that servers have sent
    qint64 mSaved = 0;       // bytes that whole archives would have cost beyond that
    // Received by runs that have not installed what it was for. The run that does has to pay for it.
    qint64 mUnpaid = 0;

    // pRecord belongs to a run that has ended.
    void add(const RunRecord& pRecord, const RunTraffic& pTraffic);

    // As settings, whose names have the prefix "counters.".
    QHash<QString, QString> toSettings() const;
    static RunCounters fromSettings(const QHash<QString, QString>& pStored);
};

} // namespace tarn::vkservice::store
