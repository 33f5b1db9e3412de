// The rules of the schedule. The first line of an input is the current date, each further one a schedule that
// replaces the previous one:
//   MODE FLAGS COUNT UNIT NEXTCHECK     numbers, and a date as in the protocol or "null"
//   w WINDOWS                           a value of schedule.window
#include "internal/Fields.h"
#include "schedule/ScheduleRules.h"
#include "schedule/Windows.h"

#include <QtCore/QByteArrayList>

#include <cstdlib>
#include <optional>

using namespace Qt::StringLiterals;

using namespace tarn::vkservice;
using namespace tarn::vkservice::schedule;
using tarn::vkcore::Scheduler;

namespace {

std::optional<QDateTime> dateOf(const QByteArray& pText)
{
    const QJsonValue tValue = pText == "null" ? QJsonValue() : QJsonValue(QString::fromUtf8(pText));
    QString tFault;
    tarn::vkcore::JsonReader tReader(QJsonObject{{u"date"_s, tValue}}, &tFault);
    QDateTime tDate;
    tarn::vkcore::protocol::read(tReader, "date", &tDate);
    return tReader.ok() ? std::optional(tDate) : std::nullopt;
}

std::optional<ScheduleSettings> settingsOf(const QByteArray& pLine)
{
    const QByteArrayList tWords = pLine.split(' ');
    const auto tDate = dateOf(tWords.value(4));
    const int tMode = tWords.value(0).toInt();
    const int tCount = tWords.value(2).toInt();
    const int tUnit = tWords.value(3).toInt();
    if (!tDate || tMode < 0 || tMode > Scheduler::AutoUpdateAutomatic || tCount < 0 || tUnit < 0 ||
        tUnit > Scheduler::PeriodMonth) {
        return std::nullopt;
    }
    ScheduleSettings tSettings;
    tSettings.mMode = static_cast<Scheduler::AutoUpdateMode>(tMode);
    tSettings.mFlags = tWords.value(1).toInt();
    tSettings.mPeriodCount = tCount;
    tSettings.mUnit = static_cast<Scheduler::PeriodUnit>(tUnit);
    tSettings.mNextCheck = *tDate;
    return tSettings;
}

void require(bool pCondition)
{
    if (!pCondition) {
        std::abort();
    }
}

ScheduleSettings change(const ScheduleSettings& pOld, const ScheduleSettings& pWanted, const QDateTime& pNow)
{
    ScheduleSettings tNew = afterChange(pOld, pWanted, pNow);
    require(!runsByDate(tNew) || (tNew.mNextCheck.isValid() && tNew.mNextCheck >= pNow));
    ScheduleSettings tChecked = tNew;
    QDateTime tMoment = pNow;
    for (int i = 0; i < 3 && runsByDate(tChecked) && tChecked.mNextCheck.date().year() < 9990; ++i) {
        tMoment = std::max(tMoment, tChecked.mNextCheck);
        tChecked = afterCheck(tChecked, tMoment);
        require(tChecked.mNextCheck.isValid() && tChecked.mNextCheck > tMoment);
        require(tChecked.mNextCheck.date().year() <= 9999);
    }
    const ScheduleSettings tBack = afterClockChange(tChecked, pNow);
    require(tBack.mNextCheck.isValid() == tChecked.mNextCheck.isValid());
    constexpr int sJitter = 3600;
    const int tOffset = jitterOffset(tBack.mNextCheck, sJitter, "machine");
    require(tOffset >= 0 && tOffset <= sJitter);
    return tNew;
}

void tryWindows(const QByteArray& pText, const QDateTime& pNow)
{
    const auto tWindows = Windows::fromText(QString::fromUtf8(pText));
    if (!tWindows) {
        require(!tWindows.failure().mText.isEmpty());
        return;
    }
    QDateTime tMoment = pNow;
    for (int i = 0; i < 5 && !tWindows->isEmpty(); ++i) {
        const Opening tOpening = tWindows->at(tMoment);
        require(tOpening.mFrom.isValid() && tOpening.mFrom < tOpening.mUntil && tMoment < tOpening.mUntil);
        require(tWindows->at(tOpening.mFrom).isOpen(tOpening.mFrom));
        tMoment = tOpening.mUntil;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    const QByteArray tInput(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    const QByteArrayList tLines = tInput.split('\n');
    const auto tNow = dateOf(tLines.first());
    // A clock may be wrong by years, but not by thousands of years.
    if (!tNow || !tNow->isValid() || tNow->date().year() < 1970 || tNow->date().year() > 9000) {
        return -1;
    }
    ScheduleSettings tSettings;
    constexpr qsizetype sMaxChanges = 20;
    for (qsizetype i = 1; i < std::min(tLines.size(), sMaxChanges); ++i) {
        if (tLines[i].startsWith("w ")) {
            tryWindows(tLines[i].mid(2), *tNow);
        } else if (const auto tWanted = settingsOf(tLines[i])) {
            tSettings = change(tSettings, *tWanted, *tNow);
        }
    }
    return 0;
}
