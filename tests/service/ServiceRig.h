#pragma once

#include "Installation.h"
#include "RawPeer.h"

#include <gtest/gtest.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <memory>

// {"a": 1} as an object.
inline QJsonObject json(const QByteArray& pText)
{
    return QJsonDocument::fromJson(pText).object();
}

// A service in an installation of its own, started as the worker of this test.
class ServiceRig
{
public:
    // Lines of the table [service] of its configuration.
    explicit ServiceRig(const QByteArray& pServiceKeys = {});

    void configure(const QByteArray& pServiceKeys);
    void start(const QList<QByteArray>& pArguments = {"-e", "-worker"});
    std::unique_ptr<Program> startAnother(const QList<QByteArray>& pArguments = {"-e", "-worker"}) const;
    // SIGKILL, and a new one on the same state.
    void killAndRestart();
    Program& program() { return *mProgram; }
    void forgetProgram() { mProgram.reset(); }

    QString socket() const { return mInstallation.socketPath(); }
    RawPeer connect() const { return RawPeer(socket()); }
    QString state(const char* pFile) const
    {
        return mInstallation.path(QStringLiteral("state/") + QLatin1String(pFile));
    }
    QByteArray log() const { return mInstallation.readFile(QStringLiteral("log/vkservice.log")); }
    Installation& installation() { return mInstallation; }

private:
    Installation mInstallation;
    std::unique_ptr<Program> mProgram;
};

class ServiceTest : public testing::Test
{
protected:
    ServiceRig mRig;
};

// A real update that waits: an application of the installed package runs while a newer version of it is
// offered, so the run gets as far as waiting for its end, and stays there.
class HeldUpdate
{
public:
    // Publishes version 1 and configures the service to get it.
    void prepare(ServiceRig& pRig);
    // Once version 1 is installed: starts the application, and publishes version 2.
    void hold();
    // Ends the application.
    void letGo() { mApplication.reset(); }

private:
    void publish(QList<QByteArray> pArguments);
    void offer(const QByteArray& pVersion);

    Installation* mPublisher = nullptr;
    std::unique_ptr<Program> mApplication;
};
