#pragma once

#include "deltas/PackageVersion.h"

#include "tuf/Hash.h"

namespace tarn::vkpublish {

struct DeltaResult
{
    qint64 mLength = 0; // bytes of the file
    tuf::Hash mHash;    // SHA-256 of it
};

// Writes the delta that makes the new version out of the old one, see trees/Delta.h. Lays open the files that
// it needs of both, which must stay as they are meanwhile. The same versions make the same bytes, whatever
// the number of threads is; each of these needs some 40 MiB. The file is on the disk after success, and not
// there after a failure; pOutput + ".segments" is used meanwhile.
Failure makeDelta(os::FileSystem& pFileSystem, PackageVersion& pOld, PackageVersion& pNew, int pThreads,
                  const QString& pOutput, DeltaResult* pTo);

} // namespace tarn::vkpublish
