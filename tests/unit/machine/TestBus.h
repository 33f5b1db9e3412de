#pragma once

#include "Test.h"

#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <systemd/sd-bus.h>

#include <atomic>
#include <functional>
#include <thread>

// A bus daemon of the test's own, which counts as the system bus of this process.
class TestBus
{
public:
    TestBus();
    ~TestBus();
    QByteArray address() const { return "unix:path=" + QFile::encodeName(mDir.filePath(q("bus"))); }

private:
    QTemporaryDir mDir;
    QProcess mDaemon;
};

// A service on that bus, on a thread of its own.
class StandIn
{
public:
    // Answers a call by one of the library's sd_bus_reply functions, or not at all.
    using Answer = std::function<int(sd_bus_message*)>;

    StandIn(const TestBus& pBus, const char* pName, const Answer& pAnswer);
    ~StandIn();

private:
    static int onMessage(sd_bus_message* pMessage, void* pSelf, sd_bus_error*);

    Answer mAnswer;
    sd_bus* mBus = nullptr;
    std::atomic_bool mStop{false};
    std::thread mThread;
};
