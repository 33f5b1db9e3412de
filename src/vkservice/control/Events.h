#pragma once

#include "internal/Values.h"
#include "process/JournalEvent.h"

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>

namespace tarn::vkservice::ipc {
class SocketServer;
}
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

class UpdateControl;
class VerifyControl;

// Sends unsolicited events to the log and to the peers that monitor the service.
class Events : public QObject
{
    Q_OBJECT

public:
    // Forwards what these report.
    Events(ipc::SocketServer& pSockets, UpdateControl& pUpdates, VerifyControl& pVerifications,
           process::ServiceApplication& pApp);

    // Types as on the socket: 0 error, 1 warning, 4 information.
    void error(int pType, const QString& pText, const QString& pDetails,
               const process::JournalEvent& pEvent = {});
    // Saved for the first monitor if none is connected yet.
    void errorToKeep(const QString& pText, const QString& pDetails, const process::JournalEvent& pEvent);
    void checkIsDue();
    // The saved errors.
    QList<vkcore::protocol::Message> takeKeptErrors() { return std::exchange(mKeptErrors, {}); }

private:
    ipc::SocketServer& mSockets;
    process::ServiceApplication& mApp;
    QList<vkcore::protocol::Message> mKeptErrors;
};

} // namespace tarn::vkservice::control
