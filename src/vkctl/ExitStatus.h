#pragma once

namespace tarn::vkctl {

// docs/man/vkctl.1 explains them.
enum ExitStatus : int
{
    StatusSound = 0,
    StatusFailed = 1, // also a wrong command line
    StatusDamaged = 2,
    StatusUnproven = 3,
    StatusInterrupted = 4,
};

} // namespace tarn::vkctl
