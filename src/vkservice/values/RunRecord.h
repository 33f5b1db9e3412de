#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkservice {

// The result of the last update run.
struct RunRecord
{
    int mCode = 0; // a ResultCode; 0: there was no run yet
    QString mText;
    QDateTime mFinished;    // local time
    QDateTime mLastSuccess; // the end of the last successful run; invalid before the first
    // UTC, to the millisecond: identifies the run. Invalid for a result that does not belong to a run.
    QDateTime mBegan;
    // How many runs in a row the service did not survive; a run that ends resets it to 0.
    int mCutShort = 0;

    bool operator==(const RunRecord&) const = default;
};

// What the packages of a run cost.
struct RunTraffic
{
    qint64 mReceived = 0; // bytes that servers have sent
    qint64 mWhole = 0;    // bytes of the archives of all packages that were installed
};

} // namespace tarn::vkservice
