// The files of a repository that nothing refers to any longer.
#pragma once

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

struct Record;

// Sets the record's list of them after a publication. pUnnamed: the files in the targets folder that no
// published package names.
void noteUnreferenced(const QString& pRepository, const QStringList& pUnnamed, const QDateTime& pNow,
                      Record* pRecord);

// Deletes those in the list that have been in it for at least pGrace seconds.
Failure deleteUnreferenced(os::FileSystem& pFileSystem, const QString& pRepository, const QDateTime& pNow,
                           qint64 pGrace, Record* pRecord);

} // namespace tarn::vkpublish
