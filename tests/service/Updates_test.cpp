#include "ServiceRig.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>

#include <csignal>

namespace {

enum Status
{
    Idle,
    Suppressed,
    Updating,
    Aborting,
    Error,
};

constexpr int sWaitingForApps = 3;

// In the service's time zone, as dates travel.
QString inSeconds(int pSeconds)
{
    return QDateTime::currentDateTime().addSecs(pSeconds).toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"));
}

class UpdatesTest : public ServiceTest
{
protected:
    // A service in the middle of a run that goes on until somebody ends it, with a monitor on it.
    void startHeldRun()
    {
        ASSERT_NO_FATAL_FAILURE(mHeld.prepare(mRig));
        ASSERT_NO_FATAL_FAILURE(start());
        ASSERT_TRUE(trigger());
        ASSERT_TRUE(waitForStatus(Idle));
        ASSERT_EQ(result(), 1);
        ASSERT_NO_FATAL_FAILURE(mHeld.hold());
        triggerHeldRun();
    }
    void triggerHeldRun()
    {
        ASSERT_TRUE(trigger());
        ASSERT_TRUE(mMonitor->waitForEvent(QStringLiteral("serviceActivityChanged"),
                                           QStringLiteral("activity"), sWaitingForApps));
    }
    void start(const QList<QByteArray>& pArguments = {"-e", "-worker"})
    {
        mRig.start(pArguments);
        mPeer = std::make_unique<RawPeer>(mRig.socket());
        mMonitor = std::make_unique<RawPeer>(mRig.socket());
        ASSERT_EQ(mMonitor->call(QStringLiteral("enterMonitorMode")), QJsonValue(true));
    }
    bool trigger()
    {
        return mPeer->call(QStringLiteral("triggerUpdate"), json(R"({"manual": true})")).toBool();
    }
    bool waitForStatus(int pStatus)
    {
        return mMonitor->waitForEvent(QStringLiteral("serviceStatusChanged"), QStringLiteral("status"),
                                      pStatus);
    }
    int result(bool pThisSession = true)
    {
        return mPeer
            ->call(QStringLiteral("getLastServiceResult"), {{QStringLiteral("thisSession"), pThisSession}})
            .toInt(-1);
    }
    int status() { return mPeer->call(QStringLiteral("getServiceStatus")).toInt(-1); }

    HeldUpdate mHeld;
    std::unique_ptr<RawPeer> mPeer;
    std::unique_ptr<RawPeer> mMonitor;
};

} // namespace

TEST_F(UpdatesTest, FailedRunEndsInErrorWithItsResultReadable)
{
    start();
    ASSERT_TRUE(trigger());
    EXPECT_TRUE(waitForStatus(Updating));
    EXPECT_TRUE(waitForStatus(Error));
    EXPECT_EQ(result(), 8) << "no server is configured";
    EXPECT_EQ(status(), Error);
    const QJsonValue tText =
        mPeer->call(QStringLiteral("getLastServiceResultStr"), json(R"({"thisSession": true})"));
    EXPECT_FALSE(tText.toString().isEmpty());
    const QString tWhen =
        mPeer->call(QStringLiteral("getConfigValue"), json(R"({"name": "service.lastRun", "default": ""})"))
            .toString();
    EXPECT_TRUE(QDateTime::fromString(tWhen, QStringLiteral("yyyyMMddhhmmss")).isValid())
        << tWhen.toStdString();

    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    mPeer = std::make_unique<RawPeer>(mRig.socket());
    EXPECT_EQ(result(false), 8);
    EXPECT_EQ(result(true), 0) << "this process has had no run";
    EXPECT_EQ(status(), Error);
}

