#pragma once

#include <QtCore/QString>

#include <sys/types.h>

// Where the service's socket is. Both ends ask here, so that they meet.
namespace tarn::vkcore::protocol {

// The socket of the service that root runs, in a folder in which only root can make files.
inline constexpr auto sMachineSocket = "/run/vkservice/socket";

// Whose default is asked for, and what it depends on.
struct SocketPlace
{
    uid_t mUser;
    QString mMachineSocket;
    QString mRuntimeDir; // $XDG_RUNTIME_DIR, empty if not set
};

// The name of the socket where none was configured. Root's is sMachineSocket. A user who may write to that
// one is led there too: its service lets this user in. All others get a socket of their own, in their runtime
// folder, or in the temporary folder where they have none.
QString defaultSocketName();
QString defaultSocketName(const SocketPlace& pPlace);

// An absolute path as it is; any other name lies in QDir::tempPath().
QString socketPath(const QString& pName);

} // namespace tarn::vkcore::protocol
