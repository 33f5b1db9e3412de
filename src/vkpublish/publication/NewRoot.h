#pragma once

#include "record/Draft.h"

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkpublish {

class KeyFolder;

// The draft of the root with all its signatures, if it has them or the keys here can make them. *pNotes: why
// there is a draft, but none that can be published.
Result<std::optional<Draft>> completeRoot(const KeyFolder& pKeys, const QDateTime& pNow, QStringList* pNotes);

// Sets this root in the record, and drops the files of pRepository from it that have not enough signatures
// for machines with the new root: they have to be signed again. pUntil: when no machine can have the replaced
// root any longer.
Failure adoptRoot(os::FileSystem& pFileSystem, KeyFolder* pKeys, const QString& pRepository,
                  const Draft& pRoot, const QDateTime& pNow, const QDateTime& pUntil);

// Removes the draft of the root if it is the root of the record now, and that of the targets if it or a later
// list is published.
Failure dropPublishedDrafts(KeyFolder* pKeys);

} // namespace tarn::vkpublish
