#include "ScriptedService.h"
#include "Test.h"
#include "TestApplication.h"

#include <vkcore/IPCClient.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

using namespace tarn::vkcore;

namespace {

QByteArray event(const char* pMethod, const QByteArray& pParams)
{
    return ScriptedService::eventLine(pMethod, pParams);
}

QByteArray status(int pStatus)
{
    return event("serviceStatusChanged", R"({"status": )" + QByteArray::number(pStatus) + '}');
}

class EventsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mService.onCall("enterMonitorMode", [this](ScriptedService::Peer& pPeer, const QJsonObject&) {
            pPeer.send(pPeer.answerLine("true") + mWithMonitorAnswer);
        });
        mService.onCall("triggerUpdate", [this](ScriptedService::Peer& pPeer, const QJsonObject&) {
            mService.send(mBeforeAnswer);
            pPeer.reply("true");
            mService.send(mAfterAnswer);
            if (mHangUpAfterAnswer) {
                mService.hangUp(true);
            }
        });
        mClient.setServerName(mSocket);
        mMonitor.setServerName(mSocket);
        const auto tNote = [this](const QString& pText) {
            EXPECT_FALSE(mInCall) << pText << " came during a blocking call";
            mSeen.append(pText);
            if (pText == mEndMark) {
                mLoop.exit(0);
            }
        };
        QObject::connect(&mMonitor, &IPCClient::serviceStatusChanged, &mMonitor,
                         [=](ServiceStatus pStatus) { tNote(q("status %1").arg(int{pStatus})); });
        QObject::connect(&mMonitor, &IPCClient::serviceActivityChanged, &mMonitor,
                         [=](ServiceActivity pActivity) { tNote(q("activity %1").arg(int{pActivity})); });
        const auto tMessage = [=](const char* pKind) {
            return [=](int pType, const QString& pText, const QString& pDetails) {
                tNote(q("%1 %2 %3 %4").arg(q(pKind)).arg(pType).arg(pText, pDetails).trimmed());
            };
        };
        QObject::connect(&mMonitor, &IPCClient::serviceNotificationReceived, &mMonitor, tMessage("note"));
        QObject::connect(&mMonitor, &IPCClient::serviceErrorReceived, &mMonitor, tMessage("error"));
        QObject::connect(&mMonitor, &IPCClient::quitRequestReceived, &mMonitor, [=] { tNote(q("quit")); });
        QObject::connect(&mMonitor, &IPCClient::disconnected, &mMonitor, [=] { tNote(q("disconnected")); });
    }
    template <typename T>
    auto blocking(T pCall)
    {
        mInCall = true;
        const auto tResult = pCall();
        mInCall = false;
        return tResult;
    }
    // Runs the event loop until pEndMark was seen.
    bool follow(const QString& pEndMark)
    {
        mEndMark = pEndMark;
        QTimer::singleShot(10000, &mLoop, [this] { mLoop.exit(1); });
        return mLoop.exec() == 0;
    }

    QByteArray mWithMonitorAnswer;
    QByteArray mBeforeAnswer;
    QByteArray mAfterAnswer;
    bool mHangUpAfterAnswer = false;
    GRef<TestApplication> mApp{new TestApplication};
    QString mSocket = mApp->path(q("service"));
    ScriptedService mService{mSocket};
    IPCClient mClient{mApp.get(), nullptr};
    IPCClient mMonitor{mApp.get(), nullptr};
    bool mInCall = false;
    QString mEndMark;
    QList<QString> mSeen;
    QEventLoop mLoop;
};

using Texts = QList<QString>;

} // namespace

// Regression: an update ended while the call that started it was still waiting, and its end was missed.
TEST_F(EventsTest, AnEndThatComesBeforeTheAnswerIsDeliveredAfterIt)
{
    // The end of an earlier run does not end this one.
    mWithMonitorAnswer = status(2) + status(4);
    for (const bool tBefore : {true, false}) {
        SCOPED_TRACE(tBefore);
        mSeen.clear();
        ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
        (tBefore ? mBeforeAnswer : mAfterAnswer) = status(2) + status(0);
        ASSERT_TRUE(blocking([&] { return mClient.triggerUpdate(true); }));
        EXPECT_TRUE(follow(q("status 0")));
        EXPECT_EQ(mSeen, Texts({q("status 2"), q("status 2"), q("status 0")}));
        mBeforeAnswer.clear();
        mAfterAnswer.clear();
    }
}

