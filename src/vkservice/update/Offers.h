#pragma once

#include "packages/PackageInfo.h"
#include "tuf/TargetFile.h"

#include <QtCore/QList>
#include <QtCore/QStringList>

namespace tarn::vkservice::update {

// A package as a server offers it.
struct Offer
{
    packages::PackageInfo mInfo;
    tuf::TargetFile mTarget;

    // The hash that identifies the package on this machine.
    tuf::Hash hash() const { return tuf::namingHash(mTarget.mHashes); }
};

// The packages among the targets of a repository. A file without "custom" is meant for other programs and is
// skipped without a message; other unusable files go to *pWarnings, which is limited to a few.
//
// A package's file is named after it, and each package name belongs to one role: the first in the search of
// the delegations that lists any target with that name, usable or not. So a role that may sign "vendor/*"
// cannot replace a package of an earlier role.
QList<Offer> usableOffers(const QList<tuf::TargetFile>& pTargets, QStringList* pWarnings);

} // namespace tarn::vkservice::update