TEST_F(UpdatesTest, RunIsJoinedGuardsTheSettingsAndCanBeAborted)
{
    ASSERT_NO_FATAL_FAILURE(startHeldRun());
    EXPECT_TRUE(trigger());
    EXPECT_EQ(status(), Updating);
    EXPECT_EQ(mPeer->call(QStringLiteral("getServiceProgress")).toObject().value(QLatin1String("activity")),
              QJsonValue(sWaitingForApps));
    EXPECT_EQ(mPeer->call(QStringLiteral("isServiceActive")), QJsonValue(true));
    const struct
    {
        const char* mMethod;
        QByteArray mParams;
    } tChanges[] = {
        {"updateDefaultServer", R"({"uri": "file:///x", "user": "", "password": ""})"},
        {"setNetProxySettings",
         R"({"mode": 1, "proxy": {"enabled": false, "configured": false, "host": "", "port": 0,
            "user": "", "password": "", "passwordChanged": false}})"},
        {"setKdmlDataDirectory", R"({"path": "/x"})"},
        {"setLanguages", R"({"app": "fr", "data": null})"},
        {"setConfigValue", R"({"name": "a", "value": "b"})"},
        {"setScheduleParameters", R"({"mode": 0, "flags": 0, "nextCheck": null, "periodCount": 1, "unit": 1,
            "extra": null, "save": true})"},
        {"removeServer", R"({"index": 0})"},
    };
    for (const auto& tChange : tChanges) {
        EXPECT_EQ(mPeer->errorOf(QLatin1String(tChange.mMethod), json(tChange.mParams)), 1)
            << tChange.mMethod;
    }
    EXPECT_EQ(mPeer->call(QStringLiteral("abortUpdate")), QJsonValue(true));
    EXPECT_TRUE(waitForStatus(Aborting));
    EXPECT_TRUE(waitForStatus(Idle));
    EXPECT_EQ(result(), 4);
    EXPECT_EQ(mPeer->call(QStringLiteral("isServiceActive")), QJsonValue(false));
    EXPECT_EQ(mPeer->errorOf(QStringLiteral("setLanguages"), json(R"({"app": "fr", "data": null})")), 0);

    ASSERT_NO_FATAL_FAILURE(triggerHeldRun());
    mHeld.letGo();
    EXPECT_TRUE(waitForStatus(Idle));
    EXPECT_EQ(result(), 1) << "an aborted run is made up for by the next";
}

TEST_F(UpdatesTest, SuppressionByVariableAndByFile)
{
    start();
    const QString tFile = mRig.installation().path(QStringLiteral("no-updates"));
    const QByteArray tFileVariable =
        R"({"name": "update.suppressFile", "value": ")" + tFile.toUtf8() + R"("})";
    ASSERT_EQ(mPeer->errorOf(QStringLiteral("setConfigValue"), json(tFileVariable)), 0);
    EXPECT_EQ(status(), Idle);

    mRig.installation().writeFile(QStringLiteral("no-updates"), "");
    EXPECT_EQ(status(), Suppressed);
    ASSERT_TRUE(trigger());
    EXPECT_TRUE(waitForStatus(Suppressed));
    EXPECT_EQ(result(), 5);
    ASSERT_TRUE(QFile::remove(tFile));
    EXPECT_EQ(status(), Idle);

    ASSERT_EQ(mPeer->errorOf(QStringLiteral("setConfigValue"),
                             json(R"({"name": "update.suppressed", "value": "yes"})")),
              0);
    EXPECT_EQ(status(), Suppressed);
    ASSERT_TRUE(trigger());
    EXPECT_TRUE(waitForStatus(Suppressed));
    ASSERT_EQ(mPeer->errorOf(QStringLiteral("setConfigValue"),
                             json(R"({"name": "update.suppressed", "value": ""})")),
              0);
    EXPECT_TRUE(waitForStatus(Idle));
}

