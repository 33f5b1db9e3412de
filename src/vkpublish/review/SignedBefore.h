// What the keys of an offline machine signed last, in a file beside each key. It comes from no other machine,
// so a signer can compare with it.
#pragma once

#include "review/Payload.h"

#include "internal/Failure.h"

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

// A private key file of the offline machine.
struct OfflineKey
{
    QString mFolder;
    QString mName;
};

// Of several keys the one that has signed the lowest version counts: everything since is shown. No value if
// one of them has signed nothing of this role.
Result<std::optional<Payload>> signedBefore(os::FileSystem& pFileSystem, const QList<OfflineKey>& pKeys,
                                            const QString& pRole);
Failure rememberSigned(os::FileSystem& pFileSystem, const QList<OfflineKey>& pKeys, const Payload& pPayload);

} // namespace tarn::vkpublish
