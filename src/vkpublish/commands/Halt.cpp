#include "commands/Commands.h"

#include "CommandLine.h"
#include "keys/KeyFolder.h"
#include "keys/SigningTime.h"
#include "publication/ClockCheck.h"
#include "publication/Layout.h"
#include "publication/Publication.h"
#include "publication/Releases.h"

#include "os/FileSystem.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addNoWait();
    pLine->addArgument(u"NAME"_s, u"Name of the package"_s);
    pLine->addOptionalArgument(u"VERSION"_s, u"Only this version; by default all"_s);
    pLine->addOption(u"lift"_s, u"Let machines install it again; phases go on where they were stopped"_s);
    pLine->addOption(u"expires-days"_s, u"How long timestamp and snapshot are valid, in days"_s, u"DAYS"_s,
                     u"14"_s);
    pLine->addOption(u"targets-days"_s, u"How long the list of packages is valid, in days"_s, u"DAYS"_s,
                     u"365"_s);
}

struct Job
{
    QString mName;
    std::optional<vkcore::Version> mVersion;
    bool mIsLift = false;
    PublicationTimes mTimes;
};

bool readJob(const CommandLine& pLine, Job* pTo)
{
    pTo->mName = pLine.argument(1);
    pTo->mIsLift = pLine.isSet("lift");
    const QString tVersion = pLine.argument(2);
    if (!tVersion.isNull()) {
        bool tOk = false;
        pTo->mVersion = vkcore::Version::fromString(tVersion, &tOk);
        if (!tOk) {
            complain(u"\"%1\" is not a version"_s.arg(tVersion));
            return false;
        }
    }
    const std::optional<int> tDays = pLine.number("expires-days", 1, 3650);
    const std::optional<int> tTargetsDays = pLine.number("targets-days", 1, 3650);
    if (!tDays || !tTargetsDays) {
        return false;
    }
    const QDateTime tNow = signingTime();
    pTo->mTimes = {tNow, tNow.addDays(*tDays), tNow.addDays(*tTargetsDays)};
    return true;
}

// What was added or removed since the last publication stays for the next one.
Failure halt(const CommandLine& pLine, const Job& pJob, QStringList* pArchives, bool* pIsPublished)
{
    os::FileSystem& tFileSystem = os::realFileSystem();
    KeyFolder tKeys(tFileSystem, pLine.keys(), pLine.patience());
    if (Failure tFailure = tKeys.open()) {
        return tFailure;
    }
    if (Failure tFailure = tKeys.lockRepository(metadataFolder(pLine.repository()))) {
        return tFailure;
    }
    Record& tRecord = tKeys.mRecord;
    if (Failure tFailure = checkClock(tRecord, QDateTime::currentDateTimeUtc())) {
        return tFailure;
    }
    const QStringList tNext = archivesOf(tRecord.mTargets, pJob.mName, pJob.mVersion);
    const QStringList tPublished = archivesOf(tRecord.mPublishedTargets, pJob.mName, pJob.mVersion);
    *pArchives = tNext + tPublished;
    pArchives->removeDuplicates();
    if (pArchives->isEmpty()) {
        return Failure::content(u"Unknown package: %1"_s.arg(pJob.mName));
    }
    const auto tChange = pJob.mIsLift ? &resumed : &halted;
    const TargetList tOffered = tChange(tRecord.mPublishedTargets, tPublished, pJob.mTimes.mNow);
    tRecord.mTargets = tChange(tRecord.mTargets, tNext, pJob.mTimes.mNow);
    // First the record: if this is interrupted, the next publication halts them.
    if (Failure tFailure = tKeys.save()) {
        return tFailure;
    }
    if (tPublished.isEmpty()) {
        return {}; // no machine has seen it
    }
    Publication tPublication(tFileSystem, pLine.repository(), tKeys);
    *pIsPublished = true;
    tPublication.offer(tOffered);
    if (Failure tFailure = tPublication.run(pJob.mTimes)) {
        return tFailure;
    }
    for (const QString& tNote : tPublication.notes()) {
        complain(tNote);
    }
    return {};
}

} // namespace

int cmdHalt(const QStringList& pArguments)
{
    CommandLine tLine(u"halt"_s, u"Publishes at once that no further machine may install a package. Machines "
                                 "that have it keep it."_s);
    declare(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    Job tJob;
    if (!readJob(tLine, &tJob)) {
        return StatusUsage;
    }
    QStringList tArchives;
    bool tIsPublished = false;
    if (const Failure tFailure = halt(tLine, tJob, &tArchives, &tIsPublished)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    for (const QString& tArchive : tArchives) {
        say((tJob.mIsLift ? u"Lifted the halt of %1"_s : u"Halted %1"_s).arg(tArchive));
    }
    say(tIsPublished ? u"Published, valid until %1"_s.arg(tJob.mTimes.mExpires.toUTC().toString(Qt::ISODate))
                     : u"It was not published yet; the next \"publish\" does that"_s);
    return StatusDone;
}

} // namespace tarn::vkpublish
