#include "FakeService.h"
#include "TestApplication.h"

#include <vkcore/IPCClient.h>

#include <gtest/gtest.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <atomic>

using namespace tarn::vkcore;

namespace {

bool isMethod(const QJsonObject& pRequest, const char* pMethod)
{
    return pRequest.value(QLatin1String("method")) == QLatin1String(pMethod);
}

QByteArray status(int pStatus)
{
    return FakeService::event(QStringLiteral("serviceStatusChanged"), {{QStringLiteral("status"), pStatus}});
}

QByteArray message(const QString& pText)
{
    return FakeService::event(QStringLiteral("serviceNotificationReceived"),
                              {{QStringLiteral("type"), 2},
                               {QStringLiteral("text"), pText},
                               {QStringLiteral("details"), QString()}});
}

class EventsTest : public ::testing::Test
{
protected:
    // Answers with true; for the other methods a test says what goes to the monitor connection, and when.
    void serve(FakeService& pService, FakeService::Peer pPeer, const QJsonObject& pRequest)
    {
        const QByteArray tAnswer = FakeService::answer(pRequest, true);
        if (isMethod(pRequest, "enterMonitorMode")) {
            mMonitorPeer = pPeer;
            pService.send(pPeer, tAnswer + mWithMonitorAnswer);
        } else if (isMethod(pRequest, "triggerUpdate")) {
            pService.send(mMonitorPeer, mBeforeAnswer);
            pService.send(pPeer, tAnswer);
            pService.send(mMonitorPeer, mAfterAnswer);
            if (mDropAfterAnswer) {
                pService.drop(mMonitorPeer);
            }
        } else {
            pService.send(pPeer, tAnswer);
        }
    }
    void SetUp() override
    {
        for (IPCClient* tClient : {&mClient, &mMonitor}) {
            tClient->setServerName(mService.socketPath());
        }
        const auto tNote = [this](const QString& pText) {
            EXPECT_FALSE(mInCall) << pText.toStdString() << " came during a blocking call";
            mSeen.append(pText);
            if (pText == mEndMark) {
                mLoop.exit(0);
            }
        };
        QObject::connect(&mMonitor, &IPCClient::serviceStatusChanged, &mMonitor, [=](ServiceStatus pStatus) {
            tNote(QStringLiteral("status %1").arg(int{pStatus}));
        });
        QObject::connect(
            &mMonitor, &IPCClient::serviceActivityChanged, &mMonitor,
            [=](ServiceActivity pActivity) { tNote(QStringLiteral("activity %1").arg(int{pActivity})); });
        QObject::connect(&mMonitor, &IPCClient::serviceNotificationReceived, &mMonitor,
                         [=](int pType, const QString& pText, const QString& pDetails) {
                             tNote(QStringLiteral("note %1 %2 %3").arg(pType).arg(pText, pDetails).trimmed());
                         });
        QObject::connect(&mMonitor, &IPCClient::serviceErrorReceived, &mMonitor,
                         [=](int pType, const QString& pText, const QString& pDetails) {
                             tNote(
                                 QStringLiteral("error %1 %2 %3").arg(pType).arg(pText, pDetails).trimmed());
                         });
        QObject::connect(&mMonitor, &IPCClient::quitRequestReceived, &mMonitor,
                         [=] { tNote(QStringLiteral("quit")); });
        QObject::connect(&mMonitor, &IPCClient::disconnected, &mMonitor,
                         [=] { tNote(QStringLiteral("disconnected")); });
    }
    template <typename T>
    auto blocking(T pCall)
    {
        mInCall = true;
        const auto tResult = pCall();
        mInCall = false;
        return tResult;
    }
    // Runs the plain event loop until pEndMark was seen.
    bool follow(const QString& pEndMark)
    {
        mEndMark = pEndMark;
        QTimer::singleShot(10000, &mLoop, [this] { mLoop.exit(1); });
        return mLoop.exec() == 0;
    }

    QByteArray mWithMonitorAnswer;
    QByteArray mBeforeAnswer;
    QByteArray mAfterAnswer;
    bool mDropAfterAnswer = false;
    std::atomic<FakeService::Peer> mMonitorPeer = -1;
    FakeService mService{[this](FakeService& pService, FakeService::Peer pPeer, const QJsonObject& pRequest) {
        serve(pService, pPeer, pRequest);
    }};
    GRef<TestApplication> mApp{new TestApplication};
    IPCClient mClient{mApp.get(), nullptr};
    IPCClient mMonitor{mApp.get(), nullptr};
    bool mInCall = false;
    QString mEndMark;
    QList<QString> mSeen;
    QEventLoop mLoop;
};

using Texts = QList<QString>;

} // namespace

// Regression: an update that ended at once reported its end while the call that started it still waited, and
// was never noticed.
TEST_F(EventsTest, AnEndThatComesBeforeTheAnswerIsDeliveredAfterIt)
{
    for (const bool tBefore : {true, false}) {
        SCOPED_TRACE(tBefore);
        mSeen.clear();
        ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
        (tBefore ? mBeforeAnswer : mAfterAnswer) = status(2) + status(0);
        ASSERT_TRUE(blocking([&] { return mClient.triggerUpdate(true); }));
        EXPECT_TRUE(follow(QStringLiteral("status 0")));
        EXPECT_EQ(mSeen, Texts({QStringLiteral("status 2"), QStringLiteral("status 0")}));
        mBeforeAnswer.clear();
        mAfterAnswer.clear();
    }
}

