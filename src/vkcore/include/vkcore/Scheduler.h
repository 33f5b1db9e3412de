#pragma once

#include <vkcore/Export.h>

#include <QtCore/QDateTime>
#include <QtCore/QMetaType>

namespace tarn::vkcore {

class VKCORE_EXPORT Scheduler
{
public:
    enum AutoUpdateMode : int
    {
        AutoUpdateManual = 0,
        AutoUpdateNotification = 1,
        AutoUpdateAutomatic = 2,
    };

    enum PeriodUnit : int
    {
        PeriodHour = 0,
        PeriodDay = 1,
        PeriodWeek = 2,
        PeriodMonth = 3,
    };

    // The first of pDate + k * period, k = 0, 1, 2, ..., that lies at least pLeadSeconds behind pNow
    // (behind the present moment where pNow is invalid). Months are counted from the day of pDate:
    // 31 January, 28 February, 31 March. It is computed in one step however long ago pDate is.
    // Where that lies behind the year 9999 it is the last day of that year.
    // A pCount of 0 or less, or an invalid pDate, gives pNow + pLeadSeconds.
    static QDateTime nextValidUpdateTime(const QDateTime& pDate, int pCount, PeriodUnit pUnit,
                                         const QDateTime& pNow, int pLeadSeconds);
};

} // namespace tarn::vkcore
