// Locks and states from a real bus of the test's own, with stand-ins for the services on it.

#include "Test.h"
#include "TestBus.h"

#include "machine/MachineState.h"
#include "machine/ShutdownLock.h"
#include "os/Confinement.h"

#include <QtCore/QElapsedTimer>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace tarn;
using namespace tarn::vkservice::machine;

namespace {

constexpr int sMostMs = 2000;
constexpr int sMarginMs = 1500; // of a busy machine

class MachineTest : public testing::Test
{
protected:
    TestBus mBus;
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
    mBus.start();
    int tPipe[2]; // logind keeps the other end
    ASSERT_EQ(::pipe2(tPipe, O_CLOEXEC), 0);
    QStringList tAsked;
    const StandIn tLogind(mBus, "org.freedesktop.login1", [&](sd_bus_message* pMessage) {
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
                                 mBus.path()});
    ASSERT_TRUE(tSilent.waitForReadyRead());
    EXPECT_FALSE(getsLock());
    EXPECT_EQ(readMachineState(QDeadlineTimer(sMostMs)), MachineState());
    tSilent.kill();
    tSilent.waitForFinished();
}

TEST_F(MachineTest, NoLockFromALogindThatDoesNotGiveIt)
{
    mBus.start();
    EXPECT_FALSE(getsLock()) << "absent";
    for (const auto& tAnswer : {&refuse, &garbage, &never}) {
        const StandIn tStandIn(mBus, "org.freedesktop.login1", tAnswer);
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
        {"metered", StandIn::value("u", 1), StandIn::value("b", 0), {true, false}},
        {"not metered", StandIn::value("u", 2), StandIn::value("b", 1), {false, true}},
        {"probably metered", StandIn::value("u", 3), {}, {true, false}},
        {"probably not", StandIn::value("u", 4), {}, {false, false}},
        {"a network that hangs", &never, StandIn::value("b", 1), {false, true}},
        {"a power service that hangs", StandIn::value("u", 1), &never, {true, false}},
        {"other types", StandIn::value("b", 1), StandIn::value("u", 1), {false, false}},
        {"nonsense and an error", &garbage, &refuse, {false, false}},
    };
    mBus.start();
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        std::optional<StandIn> tNetwork;
        std::optional<StandIn> tPower;
        if (tCase.mNetwork) {
            tNetwork.emplace(mBus, "org.freedesktop.NetworkManager", tCase.mNetwork);
        }
        if (tCase.mPower) {
            tPower.emplace(mBus, "org.freedesktop.UPower", tCase.mPower);
        }
        EXPECT_EQ(readMachineState(QDeadlineTimer(sMostMs)), tCase.mState);
    }
}
