#pragma once

#include "os/Descriptor.h"
#include "os/ProcessList.h"

#include <memory>

namespace tarn::vkservice {

// The processes that the service sees.
struct ProcessSight
{
    std::unique_ptr<os::ProcessList> mHelped; // none: those that this process sees itself
    bool mIsWhole = false;                    // also what other users run
};

// pOwn: the connection to a vkprocesses of its own, if it has one. Without it the machine's service asks the
// one of systemd, if there is one and the service does not have CAP_SYS_PTRACE itself. If that goes away
// later, nobody can say what is in use.
ProcessSight chooseSight(os::Descriptor pOwn);

} // namespace tarn::vkservice
