#pragma once

#include <QtCore/QList>

#include <sys/types.h>

#include <optional>

namespace tarn::vkservice::ipc {

// Who opened a connection, as the kernel recorded it at that moment.
struct PeerCredentials
{
    pid_t mPid = 0;
    uid_t mUid = 0;
    gid_t mGid = 0;
    QList<gid_t> mGroups; // supplementary groups
};

// None if the kernel does not tell.
std::optional<PeerCredentials> peerCredentials(int pSocket);

// The service's own user and root may speak, and the members of pGroup where one is set.
bool maySpeak(const PeerCredentials& pPeer, uid_t pOwnUid, std::optional<gid_t> pGroup);

} // namespace tarn::vkservice::ipc
