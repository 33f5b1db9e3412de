#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/DraftReport.h"
#include "commands/ListOptions.h"
#include "commands/OutputFile.h"
#include "keys/KeyFolder.h"
#include "keys/SigningTime.h"
#include "publication/Drafts.h"
#include "publication/Publication.h"

#include "internal/StandardOutput.h"
#include "os/FileSystem.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

struct Job
{
    QString mRole;
    QDateTime mNow;
    QDateTime mExpires;
    ListOptions mList;
};

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addNoWait();
    pLine->addArgument(u"ROLE"_s, u"root or targets"_s);
    pLine->addOption(u"output"_s, u"Where to write the bytes; by default standard output"_s, u"FILE"_s);
    pLine->addOption(u"renew"_s, u"Make a new draft; signatures of the one before are void"_s);
    pLine->addOption(u"discard"_s, u"Only give the draft up"_s);
    pLine->addOption(u"root-days"_s, u"How long a new draft of the root is valid, in days"_s, u"DAYS"_s,
                     u"3650"_s);
    addListOptions(pLine);
}

bool readJob(const CommandLine& pLine, Job* pTo)
{
    pTo->mRole = pLine.argument(1);
    if (!isDraftRole(pTo->mRole)) {
        return false;
    }
    const std::optional<int> tRootDays = pLine.number("root-days", 1, 36500);
    if (!tRootDays || !readListOptions(pLine, &pTo->mList)) {
        return false;
    }
    pTo->mNow = signingTime();
    pTo->mExpires = pTo->mNow.addDays(pTo->mRole == tuf::sRoot ? *tRootDays : pTo->mList.mDays);
    return true;
}

Failure makeTargetsDraft(const CommandLine& pLine, const Job& pJob, KeyFolder* pKeys)
{
    if (Failure tFailure = makeDeltas(pLine, pJob.mList, pKeys)) {
        return tFailure;
    }
    setPhases(pJob.mList, pJob.mNow, pKeys);
    return draftTargets(pKeys, pJob.mExpires);
}

Failure makeRootDraft(const Job& pJob, KeyFolder* pKeys)
{
    const Result<RootDocument> tRoot = nextRoot(*pKeys);
    qsizetype tVoid = 0;
    return tRoot ? draftRoot(pKeys, *tRoot, pJob.mExpires, &tVoid) : tRoot.failure();
}

// The draft to sign: the one that is there, or a new one.
Result<Draft> takeDraft(const CommandLine& pLine, const Job& pJob, KeyFolder* pKeys)
{
    Result<std::optional<Draft>> tDraft = pKeys->draft(pJob.mRole);
    if (!tDraft) {
        return tDraft.failure();
    }
    if (*tDraft && !pLine.isSet("renew")) {
        const Failure tUnfit = checkFit(*pKeys, **tDraft, pKeys->mRecord.mTargets, pJob.mNow);
        return tUnfit ? Result<Draft>(tUnfit) : **tDraft;
    }
    if (Failure tFailure =
            pJob.mRole == tuf::sRoot ? makeRootDraft(pJob, pKeys) : makeTargetsDraft(pLine, pJob, pKeys)) {
        return tFailure;
    }
    tDraft = pKeys->draft(pJob.mRole);
    return tDraft ? Result<Draft>(**tDraft) : tDraft.failure();
}

Failure discard(const Job& pJob, KeyFolder* pKeys)
{
    const Result<std::optional<Draft>> tDraft = pKeys->draft(pJob.mRole);
    if (!tDraft || !*tDraft) {
        return tDraft ? Failure::content(u"There is no draft of the %1"_s.arg(pJob.mRole)) : tDraft.failure();
    }
    return discardDraft(pKeys, pJob.mRole);
}

Failure writePayload(const CommandLine& pLine, const Draft& pDraft)
{
    if (pLine.isSet("output")) {
        return writeOutputFile(pLine.value("output"), pDraft.mPayload);
    }
    vkcore::writeOutput(pDraft.mPayload);
    const int tLost = vkcore::flushOutput();
    return tLost == 0 ? Failure() : Failure::fromErrno(tLost, u"write to standard output"_s);
}

Failure run(const CommandLine& pLine, const Job& pJob, QString* pReport)
{
    os::FileSystem& tFileSystem = os::realFileSystem();
    KeyFolder tKeys(tFileSystem, pLine.keys(), pLine.patience());
    if (Failure tFailure = tKeys.open()) {
        return tFailure;
    }
    if (pLine.isSet("discard")) {
        *pReport = u"The draft of the %1 is given up"_s.arg(pJob.mRole);
        return discard(pJob, &tKeys);
    }
    if (Failure tFailure = Publication(tFileSystem, pLine.repository(), tKeys).catchUp()) {
        return tFailure;
    }
    const Result<Draft> tDraft = takeDraft(pLine, pJob, &tKeys);
    if (!tDraft) {
        return tDraft.failure();
    }
    if (Failure tFailure = writePayload(pLine, *tDraft)) {
        return tFailure;
    }
    const Result<QString> tReport = draftReport(tKeys, *tDraft, pLine);
    *pReport = tReport.valueOr(QString());
    return tReport.failure();
}

} // namespace

int cmdPayload(const QStringList& pArguments)
{
    CommandLine tLine(u"payload"_s,
                      u"Writes the exact bytes to sign of a new root or a new list of packages."_s);
    declare(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    Job tJob;
    if (!readJob(tLine, &tJob)) {
        return StatusUsage;
    }
    QString tReport;
    if (const Failure tFailure = run(tLine, tJob, &tReport)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    // Standard output may be the payload.
    tLine.isSet("output") || tLine.isSet("discard") ? say(tReport) : complain(tReport);
    return StatusDone;
}

} // namespace tarn::vkpublish
