#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/Json.h"
#include "keys/SigningTime.h"
#include "network/MetadataSource.h"
#include "publication/CatchUp.h"
#include "publication/ClockCheck.h"
#include "publication/Layout.h"
#include "publication/NewDeltas.h"
#include "publication/Publication.h"
#include "publication/Releases.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sRootWarningDays = 90;
constexpr qint64 sSecondsPerDay = 24 * 60 * 60;

std::optional<PublicationTimes> readTimes(const CommandLine& pLine)
{
    const std::optional<int> tDays = pLine.number("expires-days", 1, 3650);
    const std::optional<int> tTargetsDays = pLine.number("targets-days", 1, 3650);
    if (!tDays || !tTargetsDays) {
        return std::nullopt;
    }
    PublicationTimes tTimes;
    tTimes.mNow = signingTime();
    tTimes.mExpires = tTimes.mNow.addDays(*tDays);
    tTimes.mTargetsExpires = tTimes.mNow.addDays(*tTargetsDays);
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
    pLine->addOption(u"targets-days"_s, u"How long the list of packages is valid, in days"_s, u"DAYS"_s,
                     u"365"_s);
    pLine->addOption(u"deltas"_s,
                     u"From how many versions before to make deltas to each new package, 0 to 16"_s, u"N"_s,
                     u"2"_s);
    pLine->addOption(u"phase-days"_s,
                     u"Over how many days what is new reaches the machines that update by schedule; 0 ends "
                     "all phases"_s,
                     u"N"_s);
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
    int mDeltas = 0; // to each new package, at most
    std::optional<int> mPhaseDays;
    std::unique_ptr<tuf::Fetcher> mAbove;
};

bool readJob(const CommandLine& pLine, Job* pTo)
{
    const std::optional<PublicationTimes> tTimes = readTimes(pLine);
    const std::optional<int> tPruneDays = pLine.number("prune-days", 0, 3650);
    const std::optional<int> tDeltas = pLine.number("deltas", 0, 16);
    if (!tTimes || !tPruneDays || !tDeltas) {
        return false;
    }
    if (pLine.isSet("phase-days")) {
        pTo->mPhaseDays = pLine.number("phase-days", 0, 365);
        if (!pTo->mPhaseDays) {
            return false;
        }
    }
    pTo->mDeltas = *tDeltas;
    pTo->mTimes = *tTimes;
    pTo->mGrace = *tPruneDays * sSecondsPerDay;
    return !pLine.isSet("above") || pLine.openPlace("above", &pTo->mAbove);
}

Failure publish(const CommandLine& pLine, const Job& pJob, KeyFolder* pKeys)
{
    os::FileSystem& tFileSystem = os::realFileSystem();
    Publication tPublication(tFileSystem, pLine.repository(), *pKeys);
    bool tRaised = false;
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
        if (Failure tFailure = takeOver(tFileSystem, *pJob.mAbove, pLine.repository(), pKeys, &tRaised)) {
            return tFailure;
        }
    }
    const Result<std::optional<Draft>> tDraft = pKeys->draft(tuf::sTargets);
    if (!tDraft) {
        return tDraft.failure();
    }
    // A draft has the deltas already that were made for it.
    if (!*tDraft) {
        NewDeltas tDeltas(tFileSystem, pLine.repository(), *pKeys);
        if (Failure tFailure = tDeltas.make(pJob.mDeltas)) {
            return tFailure;
        }
    }
    // Without the option, what an interrupted publication has set stays: machines may have seen it.
    if (pJob.mPhaseDays) {
        setPhases(&pKeys->mRecord, pJob.mTimes.mNow, *pJob.mPhaseDays);
    }
    if (Failure tFailure = tPublication.run(pJob.mTimes)) {
        return tFailure;
    }
    if (tRaised || tPublication.hasRaised()) {
        complain(u"Warning: the record is older than the published repository, and continued above "
                 "its versions. Repeat what was added or removed since; see "
                 "\"vkpublish list\""_s);
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
