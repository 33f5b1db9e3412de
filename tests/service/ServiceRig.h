#pragma once

#include "Installation.h"
#include "RawPeer.h"
#include "Test.h"

// A service in a private installation, started as the worker of this test.
class ServiceRig
{
public:
    // Lines of the table [service] of its configuration.
    explicit ServiceRig(const QByteArray& pServiceKeys = {});

    void configure(const QByteArray& pServiceKeys);
    void start(const QList<QByteArray>& pArguments = {"-e", "-worker"});
    std::unique_ptr<Program> startAnother(const QList<QByteArray>& pArguments = {"-e", "-worker"}) const;
    // Sends SIGTERM; returns the exit status.
    int stop();
    // Sends SIGKILL, then starts a new one on the same state.
    void killAndRestart();
    Program& program() { return *mProgram; }

    QString socket() const { return mInstallation.socketPath(); }
    RawPeer connect() const { return RawPeer(socket()); }
    RawPeer startAndConnect()
    {
        start();
        return connect();
    }
    QString state(const char* pFile) const { return mInstallation.path(q("state/") + q(pFile)); }
    QByteArray log() const { return mInstallation.readFile("log/vkservice.log"); }
    Installation& installation() { return mInstallation; }

private:
    Installation mInstallation;
    std::unique_ptr<Program> mProgram;
};

class ServiceTest : public testing::Test
{
protected:
    // A program that reports why it does not start; pLine: of the expectation in the test.
    static void expectRefusal(const Program::Result& pResult, const char* pReason,
                              int pLine = __builtin_LINE())
    {
        EXPECT_EQ(pResult.mStatus, 1) << "line " << pLine;
        EXPECT_TRUE(pResult.mErr.contains(pReason)) << pResult.mErr << "line " << pLine;
    }

    ServiceRig mRig;
};

// A real update that waits: an application of the installed package runs while a newer version is offered, so
// the run waits for it to end.
class HeldUpdate
{
public:
    // Publishes version 1 and configures the service to install it.
    void prepare(ServiceRig& pRig);
    // Once version 1 is installed: starts the application, and publishes version 2.
    void hold();
    // Ends the application.
    void letGo() { mApplication.reset(); }

private:
    void offer(const QByteArray& pVersion);

    Installation* mPublisher = nullptr;
    std::unique_ptr<Program> mApplication;
};
