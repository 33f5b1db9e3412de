#pragma once

#include "internal/Failure.h"

#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// Adds untrusted sizes; an overflow gives the maximum of the type.
void addBytes(qint64* pTo, qint64 pBytes);

// The amount that a run is going to write to one folder.
struct SpaceNeed
{
    QString mFolder; // exists
    qint64 mBytes = 0;
};

// Failure of the kind NoSpace if a file system has less space than all of its folders together need.
Failure checkFreeSpace(os::FileSystem& pFileSystem, const QList<SpaceNeed>& pNeeds);

// What the files of a package need below a root folder: they fill whole blocks, and folders need some space
// too.
SpaceNeed unpackingNeed(const QString& pRoot, qint64 pBytes);

} // namespace tarn::vkservice::update
