// Builds and signs the metadata of a repository; writes nothing.
#pragma once

#include "tuf/SigningKey.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkpublish {

// The four top-level roles; each has a key of its own.
const QStringList& roleNames();

// All of these give the file, or nothing if signing fails.
// pKeys: role -> its key. pOldRootKey also signs, so that clients follow from a root that trusts it.
QByteArray makeRoot(qint64 pVersion, const QDateTime& pExpires, const QMap<QString, tuf::SigningKey>& pKeys,
                    const std::optional<tuf::SigningKey>& pOldRootKey);
QByteArray makeTargets(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargets,
                       const QList<tuf::SigningKey>& pKeys);
QByteArray makeSnapshot(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargetsMeta,
                        const QList<tuf::SigningKey>& pKeys);
QByteArray makeTimestamp(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pSnapshotMeta,
                         const QList<tuf::SigningKey>& pKeys);

// What the file above says about this one: "version", "length", "hashes".
QJsonObject metaOf(qint64 pVersion, const QByteArray& pFile);

} // namespace tarn::vkpublish
