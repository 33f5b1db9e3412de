#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/Json.h"
#include "commands/ListOptions.h"
#include "keys/SigningTime.h"
#include "network/MetadataSource.h"
#include "publication/ClockCheck.h"
#include "publication/Layout.h"
#include "publication/Publication.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sRootWarningDays = 90;
constexpr qint64 sSecondsPerDay = 24 * 60 * 60;

std::optional<PublicationTimes> readTimes(const CommandLine& pLine, int pTargetsDays)
{
    const std::optional<int> tDays = pLine.number("expires-days", 1, 3650);
    if (!tDays) {
        return std::nullopt;
    }
    PublicationTimes tTimes;
    tTimes.mNow = signingTime();
    tTimes.mExpires = tTimes.mNow.addDays(*tDays);
    tTimes.mTargetsExpires = tTimes.mNow.addDays(pTargetsDays);
    if (pLine.isSet("expires")) {
        const std::optional<QDateTime> tDate = pLine.date("expires");
        if (!tDate) {
            return std::nullopt;
        }
        tTimes.mExpires = *tDate;
    } else if (tTimes.mExpires <= QDateTime::currentDateTimeUtc()) {
        complain(
            u"By the time in SOURCE_DATE_EPOCH, what is signed now has expired: unset it, or use --expires"_s);
        return std::nullopt;
    }
    return tTimes;
}

void warn(const PublicationTimes& pTimes, const QByteArray& pRoot)
{
    if (pTimes.mExpires <= QDateTime::currentDateTimeUtc()) {
        complain(u"Warning: the signed files have already expired, and clients will refuse them"_s);
    }
    tuf::Root tRoot;
    if (!tuf::parseRoot(pRoot, &tRoot) && pTimes.mNow.daysTo(tRoot.mExpires) < sRootWarningDays) {
        complain(u"Warning: the root expires on %1; renew it with \"vkpublish rotate-key DIR root\""_s.arg(
            tRoot.mExpires.toString(Qt::ISODate)));
    }
}

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addNoWait();
    pLine->addOption(u"expires-days"_s, u"How long timestamp and snapshot are valid, in days"_s, u"DAYS"_s,
                     u"14"_s);
    pLine->addOption(u"expires"_s, u"The same as a date"_s, u"DATE"_s);
    addListOptions(pLine);
    pLine->addOption(u"prune"_s, u"Then delete files that have been unreferenced for a while"_s);
    pLine->addOption(u"prune-days"_s, u"Minimum time without a reference, in days"_s, u"DAYS"_s, u"1"_s);
    pLine->addOption(u"above"_s,
                     u"Continue above the versions of the repository in that folder or at that "
                     "https address, after the record was restored from a backup"_s,
                     u"PLACE"_s);
    pLine->addOption(u"ca-file"_s, u"CA certificates to trust for that address"_s, u"FILE"_s);
    pLine->addTrustClock();
    pLine->addJson();
}

struct Job
{
    PublicationTimes mTimes;
    qint64 mGrace = 0;
    ListOptions mList;
    std::unique_ptr<tuf::Fetcher> mAbove;
};

bool readJob(const CommandLine& pLine, Job* pTo)
{
    const std::optional<int> tPruneDays = pLine.number("prune-days", 0, 3650);
    if (!tPruneDays || !readListOptions(pLine, &pTo->mList)) {
        return false;
    }
    const std::optional<PublicationTimes> tTimes = readTimes(pLine, pTo->mList.mDays);
    if (!tTimes) {
        return false;
    }
    pTo->mTimes = *tTimes;
    pTo->mGrace = *tPruneDays * sSecondsPerDay;
    return !pLine.isSet("above") || pLine.openPlace("above", &pTo->mAbove);
}

Failure publish(const CommandLine& pLine, const Job& pJob, KeyFolder* pKeys)
{
    Publication tPublication(os::realFileSystem(), pLine.repository(), *pKeys);
    if (Failure tFailure = pKeys->open()) {
        return tFailure;
    }
    if (pLine.isSet("trust-clock")) {
        pKeys->mRecord.mSignedAt = QDateTime();
    }
    if (Failure tFailure = checkClock(pKeys->mRecord, QDateTime::currentDateTimeUtc())) {
        return tFailure;
    }
    if (pJob.mAbove) {
        if (Failure tFailure = tPublication.takeOver(*pJob.mAbove)) {
            return tFailure;
        }
    }
    const Result<std::optional<Draft>> tDraft = pKeys->draft(tuf::sTargets);
    if (!tDraft) {
        return tDraft.failure();
    }
    // A draft has the deltas already that were made for it.
    if (!*tDraft) {
        if (Failure tFailure = makeDeltas(pLine, pJob.mList, pKeys)) {
            return tFailure;
        }
    }
    setPhases(pJob.mList, pJob.mTimes.mNow, pKeys);
    if (Failure tFailure = tPublication.run(pJob.mTimes)) {
        return tFailure;
    }
    for (const QString& tNote : tPublication.notes()) {
        complain(tNote);
    }
    return pLine.isSet("prune") ? tPublication.prune(pJob.mTimes.mNow, pJob.mGrace) : Failure();
}

} // namespace

int cmdPublish(const QStringList& pArguments)
{
    CommandLine tLine(u"publish"_s,
                      u"Publishes what was added since the last time, and renews the signatures: run it "
                      "before they expire."_s);
    declare(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    Job tJob;
    if (!readJob(tLine, &tJob)) {
        return StatusUsage;
    }
    KeyFolder tKeys(os::realFileSystem(), tLine.keys(), tLine.patience());
    if (const Failure tFailure = publish(tLine, tJob, &tKeys)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    warn(tJob.mTimes, tKeys.mRecord.mRoot);
    const qsizetype tCount = tKeys.mRecord.mTargets.size();
    if (tLine.isSet("json")) {
        RepositoryState tState;
        FolderFetcher tFolder(os::realFileSystem(), metadataFolder(tLine.repository()));
        QJsonObject tObject{{u"packages"_s, tCount}};
        (void)readWithTargets(tFolder, tKeys.mRecord.mRoot, &tState); // it was written just now
        addValidity(tState, QDateTime::currentDateTimeUtc(), &tObject);
        sayJson(tObject);
        return StatusDone;
    }
    say(u"Published %1, valid until %2"_s.arg(tCount == 1 ? u"1 package"_s : u"%1 packages"_s.arg(tCount))
            .arg(tJob.mTimes.mExpires.toUTC().toString(Qt::ISODate)));
    return StatusDone;
}

} // namespace tarn::vkpublish
