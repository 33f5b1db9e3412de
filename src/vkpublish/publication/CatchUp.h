#pragma once

#include "tuf/Updater.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

class KeyFolder;
struct Record;
struct RepositoryState;

// Clients refuse versions below those that they have seen, and the versions in a record from a backup are too
// low. Raises the versions in the record to those in pSeen, a root included; files that the record lists with
// lower versions, or that lack signatures under the new root, will be signed again. A list of packages that
// pRepository has with a higher version stays if it has what the record has. *pRaised: true if the version of
// the root or the targets was raised; another machine may have refreshed the others. A failure if the key
// folder lacks a key of the newest root. The caller writes the record with KeyFolder::save().
Failure raiseVersions(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder* pKeys,
                      const RepositoryState& pSeen, bool* pRaised);

// A failure if a version is too high to be this publisher's.
Failure checkLead(const Record& pRecord, const RepositoryState& pSeen);

// The same as raiseVersions() with the metadata of a repository elsewhere, all of which must be valid. Writes
// the roots that the repository in the folder pRepository lacks.
Failure takeOver(os::FileSystem& pFileSystem, tuf::Fetcher& pFrom, const QString& pRepository,
                 KeyFolder* pKeys, bool* pRaised);

} // namespace tarn::vkpublish
