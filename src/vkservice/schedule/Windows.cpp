#include "schedule/Windows.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::schedule {

namespace {

constexpr qsizetype sMostWindows = 50;
constexpr int sDayMinutes = 24 * 60;
constexpr int sEveryDay = 0x7f;
constexpr int sLookBackDays = 2; // a window before today may still be open
constexpr int sLookAheadDays = 9;

int dayOf(const QString& pText)
{
    static const QStringList sDays{u"Mon"_s, u"Tue"_s, u"Wed"_s, u"Thu"_s, u"Fri"_s, u"Sat"_s, u"Sun"_s};
    return static_cast<int>(sDays.indexOf(pText));
}

// "Mon-Wed,Sat" as bits; 0 for another text.
int daysOf(const QString& pText)
{
    int tDays = 0;
    const QStringList tParts = pText.split(u',');
    for (const QString& tPart : tParts) {
        const int tFirst = dayOf(tPart.section(u'-', 0, 0));
        const int tLast = tPart.contains(u'-') ? dayOf(tPart.section(u'-', 1)) : tFirst;
        if (tFirst < 0 || tLast < 0) {
            return 0;
        }
        for (int tDay = tFirst;; tDay = (tDay + 1) % 7) {
            tDays |= 1 << tDay;
            if (tDay == tLast) {
                break;
            }
        }
    }
    return tDays;
}

// "HH:MM" in minutes; none for another text or a time after pLast.
std::optional<int> minutesOf(const QString& pText, int pLast)
{
    static const QRegularExpression sTime(u"^([0-9]{2}):([0-5][0-9])$"_s);
    const auto tMatch = sTime.match(pText);
    const int tMinutes = tMatch.captured(1).toInt() * 60 + tMatch.captured(2).toInt();
    return tMatch.hasMatch() && tMinutes <= pLast ? std::optional(tMinutes) : std::nullopt;
}

struct Moment
{
    QDateTime mTime;
    bool mIsSkipped = false;
};

// When the clock reads this time on this day. Qt decides on a skipped or doubled hour by itself, and its
// versions differ, so the offsets of the days around decide here.
Moment momentOf(const QDate& pDay, int pMinutes)
{
    const QDate tDay = pDay.addDays(pMinutes / sDayMinutes);
    const QTime tTime = QTime(0, 0).addSecs(pMinutes % sDayMinutes * 60);
    const qint64 tAsUtc = QDateTime(tDay, tTime, Qt::UTC).toSecsSinceEpoch();
    const auto tWithOffsetOf = [&](int pDays) {
        const qint64 tOffset = QDateTime(tDay.addDays(pDays), QTime(12, 0)).offsetFromUtc();
        return QDateTime::fromSecsSinceEpoch(tAsUtc - tOffset);
    };
    const QDateTime tFirst = tWithOffsetOf(-1);
    if (tFirst.time() == tTime) {
        return {tFirst};
    }
    const QDateTime tSecond = tWithOffsetOf(1);
    return tSecond.time() == tTime ? Moment{tSecond} : Moment{tFirst, true};
}

Failure invalid(const QString& pText, const QString& pWhy)
{
    return Failure::content(u"\"%1\" is no window: %2"_s.arg(pText, pWhy));
}

} // namespace

Result<Windows> Windows::fromText(const QString& pText)
{
    Windows tWindows;
    if (pText.trimmed().isEmpty()) {
        return tWindows;
    }
    const QStringList tParts = pText.split(u';');
    if (tParts.size() > sMostWindows) {
        return Failure::content(u"at most %1 windows are expected"_s.arg(sMostWindows));
    }
    for (const QString& tPart : tParts) {
        const Result<Window> tWindow = windowOf(tPart.simplified());
        if (!tWindow) {
            return tWindow.failure();
        }
        tWindows.mWindows.append(*tWindow);
    }
    return tWindows;
}

Result<Windows::Window> Windows::windowOf(const QString& pText)
{
    const QString tTimes = pText.section(u' ', -1);
    const auto tFrom = minutesOf(tTimes.section(u'-', 0, 0), sDayMinutes - 1);
    const auto tTo = minutesOf(tTimes.section(u'-', 1), sDayMinutes);
    if (!tFrom || !tTo) {
        return invalid(pText, u"times such as 01:00-05:00 are expected, from 00:00 to 24:00"_s);
    }
    Window tWindow{.mDays = sEveryDay, .mFrom = *tFrom, .mLength = *tTo - *tFrom};
    if (pText.contains(u' ')) {
        tWindow.mDays = daysOf(pText.section(u' ', 0, -2).remove(u' '));
        if (tWindow.mDays == 0) {
            return invalid(pText, u"days such as Sat,Sun or Mon-Fri are expected before the times"_s);
        }
    }
    if (tWindow.mLength == 0) {
        return invalid(pText, u"it ends when it begins; a whole day is 00:00-24:00"_s);
    }
    tWindow.mLength += tWindow.mLength < 0 ? sDayMinutes : 0;
    if (tWindow.mLength < sLeastMinutes) {
        return invalid(pText, u"it has less than %1 minutes"_s.arg(sLeastMinutes));
    }
    return tWindow;
}

Opening Windows::onDay(const Window& pWindow, const QDate& pDay)
{
    const Moment tFrom = momentOf(pDay, pWindow.mFrom);
    return {tFrom.mTime, tFrom.mIsSkipped ? tFrom.mTime.addSecs(pWindow.mLength * qint64(60))
                                          : momentOf(pDay, pWindow.mFrom + pWindow.mLength).mTime};
}

Opening Windows::at(const QDateTime& pNow) const
{
    QList<Opening> tAll;
    for (int tDays = -sLookBackDays; tDays <= sLookAheadDays; ++tDays) {
        const QDate tDay = pNow.toLocalTime().date().addDays(tDays);
        for (const Window& tWindow : mWindows) {
            if ((tWindow.mDays & 1 << (tDay.dayOfWeek() - 1)) != 0) {
                tAll.append(onDay(tWindow, tDay));
            }
        }
    }
    std::sort(tAll.begin(), tAll.end(),
              [](const Opening& pLeft, const Opening& pRight) { return pLeft.mFrom < pRight.mFrom; });
    Opening tFound;
    for (const Opening& tNext : std::as_const(tAll)) {
        if (tFound.mFrom.isValid() && tNext.mFrom <= tFound.mUntil) {
            tFound.mUntil = std::max(tFound.mUntil, tNext.mUntil);
        } else if (tFound.mFrom.isValid() && pNow < tFound.mUntil) {
            break;
        } else {
            tFound = tNext;
        }
    }
    return tFound;
}

} // namespace tarn::vkservice::schedule
