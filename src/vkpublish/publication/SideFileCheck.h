#pragma once

#include "internal/Failure.h"
#include "packages/PackageInfo.h"
#include "tuf/TargetFile.h"

namespace tarn::vkpublish {

// Reads the index of a package from the targets folder and compares it with the archive, which is unpacked
// once: frames, places and hashes, and every entry. A failure for any difference.
Failure checkIndex(const QString& pTargets, const packages::PackageInfo& pInfo, const QString& pArchive,
                   qint64 pArchiveSize);

// A failure if the file of a delta is not the signed one, or is not a delta between the indexes that are
// named. What it makes is not checked: machines do, file by file.
Failure checkDelta(const QString& pTargets, const packages::PackageInfo& pInfo,
                   const packages::DeltaFile& pDelta);

} // namespace tarn::vkpublish
