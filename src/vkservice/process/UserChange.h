#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

#include <sys/types.h>

#include <optional>

namespace tarn::vkcore::machine {
struct ServiceUser;
}

namespace tarn::vkservice::process {

class ServiceApplication;

// Which user the process runs as. To be used while it has one thread and no open files of its own.

// Keeps the rights that systemd gave to this process away from the programs that it starts.
void keepRightsFromChildren();

// A process of root becomes one of the service's user, for good, if the state directory belongs to that user
// or is missing: otherwise it would leave files there that the service can't use. It stays root where the
// state is root's, and a state of anybody else is a failure. It keeps no right of root; *pProcesses gets the
// connection to a vkprocesses of its own, which sees what programs run. Whatever else only root can make for
// it is made before: the folders of the state, the log and pSocket. After a failure the process must not go
// on.
Failure becomeServiceUser(const ServiceApplication& pApp, const QString& pSocket, int* pProcesses);

enum class Sight
{
    Lost,
    Kept, // CAP_SYS_PTRACE, also for the program that the process becomes
};

// The change itself. pGroup: of which the process becomes a member, too.
Failure becomeUser(const vkcore::machine::ServiceUser& pUser, std::optional<gid_t> pGroup,
                   Sight pSight = Sight::Lost);

} // namespace tarn::vkservice::process
