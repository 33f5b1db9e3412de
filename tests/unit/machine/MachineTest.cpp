#include "TestBus.h"

#include "machine/MachineState.h"
#include "machine/ShutdownLock.h"
#include "os/Confinement.h"

#include <QtCore/QElapsedTimer>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace tarn;
using namespace tarn::vkservice::machine;

namespace {

const char* const sLogind = "org.freedesktop.login1";
const char* const sNetwork = "org.freedesktop.NetworkManager";
const char* const sPower = "org.freedesktop.UPower";
constexpr int sMostMs = 2000;
constexpr int sMarginMs = 1500; // of a busy machine

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

// Gives locks as logind does: it holds the other end of a pipe.
class Logind
{
public:
    explicit Logind(bool pMayBlock) : mMayBlock(pMayBlock) {}
    ~Logind() { ::close(mEnd); }

    int answer(sd_bus_message* pMessage)
    {
        const char* tTexts[4] = {};
        if (sd_bus_message_read(pMessage, "ssss", &tTexts[0], &tTexts[1], &tTexts[2], &tTexts[3]) <= 0 ||
            (!mMayBlock && q(tTexts[3]) == q("block"))) {
            return refuse(pMessage);
        }
        mAsked = q("%1 %2 %3").arg(q(tTexts[0]), q(tTexts[1]), q(tTexts[3]));
        int tPipe[2];
        EXPECT_EQ(::pipe2(tPipe, O_CLOEXEC), 0);
        mEnd = tPipe[0];
        const int tDone = sd_bus_reply_method_return(pMessage, "h", tPipe[1]);
        ::close(tPipe[1]);
        return tDone;
    }
    bool isHeld(int pWaitMs) const
    {
        pollfd tPoll{mEnd, POLLIN, 0};
        return ::poll(&tPoll, 1, pWaitMs) == 0;
    }
    QString mAsked;

private:
    bool mMayBlock;
    int mEnd = -1;
};

// On a thread that may not open any file, as that of a run.
template <typename T>
void confined(T pBody)
{
    std::thread([&pBody] {
        EXPECT_FALSE(os::Confinement::isAvailable() && os::Confinement().enter());
        pBody();
    }).join();
}

} // namespace

TEST(ShutdownLock, HoldsTheMachineAsLongAsItLives)
{
    for (const bool tMayBlock : {true, false}) {
        const TestBus tBus;
        Logind tLogind(tMayBlock);
        const StandIn tStandIn(tBus, sLogind,
                               [&](sd_bus_message* pMessage) { return tLogind.answer(pMessage); });
        confined([&] {
            const ShutdownLock tLock(q("a test"));
            EXPECT_TRUE(tLock.isHeld());
            EXPECT_EQ(tLogind.mAsked, q("shutdown:sleep vkservice ") + (tMayBlock ? q("block") : q("delay")));
            EXPECT_TRUE(tLogind.isHeld(100));
        });
        EXPECT_FALSE(tLogind.isHeld(5000));
    }
}

TEST(ShutdownLock, IsNotThereWhenLogindDoesNotGiveIt)
{
    const TestBus tBus;
    EXPECT_FALSE(ShutdownLock(q("a test")).isHeld()) << "absent";
    for (const auto& tAnswer : {&refuse, &garbage, &never}) {
        const StandIn tStandIn(tBus, sLogind, tAnswer);
        QElapsedTimer tTime;
        tTime.start();
        EXPECT_FALSE(ShutdownLock(q("a test")).isHeld());
        EXPECT_LT(tTime.elapsed(), ShutdownLock::sMostMs + sMarginMs);
    }
}

TEST(MachineState, IsWhatTheServicesSay)
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
        {"unknown", value("u", 0), {}, {false, false}},
        {"a network that hangs", &never, value("b", 1), {false, true}},
        {"a power service that hangs", value("u", 1), &never, {true, false}},
        {"other answers", &garbage, &garbage, {false, false}},
        {"other types", value("b", 1), value("u", 1), {false, false}},
        {"errors", &refuse, &refuse, {false, false}},
    };
    const TestBus tBus;
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        std::unique_ptr<StandIn> tNetwork;
        std::unique_ptr<StandIn> tPower;
        if (tCase.mNetwork) {
            tNetwork = std::make_unique<StandIn>(tBus, sNetwork, tCase.mNetwork);
        }
        if (tCase.mPower) {
            tPower = std::make_unique<StandIn>(tBus, sPower, tCase.mPower);
        }
        EXPECT_EQ(readMachineState(QDeadlineTimer(sMostMs)), tCase.mState);
    }
}

TEST(SystemBus, ThatIsMissingOrHangsIsLeftSoon)
{
    QTemporaryDir tDir;
    sockaddr_un tAddress{};
    tAddress.sun_family = AF_UNIX;
    qstrncpy(tAddress.sun_path, QFile::encodeName(tDir.filePath(q("bus"))).constData(),
             sizeof tAddress.sun_path);
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", QByteArray("unix:path=") + tAddress.sun_path);
    const auto tExpectNothing = [] {
        QElapsedTimer tTime;
        tTime.start();
        EXPECT_FALSE(ShutdownLock(q("a test")).isHeld());
        EXPECT_EQ(readMachineState(QDeadlineTimer(sMostMs)), MachineState());
        EXPECT_LT(tTime.elapsed(), ShutdownLock::sMostMs + sMostMs + sMarginMs);
    };
    tExpectNothing();
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(tFd, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress), 0);
    ASSERT_EQ(::listen(tFd, 8), 0);
    tExpectNothing();
    ::close(tFd);
    qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}
