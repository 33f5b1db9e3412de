#pragma once

#include "internal/Values.h"

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

// What the service says without being asked: to the log, and to the peers that monitor it.
class Events : public QObject
{
    Q_OBJECT

public:
    // Passes on what pUpdates reports.
    Events(ipc::SocketServer& pSockets, UpdateControl& pUpdates, process::ServiceApplication& pApp);

    // Types as on the socket: 0 error, 1 warning, 4 information.
    void error(int pType, const QString& pText, const QString& pDetails);
    // Kept for the first monitor if there is none yet.
    void errorToKeep(const QString& pText, const QString& pDetails);
    void checkIsDue();
    // The errors that were kept.
    QList<vkcore::protocol::Message> takeKeptErrors() { return std::exchange(mKeptErrors, {}); }

private:
    ipc::SocketServer& mSockets;
    process::ServiceApplication& mApp;
    QList<vkcore::protocol::Message> mKeptErrors;
};

} // namespace tarn::vkservice::control
