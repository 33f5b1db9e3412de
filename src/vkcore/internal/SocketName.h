#pragma once

#include <QtCore/QString>

#include <sys/types.h>

// The path of the service's socket, for both ends.
namespace tarn::vkcore::protocol {

// The socket of the machine's service, in a folder where only root and the service's user can create files.
inline constexpr auto sMachineSocket = "/run/vkservice/socket";

// The user and environment that the default depends on.
struct SocketPlace
{
    uid_t mUser;
    QString mMachineSocket;
    QString mRuntimeDir; // $XDG_RUNTIME_DIR, empty if not set
    bool mIsMachine;     // see machine::isActing()
};

// The default name of the socket. That of the machine is sMachineSocket. A user who may write to that one
// uses it, too, because its service admits the user. All others get their own socket in their runtime folder,
// or in the temporary folder if they have none.
QString defaultSocketName();
QString defaultSocketName(const SocketPlace& pPlace);

// An absolute path unchanged; any other name is in QDir::tempPath().
QString socketPath(const QString& pName);

} // namespace tarn::vkcore::protocol
