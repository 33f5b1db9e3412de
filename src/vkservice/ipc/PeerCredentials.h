#pragma once

#include <QtCore/QList>

#include <sys/types.h>

#include <optional>

namespace tarn::vkservice::ipc {

// The user and process that opened a connection, as the kernel recorded them at that moment.
struct PeerCredentials
{
    pid_t mPid = 0;
    uid_t mUid = 0;
    gid_t mGid = 0;
    QList<gid_t> mGroups; // supplementary groups
};

// No value if the kernel does not report them.
std::optional<PeerCredentials> peerCredentials(int pSocket);

// Access is for the service's own user and root, and for the members of pGroup if one is set.
bool maySpeak(const PeerCredentials& pPeer, uid_t pOwnUid, std::optional<gid_t> pGroup);

} // namespace tarn::vkservice::ipc
