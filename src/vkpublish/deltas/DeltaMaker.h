#pragma once

#include "deltas/PackageVersion.h"

#include "tuf/Hash.h"

namespace tarn::vkpublish {

struct DeltaResult
{
    qint64 mLength =
        0;           // bytes of the file; 0: it would have had more than the caller wants, and was not made
    tuf::Hash mHash; // SHA-256 of it
};

// Writes the delta that makes the new version out of the old one, see trees/Delta.h. Lays open the files that
// it needs of both, which must stay as they are meanwhile. The same versions make the same bytes, whatever
// the number of threads is; each of these needs some 40 MiB. It is given up early if the files that have
// nothing in common with old ones would take pMostBytes by themselves, packed as well as the archive is. The
// file is on the disk after success, and not there after a failure; pOutput + ".segments" is used meanwhile.
Failure makeDelta(os::FileSystem& pFileSystem, PackageVersion& pOld, PackageVersion& pNew, int pThreads,
                  qint64 pMostBytes, const QString& pOutput, DeltaResult* pTo);

} // namespace tarn::vkpublish
