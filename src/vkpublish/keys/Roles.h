// Builds and signs the metadata of a repository; does not write files.
#pragma once

#include "tuf/SigningKey.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkpublish {

// The four top-level roles; each has its own key.
const QStringList& roleNames();

// All of these return the file, or an empty one if signing fails. pKeys: role -> its key. pOldRootKey signs,
// too, so that clients that trust it follow to the new root.
QByteArray makeRoot(qint64 pVersion, const QDateTime& pExpires, const QMap<QString, tuf::SigningKey>& pKeys,
                    const std::optional<tuf::SigningKey>& pOldRootKey);
QByteArray makeTargets(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargets,
                       const QList<tuf::SigningKey>& pKeys);
QByteArray makeSnapshot(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargetsMeta,
                        const QList<tuf::SigningKey>& pKeys);
QByteArray makeTimestamp(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pSnapshotMeta,
                         qint64 pTargetsVersion, const QList<tuf::SigningKey>& pKeys);

// The entry for this file in the file above it: "version", "length", "hashes".
QJsonObject metaOf(qint64 pVersion, const QByteArray& pFile);

} // namespace tarn::vkpublish
