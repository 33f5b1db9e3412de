#pragma once

#include "update/run/Attempt.h"
#include "update/supply/Budget.h"

#include <QtCore/QStringList>

#include <vector>

namespace tarn::vkservice::update {

class RunParts;
struct ServerAccess;

// Asks the servers of a run in their order for what this machine needs.
class ServerRound
{
public:
    explicit ServerRound(RunParts& pParts) : mParts(pParts) {}

    // Asks the servers that were not asked yet in order until one has everything; else selects the one that
    // has most. If *pBest has no value, none can be used.
    Failure find(std::unique_ptr<Attempt>* pBest);
    bool isOver() const;
    // What a server has offered turned out to be of no use, and the next one will be asked.
    void giveUp(const QString& pServer, const Failure& pFailure) { note(pServer, pFailure, false); }

    // Each server that could not be used, with the reason.
    QStringList unusable() const;
    // Why none of them can be used.
    Failure allFailed() const;

private:
    struct Trouble
    {
        QString mServer;
        Failure mFailure;
    };

    Failure ask(const ServerAccess& pServer, Attempt* pAttempt);
    Failure fetch(Attempt* pAttempt, const Attempt* pEarlier);
    void note(const QString& pServer, const Failure& pFailure, bool pIsLast);

    RunParts& mParts;
    qsizetype mNextServer = 0;
    Budget mBudget;
    std::vector<Trouble> mTroubles;
};

} // namespace tarn::vkservice::update
