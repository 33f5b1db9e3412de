#pragma once

#include "internal/Failure.h"
#include "packages/PackageInfo.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

// A file that is to stand beside a package.
struct AttachedFile
{
    packages::Attachment mAttachment;
    QByteArray mBytes;
};

// Reads the files that these "KIND=FILE" name, one of each kind at most. What has the wrong form is a failure
// of the kind Person.
Result<QList<AttachedFile>> readAttachments(os::FileSystem& pFileSystem, const QStringList& pValues);

// Writes them, and names them in the description.
Failure writeAttachments(os::FileSystem& pFileSystem, const QString& pTargets,
                         const QList<AttachedFile>& pFiles, packages::PackageInfo* pInfo);

// Whether the file is what was signed.
Failure checkAttachment(const QString& pTargets, const packages::Attachment& pAttachment);

} // namespace tarn::vkpublish