TEST_F(EventsTest, AllKindsInOrderUpToTheEndOfTheConnection)
{
    mWithMonitorAnswer = status(2);
    mBeforeAnswer = event("serviceActivityChanged", R"({"activity": 5})") + event("somethingNew", "{}") +
                    event("serviceNotificationReceived", R"({"type": 2, "text": "hello", "details": ""})") +
                    event("serviceErrorReceived", R"({"type": 0, "text": "e", "details": "d"})") + status(77);
    mAfterAnswer = event("quitRequestReceived", "{}");
    mHangUpAfterAnswer = true;
    ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
    ASSERT_TRUE(blocking([&] { return mClient.triggerUpdate(true); }));
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(blocking([&] { return mClient.ping(); }));
    }
    EXPECT_TRUE(mSeen.isEmpty());
    EXPECT_TRUE(follow(q("disconnected")));
    EXPECT_EQ(mSeen, Texts({q("status 2"), q("activity 5"), q("note 2 hello"), q("error 0 e d"),
                            q("status 77"), q("quit"), q("disconnected")}));
    EXPECT_FALSE(mMonitor.isConnected());
}

TEST_F(EventsTest, AReceiverMayCallTheServiceAndRunALoopOfItsOwn)
{
    mAfterAnswer = status(2) + status(3) + status(0);
    QEventLoop tOwn;
    QObject::connect(&mMonitor, &IPCClient::serviceStatusChanged, &tOwn, [&](ServiceStatus pStatus) {
        EXPECT_TRUE(blocking([&] { return mClient.ping(); }));
        if (pStatus == StatusUpdating) {
            QTimer::singleShot(10000, &tOwn, [&] { tOwn.exit(1); });
            EXPECT_EQ(tOwn.exec(), 0);
        }
        tOwn.exit(0);
    });
    ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
    ASSERT_TRUE(blocking([&] { return mClient.triggerUpdate(true); }));
    EXPECT_TRUE(follow(q("status 0")));
    EXPECT_EQ(mSeen, Texts({q("status 2"), q("status 3"), q("status 0")}));
}

TEST_F(EventsTest, ATimerThatCallsTheServiceAllTheTimeDoesNotStarveThem)
{
    ASSERT_TRUE(blocking([&] { return mMonitor.enterMonitorMode(); }));
    QTimer tTimer;
    QObject::connect(&tTimer, &QTimer::timeout, &mClient, [&] { EXPECT_TRUE(mClient.ping()); });
    tTimer.start(1);
    mAfterAnswer = status(0);
    ASSERT_TRUE(mClient.triggerUpdate(true));
    EXPECT_TRUE(follow(q("status 0")));
}

TEST_F(EventsTest, NothingComesAfterClose)
{
    mAfterAnswer = status(0);
    ASSERT_TRUE(mMonitor.enterMonitorMode());
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
    tMonitor->setServerName(mSocket);
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
    const QByteArray tCases[] = {event("serviceActivityChanged", R"({"activity": 1.5})"), "no JSON\n"};
    for (const QByteArray& tCase : tCases) {
        SCOPED_TRACE(tCase.constData());
        mSeen.clear();
        mAfterAnswer = status(2) + tCase + status(0);
        ASSERT_TRUE(mMonitor.enterMonitorMode());
        ASSERT_TRUE(mClient.triggerUpdate(true));
        EXPECT_TRUE(follow(q("disconnected")));
        EXPECT_EQ(mSeen, Texts({q("status 2"), q("disconnected")}));
        EXPECT_FALSE(mMonitor.ping()) << "the loss is reported once";
    }
}

TEST_F(EventsTest, AFloodDuringACallEndsTheConnectionNotTheMemory)
{
    ASSERT_TRUE(mMonitor.enterMonitorMode());
    const QByteArray tText(1024 * 1024, 'x');
    mBeforeAnswer =
        event("serviceNotificationReceived", R"({"type": 2, "details": "", "text": ")" + tText + R"("})")
            .repeated(40);
    ASSERT_TRUE(mClient.triggerUpdate(true));
    EXPECT_TRUE(follow(q("disconnected")));
    EXPECT_GE(mSeen.size(), 10);
    EXPECT_LT(mSeen.size(), 20);
}
