// Builds and signs the metadata of a repository; does not write files.
#pragma once

#include "keys/Signer.h"
#include "record/TargetList.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

// The four top-level roles; each has its own keys.
const QStringList& roleNames();

// The members that all metadata files have in common.
QJsonObject signedPart(const QString& pType, qint64 pVersion, const QDateTime& pExpires);
// What the signatures of a list of packages are over; empty if a target has no canonical form.
QByteArray targetsPart(qint64 pVersion, const QDateTime& pExpires, const TargetList& pTargets);

// All of these return the file.
Result<QByteArray> makeTargets(qint64 pVersion, const QDateTime& pExpires, const TargetList& pTargets,
                               const QList<Signer>& pKeys);
Result<QByteArray> makeSnapshot(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pTargetsMeta,
                                const QList<Signer>& pKeys);
Result<QByteArray> makeTimestamp(qint64 pVersion, const QDateTime& pExpires, const QJsonObject& pSnapshotMeta,
                                 qint64 pTargetsVersion, const QList<Signer>& pKeys);

// The entry for this file in the file above it: "version", "length", "hashes".
QJsonObject metaOf(qint64 pVersion, const QByteArray& pFile);

} // namespace tarn::vkpublish
