#include "StoreTest.h"

#include "store/Settings.h"
#include "values/ResultCode.h"

using namespace tarn::vkservice;
using namespace tarn::vkcore;
using namespace tarn::vkservice::store;

namespace {

class SettingsTest : public StoreTest
{
protected:
    Settings settings() { return Settings(mStore.database()); }

    void setProxy(const QString& pHost, const QString& pUser, const std::optional<QString>& pPassword,
                  quint32 pPort = 8080)
    {
        ProxySettings tProxy{NetProxyModeManual, NetProxy(true, true)};
        tProxy.mProxy.mHost = pHost;
        tProxy.mProxy.mPort = pPort;
        tProxy.mProxy.mUser = pUser;
        tProxy.mProxy.mPassword = pPassword.value_or(QString());
        tProxy.mProxy.mPasswordChanged = pPassword.has_value();
        ASSERT_TRUE(settings().setProxy(tProxy));
    }
    std::string password() { return settings().proxy()->mProxy.mPassword.toStdString(); }
};

} // namespace

TEST_F(SettingsTest, ProxyPasswordStaysWithItsProxy)
{
    setProxy(q("proxy"), q("me"), q("secret"));
    reopen();
    EXPECT_EQ(password(), "secret");
    setProxy(q("proxy"), q("other"), {});
    EXPECT_EQ(password(), "secret");
    // Another host, another port, no proxy with and without a user: the password is deleted.
    const std::tuple<const char*, quint32, const char*> tOthers[] = {
        {"other", 8080, "me"}, {"proxy", 8081, "me"}, {"", 8080, "me"}, {"", 8080, ""}};
    for (const auto& [tHost, tPort, tUser] : tOthers) {
        setProxy(q("proxy"), q("me"), q("secret"));
        setProxy(q(tHost), q(tUser), {}, tPort);
        setProxy(q("proxy"), q("me"), {});
        EXPECT_EQ(password(), "") << tHost << tPort << tUser;
    }
    setProxy({}, {}, {});
    // First the password, then the host with a later command.
    setProxy({}, {}, q("secret"));
    setProxy(q("proxy"), {}, {});
    EXPECT_EQ(password(), "secret");
}

TEST_F(SettingsTest, ScheduleComesBackAsItWas)
{
    ScheduleSettings tSchedule;
    tSchedule.mMode = Scheduler::AutoUpdateAutomatic;
    tSchedule.mFlags = 5;
    tSchedule.mNextCheck = QDateTime(QDate(2026, 3, 10), QTime(3, 4, 5));
    tSchedule.mPeriodCount = 2;
    tSchedule.mUnit = Scheduler::PeriodMonth;
    tSchedule.mAnchor = QDateTime(QDate(2026, 1, 31), QTime(3, 4, 5));
    tSchedule.mExtra = q("line\n\"%1\" \u00e4");
    tSchedule.mNextCheckChosen = true;
    ASSERT_TRUE(settings().setSchedule(tSchedule));
    reopen();
    EXPECT_EQ(settings().schedule(), tSchedule);
}

TEST_F(SettingsTest, RunThatDidNotEndIsFoundUntilAResultIsRecorded)
{
    ASSERT_TRUE(settings().beginRun(q("2026-03-10T03:00:00")));
    reopen();
    EXPECT_EQ(settings().unfinishedRun(), q("2026-03-10T03:00:00"));
    const RunRecord tRecord{3, q("text"), QDateTime(QDate(2026, 3, 10), QTime(4, 0)),
                            QDateTime(QDate(2026, 3, 9), QTime(4, 0)),
                            QDateTime(QDate(2026, 3, 10), QTime(2, 0, 0, 7), Qt::UTC)};
    ASSERT_TRUE(settings().setLastRun(tRecord));
    reopen();
    EXPECT_TRUE(settings().unfinishedRun()->isEmpty());
    EXPECT_EQ(settings().lastRun(), tRecord);
}

TEST_F(SettingsTest, KeepsHowTheLastRunsEndedThatDidSomething)
{
    const auto tEnd = [this](qint64 pSecond, int pCode, qint64 pWhole) {
        const QDateTime tBegan = QDateTime::fromSecsSinceEpoch(pSecond, Qt::UTC);
        const RunRecord tRecord{pCode, q("%1: %2").arg(pSecond).arg(pCode), tBegan.addMSecs(7), {}, tBegan};
        ASSERT_TRUE(settings().setLastRun(tRecord, {.mReceived = 0, .mWhole = pWhole}));
    };
    const auto tTexts = [this] {
        QStringList tList;
        const auto tRuns = settings().pastRuns().value_or(QList<RunRecord>());
        for (const RunRecord& tRun : tRuns) {
            EXPECT_EQ(tRun.mBegan.msecsTo(tRun.mFinished), 7);
            tList.append(tRun.mText);
        }
        return tList.join(u' ');
    };
    tEnd(20, ResultSuccess, 500);
    tEnd(30, ResultSuccess, 0);
    tEnd(9, ResultUnreachable, 0);
    EXPECT_EQ(tTexts(), q("9: 2 20: 1"));
    tEnd(40, ResultAborted, 0); // the service was killed in its checks
    tEnd(40, ResultSuccess, 0); // which have passed since
    ASSERT_TRUE(settings().setLastRun({ResultStoreDamaged, q("no run"), {}, {}, {}}));
    reopen();
    EXPECT_EQ(tTexts(), q("9: 2 20: 1 40: 1"));
    for (int i = 0; i < Settings::sMostPastRuns - 1; ++i) {
        tEnd(100 + i, ResultAborted, 0);
    }
    EXPECT_EQ(settings().pastRuns()->size(), Settings::sMostPastRuns);
    EXPECT_EQ(settings().pastRuns()->first().mText, q("40: 1"));
    EXPECT_TRUE(settings().schedule()) << "the other settings are there";
}
