// Builds and signs the metadata of a repository; does not write files.
#pragma once

#include "keys/Signer.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkpublish {

// The four top-level roles; each has its own key.
const QStringList& roleNames();

// All of these return the file. pKeys: role -> its key. pOldRootKey signs, too, so that clients that trust it
// follow to the new root.
Result<QByteArray> makeRoot(qint64 pVersion, const QDateTime& pExpires, const QMap<QString, Signer>& pKeys,
                            const std::optional<Signer>& pOldRootKey);
Result<QByteArray> makeTargets(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargets,
                               const QList<Signer>& pKeys);
Result<QByteArray> makeSnapshot(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargetsMeta,
                                const QList<Signer>& pKeys);
Result<QByteArray> makeTimestamp(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pSnapshotMeta,
                                 qint64 pTargetsVersion, const QList<Signer>& pKeys);

// The entry for this file in the file above it: "version", "length", "hashes".
QJsonObject metaOf(qint64 pVersion, const QByteArray& pFile);

} // namespace tarn::vkpublish
