#pragma once

#include "internal/Failure.h"

namespace tarn::vkprocesses {

// Keeps CAP_SYS_PTRACE, if the process has it, and nothing else: no other right, no way to get one, no
// program that it could start, no file that it could write, no socket but those that are open (seccomp). For
// good. After a failure the process must not go on.
Failure keepOnlySight();

} // namespace tarn::vkprocesses
