// The files of a repository that nothing refers to any longer.
#pragma once

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QSet>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

struct Record;

// Sets the record's list of them after a publication. pNamed: the files in the targets folder that the
// published packages name.
void noteUnreferenced(const QString& pRepository, const QSet<QString>& pNamed, const QDateTime& pNow,
                      Record* pRecord);

// Deletes those in the list that have been in it for at least pGrace seconds.
Failure deleteUnreferenced(os::FileSystem& pFileSystem, const QString& pRepository, const QDateTime& pNow,
                           qint64 pGrace, Record* pRecord);

} // namespace tarn::vkpublish
