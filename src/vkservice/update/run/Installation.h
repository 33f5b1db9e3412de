#pragma once

#include "update/run/Attempt.h"
#include "update/SwitchTime.h"

namespace tarn::vkservice::update {

class RunParts;
class ServerRound;

// Prepares what the servers have, waits for its time and for applications, and switches to it.
class Installation
{
public:
    Installation(RunParts& pParts, ServerRound& pServers);

    // *pAttempt may be another one afterwards, of a later server. It waits for its mInstallFrom if that is
    // valid.
    Failure install(std::unique_ptr<Attempt>* pAttempt);

private:
    Failure prepareFromAny(std::unique_ptr<Attempt>* pAttempt);
    Failure prepare(Attempt* pAttempt);
    void logFailedPackages(const Plan& pPlan);
    Failure waitAndSwitch(Attempt* pAttempt);
    Failure keepPrepared(Attempt* pAttempt);
    void removeObsolete();

    RunParts& mParts;
    ServerRound& mServers;
    SwitchTime mSwitchTime;
};

} // namespace tarn::vkservice::update
