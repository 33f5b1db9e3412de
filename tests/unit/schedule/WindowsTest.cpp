#include "schedule/Windows.h"
#include "Test.h"

#include <ctime>
#include <optional>

using namespace tarn::vkservice;
using namespace tarn::vkservice::schedule;

namespace {

// The process's time zone, until the end of the object.
class Zone
{
public:
    explicit Zone(const char* pName) { set(pName); }
    ~Zone() { set(mOld.isNull() ? nullptr : mOld.constData()); }

private:
    static void set(const char* pName)
    {
        pName == nullptr ? qunsetenv("TZ") : qputenv("TZ", pName);
        ::tzset();
    }
    QByteArray mOld = qgetenv("TZ");
};

QDateTime utc(const char* pText)
{
    return QDateTime::fromString(q(pText) + q(":00Z"), Qt::ISODate);
}

std::string text(const Opening& pOpening)
{
    const auto tText = [](const QDateTime& pTime) { return pTime.toUTC().toString(q("MM-dd hh:mm")); };
    return q("%1 to %2").arg(tText(pOpening.mFrom), tText(pOpening.mUntil)).toStdString();
}

} // namespace

TEST(Windows, OpenWhenTheClockSaysSo)
{
    const struct
    {
        const char* mWindows;
        const char* mNow; // UTC
        const char* mOpening;
    } tCases[] = {
        {"01:00-05:00", "2026-01-10T00:30", "01-10 00:00 to 01-10 04:00"},
        {"01:00-05:00", "2026-01-10T03:59", "01-10 00:00 to 01-10 04:00"},
        {"01:00-05:00", "2026-01-10T04:00", "01-11 00:00 to 01-11 04:00"},
        {"Sat,Sun 01:00-05:00", "2026-01-12T09:00", "01-17 00:00 to 01-17 04:00"},
        {" Sat , Sun  01:00-05:00 ", "2026-01-10T12:00", "01-11 00:00 to 01-11 04:00"},
        {"Fri-Mon 10:00-11:00", "2026-01-11T12:00", "01-12 09:00 to 01-12 10:00"},
        {"Fri 22:00-02:00", "2026-01-10T00:30", "01-09 21:00 to 01-10 01:00"},
        {"Sat 20:00-24:00;Sun 00:00-03:00", "2026-01-10T23:30", "01-10 19:00 to 01-11 02:00"},
        {"Mon 03:00-04:00;Wed 03:00-04:00", "2026-01-12T03:00", "01-14 02:00 to 01-14 03:00"},
        {"Sun 05:00-04:00", "2026-01-12T02:59", "01-11 04:00 to 01-12 03:00"},
        // The night that skips 02:00 to 03:00, which begins at 01:00 UTC.
        {"01:00-05:00", "2026-03-29T02:00", "03-29 00:00 to 03-29 03:00"},
        {"02:00-03:00", "2026-03-28T12:00", "03-29 01:00 to 03-29 02:00"},
        {"02:30-03:00", "2026-03-28T12:00", "03-29 01:30 to 03-29 02:00"},
        {"01:00-02:30", "2026-03-28T12:00", "03-29 00:00 to 03-29 01:30"},
        // The night that has 02:00 to 03:00 twice, from 00:00 and from 01:00 UTC.
        {"02:00-03:00", "2026-10-24T12:00", "10-25 00:00 to 10-25 02:00"},
        {"02:15-02:45", "2026-10-24T12:00", "10-25 00:15 to 10-25 00:45"},
        {"02:15-02:45", "2026-10-25T01:20", "10-26 01:15 to 10-26 01:45"},
        {"01:00-05:00", "2026-10-24T12:00", "10-24 23:00 to 10-25 04:00"},
    };
    const Zone tZone("Europe/Berlin");
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(std::string(tCase.mWindows) + " at " + tCase.mNow);
        const auto tWindows = Windows::fromText(q(tCase.mWindows));
        ASSERT_TRUE(tWindows) << tWindows.failure().mText.toStdString();
        EXPECT_EQ(text(tWindows->at(utc(tCase.mNow))), tCase.mOpening);
    }
    EXPECT_TRUE(Windows::fromText(q(" "))->isEmpty());
    EXPECT_TRUE(
        Windows::fromText(q("00:00-24:00"))->at(utc("2026-03-29T01:00")).isOpen(utc("2026-04-04T01:00")));
}

TEST(Windows, SayWhatIsWrong)
{
    for (const char* tText : {"1:00-5:00",
                              "01:00",
                              "01:00-",
                              "-05:00",
                              "24:00-05:00",
                              "01:00-24:01",
                              "01:60-05:00",
                              "01:00-05:00-06:00",
                              "sat 01:00-05:00",
                              "Saturday 01:00-05:00",
                              "Sat, 01:00-05:00",
                              "Mon-Wed-Fri 01:00-05:00",
                              "Sat-",
                              "01:00-05:00;",
                              ";",
                              "01:00-01:00",
                              "23:50-00:04",
                              "01:00-05:00 Sat",
                              "Sat Sun",
                              "01:00 - 05:00"}) {
        const auto tWindows = Windows::fromText(q(tText));
        EXPECT_FALSE(tWindows) << tText;
        EXPECT_TRUE(!tWindows && !tWindows.failure().mText.isEmpty()) << tText;
    }
    EXPECT_FALSE(Windows::fromText(QStringList(51, q("01:00-05:00")).join(u';')));
}
