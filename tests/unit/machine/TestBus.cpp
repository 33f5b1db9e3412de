#include "TestBus.h"

TestBus::TestBus()
{
    writeFile(mDir.filePath(q("bus.conf")),
              "<busconfig><type>system</type><listen>" + address() +
                  "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\"/>"
                  "<allow receive_sender=\"*\"/><allow own=\"*\"/><allow user=\"*\"/></policy></busconfig>");
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", address());
    mDaemon.start(q("dbus-daemon"),
                  {q("--nofork"), q("--print-address"), q("--config-file=") + mDir.filePath(q("bus.conf"))});
    EXPECT_TRUE(mDaemon.waitForReadyRead()) << mDaemon.readAllStandardError();
}

TestBus::~TestBus()
{
    mDaemon.kill();
    mDaemon.waitForFinished();
    qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

StandIn::StandIn(const TestBus& pBus, const char* pName, const Answer& pAnswer) : mAnswer(pAnswer)
{
    sd_bus_new(&mBus);
    sd_bus_set_address(mBus, pBus.address().constData());
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

StandIn::~StandIn()
{
    mStop = true;
    mThread.join();
    sd_bus_flush_close_unref(mBus);
}

int StandIn::onMessage(sd_bus_message* pMessage, void* pSelf, sd_bus_error*)
{
    const bool tIsCall = sd_bus_message_is_method_call(pMessage, nullptr, nullptr) > 0;
    return tIsCall ? (static_cast<StandIn*>(pSelf)->mAnswer(pMessage), 1) : 0;
}
