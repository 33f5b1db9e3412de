#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/types.h>

namespace tarn::os {
class FileSystem;
}

namespace tarn::tuf {

// Replaces a file atomically: after a crash it has the old or the new content. A crash may leave pPath +
// ".new", which the next call overwrites. Errors are Failure::Kind::Damaged.
Failure writeFileAtomically(os::FileSystem& pFileSystem, const QString& pPath, const QByteArray& pContent,
                            mode_t pMode);

// Failure::Kind::NotFound if there is no such file, Failure::Kind::Untrusted if it has more than pMaxLength
// bytes.
Failure readWholeFile(os::FileSystem& pFileSystem, const QString& pPath, qint64 pMaxLength, QByteArray* pTo);

} // namespace tarn::tuf
