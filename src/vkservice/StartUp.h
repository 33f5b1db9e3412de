#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"

#include <QtCore/QString>

namespace tarn::vkservice {

struct CommandLine;

// What happens before the service runs: who it is.

// Settles which user the process runs as from now on. To be called first, while it has one thread. After a
// failure the service must not start. *pProcesses gets the connection to a vkprocesses of its own, if it
// needs one.
Failure settleUser(const CommandLine& pLine, os::Descriptor* pProcesses);

// The command of that name: gives the files of the machine's service to its user, or back to root. Returns
// the exit status.
int handOver(bool pToRoot);

} // namespace tarn::vkservice
