#pragma once

#include "internal/Failure.h"
#include "values/Opening.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkservice::schedule {

// The windows of schedule.window, by the machine's local time:
//
//   Sat,Sun 01:00-05:00; Mon-Fri 23:30-04:00
//
// Without days it is every day. A window that ends before it begins ends on the next day; 24:00 is the end of
// a day. A time that the night skips counts later by what is skipped, and a window that begins so keeps its
// length; a time that occurs twice counts the first time.
class Windows
{
public:
    static constexpr int sLeastMinutes = 15; // of a window

    // An empty text has no windows. Else a failure, without its full stop, that names what is wrong.
    static Result<Windows> fromText(const QString& pText);

    // True if runs never wait.
    bool isEmpty() const { return mWindows.isEmpty(); }
    // The opening at this time, else the next one. Windows that touch are one. Not to be called if empty.
    Opening at(const QDateTime& pNow) const;

private:
    struct Window
    {
        int mDays = 0; // bit 0: Monday
        int mFrom = 0; // minutes of the day
        int mLength = 0;
    };

    static Result<Window> windowOf(const QString& pText);
    static Opening onDay(const Window& pWindow, const QDate& pDay);

    QList<Window> mWindows;
};

} // namespace tarn::vkservice::schedule
