#pragma once

#include "Arguments.h"
#include "ExitStatus.h"
#include "Interrupt.h"
#include "Report.h"

#include "internal/PackageValues.h"
#include "program/ClientApplication.h"

#include <vkcore/IPCClient.h>

#include <QtCore/QEventLoop>
#include <QtCore/QJsonValue>
#include <QtCore/QTimer>

#include <memory>
#include <optional>

namespace tarn::vkctl {

// The whole program: connects to the service, carries out one command, and ends with its status. Results go
// to standard output, errors to standard error.
class CtlApplication : public vkc::ClientApplication
{
    Q_OBJECT

public:
    enum class Subject
    {
        Verification,
        Update,
    };

    CtlApplication();

    void fatalError(const QString& pText) override;
    void finalize() override;
    // Ends the event loop with the status.
    void run();

    // For the commands.
    const Arguments& arguments() const { return mArguments; }
    // False, with the reason on standard error; likewise below.
    bool connectToService();
    // A second connection, for the events of what is started next.
    bool connectMonitor(Subject pSubject);
    // Valid once connectToService has succeeded.
    vkcore::IPCClient& client() { return *mClient; }
    // The result of a method, none if it failed or is not a T; reason() says why.
    template <typename T>
    std::optional<T> call(QLatin1StringView pMethod, const QJsonObject& pParams = {})
    {
        const auto tResult = call(pMethod, pParams);
        return tResult ? vkcore::protocol::fromJson<T>(*tResult, &mReason) : std::nullopt;
    }
    std::optional<QJsonValue> call(QLatin1StringView pMethod, const QJsonObject& pParams = {});
    // Of the last call that failed; one plain line.
    QString reason() const;
    // Waits for the end of what was started, with its progress on a terminal. pWhat is the subject of the
    // sentence that an interruption prints.
    bool follow(const QString& pWhat);
    // None, with the reason on standard error.
    std::optional<Report> report();

    void print(const QString& pText);
    void printJson(const QJsonObject& pObject);
    // Prints the text to standard error and returns StatusFailed.
    int fail(const QString& pText);

private:
    int carryOut();
    bool isVerifying();
    void onEvent(const QString& pMethod, const QJsonObject& pParams);
    void onStatus(vkcore::ServiceStatus pStatus);
    void onInterrupt();
    void showProgress();

    void showLine(const QString& pText);

    Arguments mArguments;
    Interrupt mInterrupt;
    // Made when the configuration is read, which names the socket.
    std::unique_ptr<vkcore::IPCClient> mClient;
    std::unique_ptr<vkcore::IPCClient> mMonitor;
    QEventLoop mLoop;
    QTimer mProgress;
    vkcore::protocol::VerificationState mState; // of the last event
    QString mReason;                            // of the last call
    QString mWhat;                              // what goes on in the service
    bool mIsTerminal;
    bool mIsDone = false; // what mLoop waits for has come
    bool mIsInterrupted = false;
    bool mIsUpdate = false; // what is followed, else a verification
    bool mServiceEnds = false;
};

} // namespace tarn::vkctl
