#include "commands/Commands.h"

#include "CommandLine.h"
#include "Publication.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

namespace tarn::vkpublish {

namespace {

constexpr int sRootWarningDays = 90;

std::optional<PublicationTimes> readTimes(const CommandLine& pLine)
{
    const std::optional<int> tDays = pLine.number("expires-days", 1, 3650);
    const std::optional<int> tTargetsDays = pLine.number("targets-days", 1, 3650);
    if (!tDays || !tTargetsDays) {
        return std::nullopt;
    }
    PublicationTimes tTimes;
    tTimes.mNow = QDateTime::currentDateTimeUtc();
    tTimes.mExpires = tTimes.mNow.addDays(*tDays);
    tTimes.mTargetsExpires = tTimes.mNow.addDays(*tTargetsDays);
    if (pLine.isSet("expires")) {
        const std::optional<QDateTime> tDate = pLine.date("expires");
        if (!tDate) {
            return std::nullopt;
        }
        tTimes.mExpires = *tDate;
    }
    return tTimes;
}

void warn(const PublicationTimes& pTimes, const QByteArray& pRoot)
{
    if (pTimes.mExpires <= pTimes.mNow) {
        complain(QStringLiteral("Warning: what was signed has expired already, and clients will refuse it"));
    }
    tuf::Root tRoot;
    if (!tuf::parseRoot(pRoot, &tRoot) && pTimes.mNow.daysTo(tRoot.mExpires) < sRootWarningDays) {
        complain(QStringLiteral(
                     "Warning: the root holds only until %1; renew it with \"vkpublish rotate-key DIR root\"")
                     .arg(tRoot.mExpires.toString(Qt::ISODate)));
    }
}

} // namespace

int cmdPublish(const QStringList& pArguments)
{
    CommandLine tLine(
        QStringLiteral("publish"),
        QStringLiteral("Offers what was added since the last time, and keeps the repository fresh: run "
                       "it more often than it expires."));
    tLine.addRepository();
    tLine.addOption(QStringLiteral("expires-days"),
                    QStringLiteral("How long timestamp and snapshot hold, in days"), QStringLiteral("DAYS"),
                    QStringLiteral("14"));
    tLine.addOption(QStringLiteral("expires"), QStringLiteral("The date until which they hold, instead"),
                    QStringLiteral("DATE"));
    tLine.addOption(QStringLiteral("targets-days"),
                    QStringLiteral("How long the list of packages holds, in days"), QStringLiteral("DAYS"),
                    QStringLiteral("365"));
    tLine.addOption(QStringLiteral("prune"),
                    QStringLiteral("Then delete the files that nothing refers to any more"));
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const std::optional<PublicationTimes> tTimes = readTimes(tLine);
    if (!tTimes) {
        return StatusUsage;
    }
    KeyFolder tKeys(vkservice::os::realFileSystem(), tLine.keys());
    Publication tPublication(vkservice::os::realFileSystem(), tLine.repository(), tKeys);
    QString tError;
    if (!tKeys.open(&tError) || !tPublication.run(*tTimes, &tError) ||
        (tLine.isSet("prune") && !tPublication.prune(&tError))) {
        complain(tError);
        return StatusFailed;
    }
    warn(*tTimes, tKeys.mRecord.mRoot);
    const qsizetype tCount = tKeys.mRecord.mTargets.size();
    say(QStringLiteral("Published %1, valid until %2")
            .arg(tCount == 1 ? QStringLiteral("1 package") : QStringLiteral("%1 packages").arg(tCount))
            .arg(tTimes->mExpires.toUTC().toString(Qt::ISODate)));
    return StatusDone;
}

} // namespace tarn::vkpublish
