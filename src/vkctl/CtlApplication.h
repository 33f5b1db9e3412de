#pragma once

#include "Arguments.h"
#include "Interrupt.h"
#include "Report.h"

#include "internal/Values.h"
#include "program/ClientApplication.h"

#include <vkcore/IPCClient.h>

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <memory>

namespace tarn::vkctl {

// The whole program: connects to the service, carries out one command, and ends with its status. Results go
// to standard output, errors to standard error.
class CtlApplication : public vkc::ClientApplication
{
    Q_OBJECT

public:
    CtlApplication();

    void fatalError(const QString& pText) override;
    void finalize() override;
    // Ends the event loop with the status.
    void run();

private:
    int carryOut();
    int showStatus();
    int verify();
    int repair();

    bool connectToService();
    // A second connection, for events; each of them can end mLoop.
    bool connectMonitor();
    // Waits for the end of the verification or the update. False, with the reason on standard error, if it
    // will not come.
    bool follow();
    bool isVerifying();
    // None, with the reason on standard error.
    std::optional<Report> report();
    void onEvent(const QString& pMethod, const QJsonObject& pParams);
    void onStatus(vkcore::ServiceStatus pStatus);
    void onInterrupt();
    void showProgress();

    void print(const QString& pText);
    void printJson(const QJsonObject& pObject);
    int fail(const QString& pText);
    void showLine(const QString& pText);

    Arguments mArguments;
    Interrupt mInterrupt;
    // Made when the configuration is read, which names the socket.
    std::unique_ptr<vkcore::IPCClient> mClient;
    std::unique_ptr<vkcore::IPCClient> mMonitor;
    QEventLoop mLoop;
    QTimer mProgress;
    vkcore::protocol::VerificationState mState; // of the last event
    QString mWhat;                              // what goes on in the service
    bool mIsTerminal;
    bool mIsDone = false; // what mLoop waits for has come
    bool mIsInterrupted = false;
    bool mIsUpdate = false; // what is followed
    bool mServiceEnds = false;
};

} // namespace tarn::vkctl
