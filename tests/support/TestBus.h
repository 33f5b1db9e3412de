#pragma once

#include "Files.h"
#include "Text.h"

#include <gtest/gtest.h>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <systemd/sd-bus.h>

#include <atomic>
#include <functional>
#include <thread>

// A bus that counts as the system bus of this process. There is none until start().
class TestBus
{
public:
    TestBus() { qputenv("DBUS_SYSTEM_BUS_ADDRESS", address()); }
    ~TestBus()
    {
        mDaemon.kill();
        mDaemon.waitForFinished();
        qunsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    QString path() const { return mDir.filePath(q("bus")); }
    QByteArray address() const { return "unix:path=" + QFile::encodeName(path()); }
    void start()
    {
        const QString tFile = mDir.filePath(q("bus.conf"));
        writeFile(tFile, "<busconfig><type>system</type><listen>" + address() +
                             "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow user=\"*\"/>"
                             "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/><allow own=\"*\"/>"
                             "</policy></busconfig>");
        mDaemon.start(q("dbus-daemon"), {q("--nofork"), q("--print-address"), q("--config-file=") + tFile});
        ASSERT_TRUE(mDaemon.waitForReadyRead()) << mDaemon.readAllStandardError();
    }

private:
    QTemporaryDir mDir;
    QProcess mDaemon;
};

// A service on a bus, on a thread of its own. Answers calls by a function, or not at all.
class StandIn
{
public:
    using Answer = std::function<int(sd_bus_message*)>;

    StandIn(const TestBus& pBus, const char* pName, const Answer& pAnswer) : mAnswer(pAnswer)
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
    ~StandIn()
    {
        mStop = true;
        mThread.join();
        sd_bus_flush_close_unref(mBus);
    }

    // The value of a property.
    static Answer value(const char* pType, quint32 pValue)
    {
        return [pType, pValue](sd_bus_message* pMessage) {
            return sd_bus_reply_method_return(pMessage, "v", pType, pValue);
        };
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
