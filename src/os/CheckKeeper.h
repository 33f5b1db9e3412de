#pragma once

#include <sys/types.h>

namespace tarn::os {

class Confinement;

// What the keeper of a program needs; everything is made before the fork.
struct KeeperOrder
{
    const char* mProgram;
    const char* mFolder;
    char* const* mArguments;
    char* const* mEnvironment;
    Confinement* mConfinement; // of the keeper and the program; null: none
    int mNoInput;              // descriptors: /dev/null,
    int mOutput;               // where the program writes,
    int mLife;                 // of which the other end is closed to end everything,
    int mReport;               // where the keeper writes its report
};

struct KeeperReport
{
    bool mHasEnded;  // by itself; else it was killed with the rest
    int mStatus;     // its exit status,
    int mSignal;     // or the signal that ended it
    int mStartErrno; // not 0: it could not be started
};

// Forks a keeper: a process that runs the program as its only child, adopts whatever that leaves behind, and
// kills all of it at the end. So nothing of a check survives it, and no other child of this process is
// touched. Returns the keeper's process id; -1 and errno on failure.
pid_t startKeeper(const KeeperOrder& pOrder);

} // namespace tarn::os
