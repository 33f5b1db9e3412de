#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::vkservice {

// How the last update run ended.
struct RunRecord
{
    int mCode = 0; // an ResultCode; 0: there was no run yet
    QString mText;
    QDateTime mFinished;    // local time
    QDateTime mLastSuccess; // when a run last ended well; invalid before the first
    // UTC, to the millisecond: tells this run from all others. Invalid for a result that belongs to no run.
    QDateTime mBegan;
    // How many runs in a row up to now the service did not survive; a run that ends makes it 0.
    int mCutShort = 0;

    bool operator==(const RunRecord&) const = default;
};

} // namespace tarn::vkservice
