#include "ClientTest.h"

#include <QtCore/QDateTime>
#include <QtCore/QRegularExpression>

static QByteArray schedule(const QByteArray& pMode, const QByteArray& pFlags, const QByteArray& pNext,
                           const QByteArray& pCount, const QByteArray& pUnit)
{
    return R"({"extra":"kept","flags":)" + pFlags + R"(,"mode":)" + pMode + R"(,"nextCheck":)" + pNext +
           R"(,"periodCount":)" + pCount + R"(,)" + R"("unit":)" + pUnit + "}";
}

static const QByteArray sNext = R"("2031-02-03T04:05:06")";

static Script has(const QByteArray& pMode, const QByteArray& pFlags, const QByteArray& pCount = "3",
                  const QByteArray& pUnit = "1", const QByteArray& pNext = sNext)
{
    return answers("getScheduleParameters", schedule(pMode, pFlags, pNext, pCount, pUnit));
}

static QByteArray sets(const QByteArray& pMode, const QByteArray& pFlags, const QByteArray& pCount = "3",
                       const QByteArray& pUnit = "1", const QByteArray& pNext = sNext)
{
    QByteArray tParams = schedule(pMode, pFlags, pNext, pCount, pUnit);
    tParams.replace(R"(,"unit")", R"(,"save":true,"unit")");
    return "setScheduleParameters " + tParams;
}

TEST(ShowScheduleTest, PrintsAsMuchAsTheModeHas)
{
    const QByteArray tMode = "Automatic installation mode: ";
    const QByteArray tDate = "Next scheduled check: 2031-02-03 04:05:06\n";
    const auto tShows = [](const Script& pScript, const QByteArray& pOut) {
        return ok("show-schedule-settings", pOut, {"getScheduleParameters"}, {pScript});
    };
    check({
        tShows(has("0", "1"), tMode + "Manual updates\n"),
        tShows(has("1", "3"), tMode + "Update notification\nUpdate period: On user login\n"),
        tShows(has("2", "2"), tMode + "Automatic updates\nUpdate period: 3 day(s)\n" + tDate),
        tShows(has("2", "0", "0", "0"), tMode + "Automatic updates\nUpdate period: 0 hour(s)\n" + tDate),
        tShows(has("2", "0", "1", "2"), tMode + "Automatic updates\nUpdate period: 1 week(s)\n" + tDate),
        tShows(has("7", "0", "5", "3"), tMode + "\nUpdate period: 5 month(s)\n" + tDate),
        tShows(has("2", "0", "5", "4", "null"),
               tMode + "Automatic updates\nUpdate period: \nNext scheduled check: \n"),
        fails("show-schedule-settings", "Failed to get current schedule parameters.\n",
              {"getScheduleParameters"}, {refuses("getScheduleParameters")}),
    });
}

TEST(UpdateScheduleTest, ChangesWhatTheOptionsName)
{
    const auto tChanges = [](const Words& pOptions, const Script& pScript, const QByteArray& pCall) {
        return ok(Words("update-schedule-settings") + pOptions, sApplied,
                  guarded({"getScheduleParameters", pCall}), {pScript});
    };
    check({
        tChanges("--mode=manual", has("2", "6"), sets("0", "6")),
        tChanges("-m automatic", has("0", "1"), sets("2", "1")),
        tChanges("--interval=7h", has("2", "7"), sets("2", "6", "7", "0")),
        tChanges("-i 007d", has("2", "0"), sets("2", "0", "7", "1")),
        tChanges("-i0w", has("2", "0"), sets("2", "0", "0", "2")),
        tChanges("-i 2147483647m", has("2", "0"), sets("2", "0", "2147483647", "3")),
        tChanges("-i 2147483648d", has("2", "0"), sets("2", "0", "0", "1")),
        tChanges("--interval=login", has("1", "4", "9", "9"), sets("1", "5", "9", "9")),
        tChanges("--interval=login --mode=manual", has("2", "0"), sets("0", "1")),
        tChanges({"--next-update=2040-12-31 23:59:59"}, has("2", "0"),
                 sets("2", "0", "3", "1", R"("2040-12-31T23:59:59")")),
        // A stored date is sent back unchanged.
        tChanges("-i1d", has("2", "0", "3", "1", R"("2001-01-01T00:00:00")"),
                 sets("2", "0", "1", "1", R"("2001-01-01T00:00:00")")),
    });
}

TEST(UpdateScheduleTest, RefusesWithoutAChange)
{
    const auto tRefuses = [](const Words& pOptions, const QByteArray& pError,
                             const Script& pScript = has("2", "0")) {
        return fails(Words("update-schedule-settings") + pOptions, pError + '\n',
                     guarded({"getScheduleParameters"}), {pScript});
    };
    const QByteArray tLogin = "The interval 'login' only works in the notification mode.";
    check({
        tRefuses("-mmanual", "Failed to get current schedule parameters.", refuses("getScheduleParameters")),
        tRefuses("--mode=notification -ix",
                 "Update notifications are not available on your operating system"),
        tRefuses("--mode=Manual%1 -ix", "Invalid mode 'Manual%1'"),
        tRefuses("-ilogin", tLogin),
        tRefuses("-ilogin -mautomatic", tLogin, has("1", "0")),
        tRefuses({"--next-update=2040-13-01 00:00:00"}, "Invalid date for next update '2040-13-01 00:00:00'"),
        tRefuses("-n2040-01-01", "Invalid date for next update '2040-01-01'"),
        fails("update-schedule-settings -mmanual", "Failed to update settings.\n",
              guarded({"getScheduleParameters", sets("0", "0")}), {refuses("setScheduleParameters")}),
    });
    for (const char* tInterval : {"3D", "LOGIN", "3", "", "-3d", "3 d", "3d\n", "٣d"}) {
        check({tRefuses({QByteArray("--interval=") + tInterval},
                        QByteArray("Invalid interval '") + tInterval + "'")});
    }
}

// The resulting date depends on the clock: it has to be the next one of the new period.
TEST_F(ClientTest, ADateInThePastIsMovedOnByTheNewPeriod)
{
    const QDateTime tBefore = QDateTime::currentDateTime();
    const Program::Result tResult =
        mInstallation.run({"update-schedule-settings", "--next-update=2020-05-06 07:08:09", "--interval=1d"});
    EXPECT_EQ(tResult.mOut, sApplied);
    EXPECT_EQ(tResult.mStatus, 0);
    const QRegularExpressionMatch tMatch =
        QRegularExpression(q("^NOTICE: the date '2020-05-06 07:08:09' is in the past and has been "
                             "adjusted to '(.*)( 07:08:09)'\n$"))
            .match(q(tResult.mErr));
    ASSERT_TRUE(tMatch.hasMatch()) << tResult.mErr;
    const QDate tDate = QDate::fromString(tMatch.captured(1), Qt::ISODate);
    EXPECT_GE(tDate, tBefore.date());
    EXPECT_LE(tDate, tBefore.date().addDays(2));
    EXPECT_EQ(mService.calls().last().toUtf8(),
              sets("2", "0", "1", "1", '"' + tMatch.captured(1).toUtf8() + R"(T07:08:09")"));
}
