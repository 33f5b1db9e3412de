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

    // The hash that the package is known by on this machine.
    tuf::Hash hash() const { return tuf::namingHash(mTarget.mHashes); }
};

// The packages among the targets of a repository. A file without "custom" is meant for other programs and is
// skipped without a message; other unusable files go to *pWarnings, which is limited to a few.
//
// A package's file is named after it, and a name belongs to one role: the first in the search of the
// delegations that lists any target of that name, usable or not. So a role that may sign "vendor/*" can't
// replace a package of a role before it.
QList<Offer> usableOffers(const QList<tuf::TargetFile>& pTargets, QStringList* pWarnings);

} // namespace tarn::vkservice::update
