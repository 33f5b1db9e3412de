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

    // The first of pDate + k * period, k = 0, 1, 2, ..., that is at least pLeadSeconds after pNow (the
    // current time if pNow is invalid). Months are counted from the day of pDate: 31 January, 28 February, 31
    // March. Takes constant time, however long ago pDate is. After the year 9999 it is the last day of that
    // year. With a pCount of 0 or less, or an invalid pDate, it is pNow + pLeadSeconds.
    static QDateTime nextValidUpdateTime(const QDateTime& pDate, int pCount, PeriodUnit pUnit,
                                         const QDateTime& pNow, int pLeadSeconds);
};

} // namespace tarn::vkcore
