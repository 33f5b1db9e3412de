#pragma once

#include "internal/Failure.h"
#include "tuf/Metadata.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

// A new root, or a new list of packages, that waits for signatures of keys elsewhere.
struct Draft
{
    QString mRole;
    QByteArray mPayload; // the bytes to sign, in canonical form
    QList<tuf::Signature> mSignatures;

    // The metadata file with these signatures.
    QByteArray file() const;
    tuf::Signed toSigned() const;
};

// The metadata file with these bytes as its signed part, and without signatures.
QByteArray unsignedFile(const QByteArray& pPayload);

// A role's draft is a file of its own in the key folder pFolder. No value if there is none.
Result<std::optional<Draft>> readDraft(os::FileSystem& pFileSystem, const QString& pFolder,
                                       const QString& pRole);
Failure writeDraft(os::FileSystem& pFileSystem, const QString& pFolder, const Draft& pDraft);
// One that is missing counts as removed.
Failure removeDraft(os::FileSystem& pFileSystem, const QString& pFolder, const QString& pRole);

} // namespace tarn::vkpublish
