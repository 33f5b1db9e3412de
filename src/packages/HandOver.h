#pragma once

#include "internal/Failure.h"
#include "os/Ownership.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::packages {

// Gives the files of an installation to another user: its folders of packages, and last its state. In each
// folder only what the service itself makes there changes hands, and a folder of packages only if its marker
// says that it is this installation's. No service may run meanwhile.
class HandOver
{
public:
    HandOver(const os::Ownership& pOwnership, const QString& pStateDir)
        : mOwnership(pOwnership), mStateDir(pStateDir)
    {
    }

    // pInstallDir: also given without a marker where an earlier version, which had none, has installed
    // packages.
    Failure give(const QString& pInstallDir);
    // One sentence for each folder that stays with its owner.
    const QStringList& left() const { return mLeft; }

private:
    enum class Claim
    {
        Ours,
        Missing,
        Foreign,
    };

    Failure giveRoot(const QString& pPath, bool pIsNew);
    Claim claimOf(int pRoot, bool pIsNew, bool pHoldsOthers) const;
    Failure giveState();

    os::Ownership mOwnership;
    QString mStateDir;
    QString mId;
    QStringList mLeft;
};

} // namespace tarn::packages