TEST_F(EventsTest, AllKindsInOrderUpToTheEndOfTheConnection)
{
    mWithMonitorAnswer = status(2);
    mBeforeAnswer =
        FakeService::event(QStringLiteral("serviceActivityChanged"), {{QStringLiteral("activity"), 5}}) +
        FakeService::event(QStringLiteral("somethingNew"), {}) + message(QStringLiteral("hello")) +
        FakeService::event(QStringLiteral("serviceErrorReceived"),
                           {{QStringLiteral("type"), 0},
                            {QStringLiteral("text"), QStringLiteral("e")},
                            {QStringLiteral("details"), QStringLiteral("d")}}) +
        status(77);
    mAfterAnswer = FakeService::event(QStringLiteral("quitRequestReceived"), {});
    mDropAfterAnswer = true;
    ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
    ASSERT_TRUE(blocking([&] { return mClient.triggerUpdate(true); }));
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(blocking([&] { return mClient.ping(); }));
    }
    EXPECT_TRUE(mSeen.isEmpty());
    EXPECT_TRUE(follow(QStringLiteral("disconnected")));
    EXPECT_EQ(mSeen,
              Texts({QStringLiteral("status 2"), QStringLiteral("activity 5"), QStringLiteral("note 2 hello"),
                     QStringLiteral("error 0 e d"), QStringLiteral("status 77"), QStringLiteral("quit"),
                     QStringLiteral("disconnected")}));
    EXPECT_FALSE(mMonitor.isConnected());
}

TEST_F(EventsTest, AReceiverMayCallTheServiceAndTheRestFollows)
{
    mAfterAnswer = status(2) + status(3) + status(0);
    QObject::connect(&mMonitor, &IPCClient::serviceStatusChanged, &mClient,
                     [&] { EXPECT_TRUE(blocking([&] { return mClient.ping(); })); });
    ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
    ASSERT_TRUE(blocking([&] { return mClient.triggerUpdate(true); }));
    EXPECT_TRUE(follow(QStringLiteral("status 0")));
    EXPECT_EQ(mSeen.size(), 3);
}

TEST_F(EventsTest, ATimerThatCallsTheServiceAllTheTimeDoesNotStarveThem)
{
    ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
    QTimer tTimer;
    QObject::connect(&tTimer, &QTimer::timeout, &mClient, [&] { EXPECT_TRUE(mClient.ping()); });
    tTimer.start(1);
    mAfterAnswer = status(0);
    ASSERT_TRUE(mClient.triggerUpdate(true));
    EXPECT_TRUE(follow(QStringLiteral("status 0")));
}

TEST_F(EventsTest, NothingComesBeforeMonitorModeOrAfterClose)
{
    ASSERT_TRUE(mMonitor.ping());
    mService.dropAll();
    EXPECT_FALSE(mMonitor.ping());
    ASSERT_TRUE(mMonitor.enterMonitorMode());
    mAfterAnswer = status(0);
    ASSERT_TRUE(mClient.triggerUpdate(true));
    ASSERT_TRUE(mClient.ping());
    mMonitor.close();
    QTimer::singleShot(50, &mLoop, [this] { mLoop.exit(0); });
    mLoop.exec();
    EXPECT_TRUE(mSeen.isEmpty());
}

TEST_F(EventsTest, AReceiverMayDeleteTheMonitor)
{
    auto tMonitor = std::make_unique<IPCClient>(mApp.get(), nullptr);
    tMonitor->setServerName(mService.socketPath());
    QObject::connect(tMonitor.get(), &IPCClient::serviceStatusChanged, &mLoop, [&] {
        tMonitor.reset();
        mLoop.exit(0);
    });
    mAfterAnswer = status(1) + status(0);
    ASSERT_TRUE(tMonitor->enterMonitorMode());
    ASSERT_TRUE(mClient.triggerUpdate(true));
    EXPECT_EQ(mLoop.exec(), 0);
    EXPECT_EQ(tMonitor, nullptr);
}

TEST_F(EventsTest, BrokenEventsEndTheConnection)
{
    const QByteArray tCases[] = {
        FakeService::event(QStringLiteral("serviceStatusChanged"),
                           {{QStringLiteral("status"), QStringLiteral("0")}}),
        FakeService::event(QStringLiteral("serviceStatusChanged"), {}),
        FakeService::event(QStringLiteral("serviceActivityChanged"), {{QStringLiteral("activity"), 1.5}}),
        FakeService::event(QStringLiteral("serviceErrorReceived"), {{QStringLiteral("type"), 0}}),
        "{\"method\":\"serviceStatusChanged\",\"params\":[0]}\n",
        "no JSON\n",
    };
    for (const QByteArray& tCase : tCases) {
        SCOPED_TRACE(tCase.constData());
        mSeen.clear();
        mAfterAnswer = status(2) + tCase + status(0);
        ASSERT_TRUE(mMonitor.enterMonitorMode());
        ASSERT_TRUE(mClient.triggerUpdate(true));
        EXPECT_TRUE(follow(QStringLiteral("disconnected")));
        EXPECT_EQ(mSeen, Texts({QStringLiteral("status 2"), QStringLiteral("disconnected")}));
        EXPECT_FALSE(mMonitor.ping()) << "the loss is reported once";
    }
}

TEST_F(EventsTest, AFloodDuringACallEndsTheConnectionNotTheMemory)
{
    ASSERT_TRUE(mMonitor.enterMonitorMode());
    const QByteArray tEvent = message(QString(1024 * 1024, QLatin1Char('x')));
    for (int i = 0; i < 40; ++i) {
        mBeforeAnswer += tEvent;
    }
    ASSERT_TRUE(mClient.triggerUpdate(true));
    EXPECT_TRUE(follow(QStringLiteral("disconnected")));
    EXPECT_GE(mSeen.size(), 10);
    EXPECT_LT(mSeen.size(), 20);
}
