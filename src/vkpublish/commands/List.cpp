#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/Json.h"
#include "keys/KeyFolder.h"
#include "publication/Layout.h"
#include "publication/Releases.h"

#include "os/FileSystem.h"
#include "packages/PackageInfo.h"

#include <QtCore/QLocale>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using packages::PackageInfo;

namespace {

// How many deltas lead to a package, and their size; "-" for a package without an index, which has none.
QString deltas(const PackageInfo& pInfo)
{
    qint64 tBytes = 0;
    for (const packages::DeltaFile& tDelta : pInfo.mDeltas) {
        tBytes += tDelta.mFile.mLength;
    }
    const QString tCount = QString::number(pInfo.mDeltas.size());
    return !pInfo.mIndex             ? u"-"_s
           : pInfo.mDeltas.isEmpty() ? tCount
                                     : u"%1, %2"_s.arg(tCount, QLocale::c().formattedDataSize(tBytes));
}

QStringList attachmentWords(const PackageInfo& pInfo)
{
    QStringList tWords;
    for (const packages::Attachment& tAttachment : pInfo.mAttachments) {
        tWords.append(formOf(tAttachment.mKind).mWord);
    }
    return tWords;
}

QString attachments(const PackageInfo& pInfo)
{
    const QStringList tWords = attachmentWords(pInfo);
    return tWords.isEmpty() ? u"-"_s : tWords.join(u", "_s);
}

QStringList row(const QJsonObject& pTarget, const QString& pState)
{
    const PackageInfo tInfo = infoOf(pTarget).value_or(PackageInfo());
    const QString tRelease = releaseText(tInfo.mRelease, QDateTime::currentDateTimeUtc());
    const QString tKind = tInfo.mKind == packages::Kind::Data ? u"data"_s : u"application"_s;
    return {tInfo.mName,
            tInfo.mVersion.version().toTarnAppFormat(),
            tInfo.mVersion.date().toString(u"yyyy-MM-dd"_s),
            tKind,
            tInfo.mLanguage.isEmpty() ? u"-"_s : tInfo.mLanguage,
            QLocale::c().formattedDataSize(pTarget["length"_L1].toInteger()),
            deltas(tInfo),
            attachments(tInfo),
            tRelease.isEmpty() ? u"-"_s : tRelease,
            pState};
}

// Calls pDo with each archive, and its state in the last and in the next publication.
template <typename F>
void forEach(const Record& pRecord, F pDo)
{
    for (auto tIt = pRecord.mTargets.begin(); tIt != pRecord.mTargets.end(); ++tIt) {
        const bool tPublished = pRecord.mPublishedTargets.text(tIt.key()) == tIt.text();
        pDo(tIt.key(), tIt.value().toObject(), tPublished ? u"published"_s : u"new"_s);
    }
    for (auto tIt = pRecord.mPublishedTargets.begin(); tIt != pRecord.mPublishedTargets.end(); ++tIt) {
        if (!pRecord.mTargets.contains(tIt.key())) {
            pDo(tIt.key(), tIt.value().toObject(), u"removed"_s);
        }
    }
}

QJsonObject json(const QString& pArchive, const QJsonObject& pTarget, const QString& pState)
{
    const PackageInfo tInfo = infoOf(pTarget).value_or(PackageInfo());
    qint64 tDeltaBytes = 0;
    for (const packages::DeltaFile& tDelta : tInfo.mDeltas) {
        tDeltaBytes += tDelta.mFile.mLength;
    }
    QJsonObject tObject{{u"archive"_s, pArchive},
                        {u"name"_s, tInfo.mName},
                        {u"version"_s, tInfo.mVersion.version().toTarnAppFormat()},
                        {u"date"_s, jsonDate(tInfo.mVersion.date())},
                        {u"kind"_s, tInfo.mKind == packages::Kind::Data ? u"data"_s : u"application"_s},
                        {u"language"_s, jsonText(tInfo.mLanguage)},
                        {u"bytes"_s, pTarget["length"_L1]},
                        {u"hasIndex"_s, tInfo.mIndex.has_value()},
                        {u"deltas"_s, tInfo.mDeltas.size()},
                        {u"deltaBytes"_s, tDeltaBytes},
                        {u"state"_s, pState}};
    const packages::Release& tRelease = tInfo.mRelease;
    tObject.insert("channel"_L1, jsonText(tRelease.mChannel));
    tObject.insert("critical"_L1, tRelease.mIsCritical);
    tObject.insert("attachments"_L1, QJsonArray::fromStringList(attachmentWords(tInfo)));
    tObject.insert(
        "securitySince"_L1,
        jsonText(tRelease.mSecuritySince ? tRelease.mSecuritySince->toTarnAppFormat() : QString()));
    tObject.insert("halted"_L1, jsonDate(tRelease.mHalted.value_or(QDateTime())));
    return tObject;
}

void printJson(const Record& pRecord)
{
    QJsonArray tPackages;
    forEach(pRecord, [&](const QString& pArchive, const QJsonObject& pTarget, const QString& pState) {
        tPackages.append(json(pArchive, pTarget, pState));
    });
    sayJson({{u"packages"_s, tPackages}, {u"expires"_s, jsonDate(pRecord.mTimestampExpires)}});
}

void print(const QList<QStringList>& pRows)
{
    QList<qsizetype> tWidths(pRows.first().size(), 0);
    for (const QStringList& tRow : pRows) {
        for (qsizetype i = 0; i < tRow.size(); ++i) {
            tWidths[i] = std::max(tWidths[i], tRow[i].size());
        }
    }
    for (const QStringList& tRow : pRows) {
        QString tLine;
        for (qsizetype i = 0; i < tRow.size(); ++i) {
            tLine += tRow[i].leftJustified(tWidths[i] + 2);
        }
        say(tLine.trimmed());
    }
}

} // namespace

int cmdList(const QStringList& pArguments)
{
    CommandLine tLine(u"list"_s, u"Shows the packages, and what the next \"publish\" will change."_s);
    tLine.addRepository();
    tLine.addJson();
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    KeyFolder tKeys(os::realFileSystem(), tLine.keys());
    if (const Failure tFailure = tKeys.openForReading()) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    if (tLine.isSet("json")) {
        printJson(tKeys.mRecord);
        return StatusDone;
    }
    QList<QStringList> tRows;
    forEach(tKeys.mRecord, [&](const QString&, const QJsonObject& pTarget, const QString& pState) {
        tRows.append(row(pTarget, pState));
    });
    const QStringList tHead{u"NAME"_s, u"VERSION"_s, u"DATE"_s,     u"KIND"_s,    u"LANGUAGE"_s,
                            u"SIZE"_s, u"DELTAS"_s,  u"ATTACHED"_s, u"RELEASE"_s, u"STATE"_s};
    print(QList<QStringList>{tHead} + tRows);
    say(tKeys.mRecord.mTimestampExpires.isValid()
            ? u"Valid until %1"_s.arg(tKeys.mRecord.mTimestampExpires.toString(Qt::ISODate))
            : u"Not published yet"_s);
    return StatusDone;
}

} // namespace tarn::vkpublish
