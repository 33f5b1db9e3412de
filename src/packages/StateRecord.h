#pragma once

#include "internal/Failure.h"
#include "internal/JsonReader.h"
#include "os/FileTools.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QString>

namespace tarn::packages {

// What the records in the state folder have in common: each is a file of one JSON object with a format, which
// only its owner may read.

// A missing file is an empty record. Content if it is damaged.
template <typename Record>
Result<Record> loadRecord(os::FileSystem& pFileSystem, const QString& pPath, qint64 pMaxSize)
{
    using namespace Qt::StringLiterals;
    const Result<QByteArray> tBytes = os::readFile(pFileSystem, pPath, pMaxSize);
    if (!tBytes) {
        return tBytes.failure().mKind == Failure::Kind::NotFound ? Result<Record>(Record())
                                                                 : tBytes.failure();
    }
    Result<Record> tRecord = Record::fromBytes(*tBytes);
    return tRecord ? tRecord : Failure::content(u"%1 is damaged (%2)"_s.arg(pPath, tRecord.failure().mText));
}

// pRead(JsonReader&, Record*) reads the members.
template <typename Record, typename F>
Result<Record> recordFrom(const QByteArray& pBytes, int pFormat, F pRead)
{
    QString tFault;
    vkcore::JsonReader tReader(QJsonDocument::fromJson(pBytes).object(), &tFault);
    Record tRecord;
    tReader.integer("format", pFormat, pFormat);
    pRead(tReader, &tRecord);
    return tReader.ok() ? Result<Record>(tRecord) : Failure::content(tFault);
}

// Renames a damaged record, so that who looks after the machine can see what was in it. Says so in *pWarning,
// a text without its full stop.
Failure setAside(os::FileSystem& pFileSystem, const QString& pPath, const Failure& pDamage,
                 QString* pWarning);

// Replaces the file atomically and durably.
Failure storeRecord(os::FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes);

// In UTC; null for an invalid date.
QJsonValue dateValue(const QDateTime& pDate);
// Invalid for null.
QDateTime readDate(vkcore::JsonReader& pFrom, const char* pName);

} // namespace tarn::packages
