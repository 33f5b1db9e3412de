#pragma once

#include "tuf/Updater.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

class KeyFolder;
struct RepositoryState;

// Machines refuse versions below those that they have seen, and a record from a backup knows too low ones.
// Raises those of the record to what pSeen has, a root included; files that the record knows under lower
// versions will be signed again. *pRaised: there was something to raise. A failure if the key folder
// lacks a key of the newest root. To be written with KeyFolder::save().
Failure raiseVersions(KeyFolder* pKeys, const RepositoryState& pSeen, bool* pRaised);

// The same with what a repository offers elsewhere, all of which has to be verified. Roots that the
// repository in the folder pRepository lacks are written there.
Failure takeOver(os::FileSystem& pFileSystem, tuf::Fetcher& pFrom, const QString& pRepository,
                 KeyFolder* pKeys, bool* pRaised);

} // namespace tarn::vkpublish
