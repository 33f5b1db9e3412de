#pragma once

#include "packages/PackageFolders.h"
#include "update/Plan.h"

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// Adds sizes that others name: what is too much for the type becomes the most that it holds.
void addBytes(qint64* pTo, qint64 pBytes);

// What a run is going to write to one folder.
struct SpaceNeed
{
    QString mFolder; // exists
    qint64 mBytes = 0;
};

// Failure of the kind NoSpace if a file system has less than what is needed in all of its folders together.
Failure checkFreeSpace(os::FileSystem& pFileSystem, const QList<SpaceNeed>& pNeeds);

// What unpacking the plan's packages takes in each of their root folders: files fill whole blocks, and
// folders take some too.
QList<SpaceNeed> unpackingNeeds(const Plan& pPlan, const packages::PackageFolders& pFolders);

} // namespace tarn::vkservice::update
