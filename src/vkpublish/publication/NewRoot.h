#pragma once

#include "record/Draft.h"

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkpublish {

class KeyFolder;
struct Record;

// The draft of the root with all its signatures, if it has them or the keys here can make them. *pNotes: why
// there is a draft, but none that can be published.
Result<std::optional<Draft>> completeRoot(const KeyFolder& pKeys, const QDateTime& pNow, QStringList* pNotes);

// Drops the files of pRepository from the record that have not enough signatures for machines with its roots:
// they have to be signed again.
void dropUnsigned(os::FileSystem& pFileSystem, KeyFolder* pKeys, const QString& pRepository,
                  const QDateTime& pNow);

// Sets this root in the record, and drops what is not signed under it. pUntil: when no machine can have the
// replaced root any longer. That one may be missing in pRepository, and expired: an earlier run was
// interrupted.
Failure adoptRoot(os::FileSystem& pFileSystem, KeyFolder* pKeys, const QString& pRepository,
                  const Draft& pRoot, const QDateTime& pNow, const QDateTime& pUntil);

// Writes the root of the record, and those before it that an interrupted run has not written: machines go
// from one to the next. Then forgets the replaced ones whose time is over.
Failure writeRoots(os::FileSystem& pFileSystem, const QString& pRepository, const QDateTime& pNow,
                   Record* pRecord);

// Removes the draft of the root if it is the root of the record now, and that of the targets if it or a later
// list is published.
Failure dropPublishedDrafts(KeyFolder* pKeys);

} // namespace tarn::vkpublish
