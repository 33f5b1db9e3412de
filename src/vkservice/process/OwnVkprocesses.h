#pragma once

namespace tarn::vkcore::machine {
struct ServiceUser;
}

namespace tarn::vkservice::process {

// Starts the vkprocesses of this installation as a process of that user with CAP_SYS_PTRACE alone. It ends
// with this process. To be called as root, with one thread. Returns this end of the connection, which the
// caller closes; -1 if the installation has no such program.
int startVkprocesses(const vkcore::machine::ServiceUser& pUser);

} // namespace tarn::vkservice::process
