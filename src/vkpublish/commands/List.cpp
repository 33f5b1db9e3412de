#include "commands/Commands.h"

#include "CommandLine.h"
#include "KeyFolder.h"

#include "os/FileSystem.h"
#include "packages/PackageInfo.h"

#include <QtCore/QLocale>

#include <algorithm>

namespace tarn::vkpublish {

using packages::PackageInfo;

namespace {

QStringList row(const QJsonObject& pTarget, const QString& pState)
{
    PackageInfo tInfo;
    QString tProblem;
    PackageInfo::fromJson(pTarget[QLatin1String("custom")].toObject(), &tInfo, &tProblem);
    const QString tKind =
        tInfo.mKind == packages::Kind::Data ? QStringLiteral("data") : QStringLiteral("application");
    return {tInfo.mName,
            tInfo.mVersion.version().toTarnAppFormat(),
            tInfo.mVersion.date().toString(QStringLiteral("yyyy-MM-dd")),
            tKind,
            tInfo.mLanguage.isEmpty() ? QStringLiteral("-") : tInfo.mLanguage,
            QLocale::c().formattedDataSize(pTarget[QLatin1String("length")].toInteger()),
            pState};
}

// A state for each archive, as the last publish and the next one see it.
QList<QStringList> rows(const Record& pRecord)
{
    QList<QStringList> tRows;
    for (auto tIt = pRecord.mTargets.begin(); tIt != pRecord.mTargets.end(); ++tIt) {
        const bool tPublished = pRecord.mPublishedTargets[tIt.key()] == tIt.value();
        tRows.append(
            row(tIt.value().toObject(), tPublished ? QStringLiteral("published") : QStringLiteral("new")));
    }
    for (auto tIt = pRecord.mPublishedTargets.begin(); tIt != pRecord.mPublishedTargets.end(); ++tIt) {
        if (!pRecord.mTargets.contains(tIt.key())) {
            tRows.append(row(tIt.value().toObject(), QStringLiteral("removed")));
        }
    }
    return tRows;
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
    CommandLine tLine(QStringLiteral("list"),
                      QStringLiteral("Shows the packages, and what the next \"publish\" will change."));
    tLine.addRepository();
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    KeyFolder tKeys(os::realFileSystem(), tLine.keys());
    QString tError;
    if (!tKeys.openForReading(&tError)) {
        complain(tError);
        return StatusFailed;
    }
    const QStringList tHead{QStringLiteral("NAME"), QStringLiteral("VERSION"),  QStringLiteral("DATE"),
                            QStringLiteral("KIND"), QStringLiteral("LANGUAGE"), QStringLiteral("SIZE"),
                            QStringLiteral("STATE")};
    print(QList<QStringList>{tHead} + rows(tKeys.mRecord));
    say(tKeys.mRecord.mTimestampExpires.isValid()
            ? QStringLiteral("Valid until %1").arg(tKeys.mRecord.mTimestampExpires.toString(Qt::ISODate))
            : QStringLiteral("Not published yet"));
    return StatusDone;
}

} // namespace tarn::vkpublish
