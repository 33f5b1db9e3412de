// Locks and states from a real bus of the test's own, with stand-ins for the services on it.

#include "Test.h"

#include "machine/MachineState.h"
#include "machine/ShutdownLock.h"
#include "os/Confinement.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>

#include <fcntl.h>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

using namespace tarn;
using namespace tarn::vkservice::machine;

namespace {

constexpr int sMostMs = 2000;
constexpr int sMarginMs = 1500; // of a busy machine

class MachineTest : public testing::Test
{
protected:
    MachineTest() { qputenv("DBUS_SYSTEM_BUS_ADDRESS", address()); }
    ~MachineTest() override
    {
        mDaemon.kill();
        mDaemon.waitForFinished();
        qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    QByteArray address() const { return "unix:path=" + QFile::encodeName(mDir.filePath(q("bus"))); }
    void startBus()
    {
        const QString tFile = mDir.filePath(q("bus.conf"));
        writeFile(tFile, "<busconfig><type>system</type><listen>" + address() +
                             "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
                             "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
                             "</policy></busconfig>");
        mDaemon.start(q("dbus-daemon"), {q("--nofork"), q("--print-address"), q("--config-file=") + tFile});
        ASSERT_TRUE(mDaemon.waitForReadyRead()) << mDaemon.readAllStandardError();
    }

    QTemporaryDir mDir;
    QProcess mDaemon;
};

// A service on a bus, on a thread of its own. Answers calls by a function, or not at all.
class StandIn
{
public:
    using Answer = std::function<int(sd_bus_message*)>;

    StandIn(const QByteArray& pBus, const char* pName, const Answer& pAnswer) : mAnswer(pAnswer)
    {
        sd_bus_new(&mBus);
        sd_bus_set_address(mBus, pBus.constData());
        sd_bus_set_bus_client(mBus, 1);
        sd_bus_negotiate_fds(mBus, 1);
        EXPECT_GE(sd_bus_start(mBus), 0);
        sd_bus_add_filter(mBus, nullptr, &StandIn::onMessage, this);
        EXPECT_GE(sd_bus_request_name(mBus, pName, 0), 0);
        mThread = std::thread([this] {
            while (!mStop && sd_bus_process(mBus, nullptr) >= 0) {
                sd_bus_wait(mBus, 20 * 1000);
            }
        });
    }
    ~StandIn()
    {
        mStop = true;
        mThread.join();
        sd_bus_flush_close_unref(mBus);
    }

private:
    static int onMessage(sd_bus_message* pMessage, void* pSelf, sd_bus_error*)
    {
        const bool tIsCall = sd_bus_message_is_method_call(pMessage, nullptr, nullptr) > 0;
        return tIsCall ? (static_cast<StandIn*>(pSelf)->mAnswer(pMessage), 1) : 0;
    }

