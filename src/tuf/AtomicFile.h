#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/types.h>

namespace tarn::os {
class FileSystem;
}

namespace tarn::tuf {

// Replaces a file as a whole: after a crash at any moment the old or the new content is there. A file
// pPath + ".new" may be left behind by a crash and is overwritten by the next call. Errors are
// Failure::Kind::Damaged.
Failure writeFileAtomically(os::FileSystem& pFileSystem, const QString& pPath, const QByteArray& pContent,
                            mode_t pMode);

// Failure::Kind::NotFound if there is no such file, Failure::Kind::Untrusted if it has more than pMaxLength
// bytes.
Failure readWholeFile(os::FileSystem& pFileSystem, const QString& pPath, qint64 pMaxLength, QByteArray* pTo);

} // namespace tarn::tuf