TEST_F(UpdatesTest, OrderlyEndInTheMiddleOfARun)
{
    ASSERT_NO_FATAL_FAILURE(startHeldRun());
    for (const bool tBySignal : {false, true}) {
        SCOPED_TRACE(tBySignal);
        if (tBySignal) {
            mRig.program().signal(SIGTERM);
        } else {
            EXPECT_EQ(mPeer->call(QStringLiteral("quitService")), QJsonValue(true));
        }
        EXPECT_TRUE(mMonitor->waitForEvent(QStringLiteral("quitRequestReceived")));
        EXPECT_TRUE(waitForStatus(Idle));
        EXPECT_TRUE(mMonitor->waitForEnd());
        EXPECT_EQ(mRig.program().wait().mStatus, 0);
        ASSERT_NO_FATAL_FAILURE(start());
        EXPECT_EQ(result(false), 4);
        ASSERT_NO_FATAL_FAILURE(triggerHeldRun());
    }
}

TEST_F(UpdatesTest, RunThatTheServiceDidNotSurviveHasAResult)
{
    ASSERT_NO_FATAL_FAILURE(startHeldRun());
    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    mPeer = std::make_unique<RawPeer>(mRig.socket());
    EXPECT_EQ(result(false), 4);
    EXPECT_EQ(status(), Idle);
}

TEST_F(UpdatesTest, MonitorsGetEventsAndOthersDoNot)
{
    start();
    RawPeer tSecond = mRig.connect();
    ASSERT_EQ(tSecond.call(QStringLiteral("enterMonitorMode")), QJsonValue(true));
    ASSERT_TRUE(trigger());
    for (RawPeer* tMonitor : {mMonitor.get(), &tSecond}) {
        EXPECT_TRUE(tMonitor->waitForEvent(QStringLiteral("serviceStatusChanged"), QStringLiteral("status"),
                                           Updating));
        EXPECT_TRUE(
            tMonitor->waitForEvent(QStringLiteral("serviceStatusChanged"), QStringLiteral("status"), Error));
    }
    mPeer->sendRequest(QStringLiteral("ping"), {}, 77);
    EXPECT_EQ(json(mPeer->readLine().value_or(QByteArray())).value(QLatin1String("id")).toInt(), 77);
    RawPeer tLate = mRig.connect();
    ASSERT_EQ(tLate.call(QStringLiteral("enterMonitorMode")), QJsonValue(true));
    EXPECT_TRUE(tLate.event(200).isEmpty()) << "no present state is replayed";
}

// The real clock and the real daemon. A date that lies less than a second ahead counts as past, and the way
// to the service takes a moment.
TEST_F(UpdatesTest, AutomaticScheduleRunsByItselfAndMovesOn)
{
    start({"-e"});
    const QString tSoon = inSeconds(4);
    QJsonObject tSchedule =
        json(R"({"mode": 2, "flags": 0, "periodCount": 1, "unit": 1, "extra": null, "save": true})");
    tSchedule.insert(QStringLiteral("nextCheck"), tSoon);
    ASSERT_EQ(mPeer->call(QStringLiteral("setScheduleParameters"), tSchedule), QJsonValue(true));
    EXPECT_TRUE(waitForStatus(Updating));
    EXPECT_TRUE(waitForStatus(Error));
    EXPECT_EQ(result(), 8);
    const auto tNext = [&] {
        return mPeer->call(QStringLiteral("getScheduleParameters"))
            .toObject()
            .value(QLatin1String("nextCheck"))
            .toString();
    };
    EXPECT_EQ(tNext().mid(11), tSoon.mid(11));
    EXPECT_GT(tNext(), tSoon);
    const QString tMoved = tNext();
    mRig.program().signal(SIGKILL);
    mRig.program().wait();
    start({"-e"});
    EXPECT_EQ(tNext(), tMoved);
}

TEST_F(UpdatesTest, WorkerHasNoSchedule)
{
    start();
    QJsonObject tSchedule =
        json(R"({"mode": 2, "flags": 0, "periodCount": 1, "unit": 1, "extra": null, "save": true})");
    tSchedule.insert(QStringLiteral("nextCheck"), inSeconds(1));
    ASSERT_EQ(mPeer->call(QStringLiteral("setScheduleParameters"), tSchedule), QJsonValue(true));
    EXPECT_TRUE(mMonitor->event(2500).isEmpty());
}