    Answer mAnswer;
    sd_bus* mBus = nullptr;
    std::atomic_bool mStop{false};
    std::thread mThread;
};

int never(sd_bus_message*)
{
    return 0;
}
int refuse(sd_bus_message* pMessage)
{
    return sd_bus_reply_method_errorf(pMessage, SD_BUS_ERROR_ACCESS_DENIED, "no");
}
int garbage(sd_bus_message* pMessage)
{
    return sd_bus_reply_method_return(pMessage, "a{sv}", 1, "x", "v", "s", "y");
}
StandIn::Answer value(const char* pType, quint32 pValue)
{
    return [pType, pValue](sd_bus_message* pMessage) {
        return sd_bus_reply_method_return(pMessage, "v", pType, pValue);
    };
}

bool getsLock()
{
    QElapsedTimer tTime;
    tTime.start();
    const bool tIsHeld = ShutdownLock(q("a test")).isHeld();
    EXPECT_LT(tTime.elapsed(), ShutdownLock::sMostMs + sMarginMs);
    return tIsHeld;
}

} // namespace

TEST_F(MachineTest, ALockHoldsTheMachineAsLongAsItLives)
{
    startBus();
    int tPipe[2]; // logind keeps the other end
    ASSERT_EQ(::pipe2(tPipe, O_CLOEXEC), 0);
    QStringList tAsked;
    const StandIn tLogind(address(), "org.freedesktop.login1", [&](sd_bus_message* pMessage) {
        const char* tTexts[4] = {};
        sd_bus_message_read(pMessage, "ssss", &tTexts[0], &tTexts[1], &tTexts[2], &tTexts[3]);
        tAsked.append(q("%1 %2 %3").arg(q(tTexts[0]), q(tTexts[1]), q(tTexts[3])));
        const bool tMayBlock = tAsked.size() != 2;
        const int tDone = tMayBlock ? sd_bus_reply_method_return(pMessage, "h", tPipe[1]) : refuse(pMessage);
        ::close(tAsked.size() == 3 ? tPipe[1] : -1);
        return tDone;
    });
    EXPECT_TRUE(getsLock());
    // On a thread that may open no file, as that of a run.
    std::thread([&tPipe] {
        EXPECT_FALSE(os::Confinement::isAvailable() && os::Confinement().enter());
        const ShutdownLock tLock(q("a test"));
        EXPECT_TRUE(tLock.isHeld());
        pollfd tPoll{tPipe[0], POLLIN, 0};
        EXPECT_EQ(::poll(&tPoll, 1, 100), 0);
    }).join();
    EXPECT_EQ(tAsked, (QStringList{q("shutdown:sleep vkservice block"), q("shutdown:sleep vkservice block"),
                                   q("shutdown:sleep vkservice delay")}));
    pollfd tPoll{tPipe[0], POLLIN, 0};
    EXPECT_EQ(::poll(&tPoll, 1, 5000), 1);
    ::close(tPipe[0]);
}

TEST_F(MachineTest, NoLockAndNoStateWithoutABusOrFromOneThatHangs)
{
    EXPECT_FALSE(getsLock());
    QProcess tSilent;
    tSilent.start(q("python3"), {q("-c"),
                                 q("import socket, sys, time; s = socket.socket(socket.AF_UNIX); "
                                   "s.bind(sys.argv[1]); s.listen(9); print(flush=True); time.sleep(99)"),
                                 mDir.filePath(q("bus"))});
    ASSERT_TRUE(tSilent.waitForReadyRead());
    EXPECT_FALSE(getsLock());
    EXPECT_EQ(readMachineState(QDeadlineTimer(sMostMs)), MachineState());
    tSilent.kill();
    tSilent.waitForFinished();
}

TEST_F(MachineTest, NoLockFromALogindThatDoesNotGiveIt)
{
    startBus();
    EXPECT_FALSE(getsLock()) << "absent";
    for (const auto& tAnswer : {&refuse, &garbage, &never}) {
        const StandIn tStandIn(address(), "org.freedesktop.login1", tAnswer);
        EXPECT_FALSE(getsLock());
    }
}

TEST_F(MachineTest, TheStateIsWhatTheServicesSay)
{
    const struct
    {
        const char* mWhat;
        StandIn::Answer mNetwork; // none: absent
        StandIn::Answer mPower;
        MachineState mState;
    } tCases[] = {
        {"nobody", {}, {}, {false, false}},
        {"metered", value("u", 1), value("b", 0), {true, false}},
        {"not metered", value("u", 2), value("b", 1), {false, true}},
        {"probably metered", value("u", 3), {}, {true, false}},
        {"probably not", value("u", 4), {}, {false, false}},
        {"a network that hangs", &never, value("b", 1), {false, true}},
        {"a power service that hangs", value("u", 1), &never, {true, false}},
        {"other types", value("b", 1), value("u", 1), {false, false}},
        {"nonsense and an error", &garbage, &refuse, {false, false}},
    };
    startBus();
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        std::optional<StandIn> tNetwork;
        std::optional<StandIn> tPower;
        if (tCase.mNetwork) {
            tNetwork.emplace(address(), "org.freedesktop.NetworkManager", tCase.mNetwork);
        }
        if (tCase.mPower) {
            tPower.emplace(address(), "org.freedesktop.UPower", tCase.mPower);
        }
        EXPECT_EQ(readMachineState(QDeadlineTimer(sMostMs)), tCase.mState);
    }
}
