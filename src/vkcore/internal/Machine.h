#pragma once

#include <QtCore/QString>

#include <sys/types.h>

#include <optional>

// Which processes act for the machine and not for one of its users, and whose service is the machine's. For
// both ends of the socket.
namespace tarn::vkcore::machine {

// The folder above the folder of this program.
QString installationPrefix();
// PREFIX/etc/vk if that folder exists and PREFIX is not /usr: an installation that can be moved. Else empty.
QString movableConfigDir();

struct ServiceUser
{
    QString mName;
    uid_t mUid;
    gid_t mGid;
};

// The user that the key service.user names in a folder of configuration files. Only files that root alone can
// change count: whoever could change one would be trusted like root by every client. None if the key names
// nobody, root, or a user who does not exist.
std::optional<ServiceUser> serviceUser(const QString& pConfigDir);
// That of this installation, or else of /etc/vk; read once.
const std::optional<ServiceUser>& serviceUser();

// True for a process of root or of the service's user. It uses the folders of the machine.
bool isActing();
// True for a service that a client may talk to: one of root, of the client's own user, or of the service's
// user.
bool isTrusted(uid_t pService);

} // namespace tarn::vkcore::machine
