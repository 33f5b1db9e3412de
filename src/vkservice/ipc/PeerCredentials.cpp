#include "ipc/PeerCredentials.h"

#include <sys/socket.h>

#include <cerrno>

namespace tarn::vkservice::ipc {

namespace {

// Asks the kernel, not the user database, which may be slow or on the network.
QList<gid_t> peerGroups(int pSocket)
{
    QList<gid_t> tGroups(32);
    for (;;) {
        socklen_t tSize = static_cast<socklen_t>(tGroups.size() * sizeof(gid_t));
        const int tResult = ::getsockopt(pSocket, SOL_SOCKET, SO_PEERGROUPS, tGroups.data(), &tSize);
        const bool tTooSmall = tResult != 0 && errno == ERANGE;
        if (tResult != 0 && !tTooSmall) {
            return {};
        }
        tGroups.resize(static_cast<qsizetype>(tSize / sizeof(gid_t)));
        if (!tTooSmall) {
            return tGroups;
        }
    }
}

} // namespace

std::optional<PeerCredentials> peerCredentials(int pSocket)
{
    ucred tCredentials = {};
    socklen_t tSize = sizeof(tCredentials);
    if (::getsockopt(pSocket, SOL_SOCKET, SO_PEERCRED, &tCredentials, &tSize) != 0 ||
        tSize != sizeof(tCredentials)) {
        return std::nullopt;
    }
    return PeerCredentials{tCredentials.pid, tCredentials.uid, tCredentials.gid, peerGroups(pSocket)};
}

bool maySpeak(const PeerCredentials& pPeer, uid_t pOwnUid, std::optional<gid_t> pGroup)
{
    if (pPeer.mUid == pOwnUid || pPeer.mUid == 0) {
        return true;
    }
    return pGroup && (pPeer.mGid == *pGroup || pPeer.mGroups.contains(*pGroup));
}

} // namespace tarn::vkservice::ipc
