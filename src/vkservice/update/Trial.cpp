#include "update/Trial.h"

#include "internal/PlainText.h"
#include "os/FileTools.h"
#include "update/Reporter.h"
#include "update/RunRecords.h"
#include "update/RunRequest.h"
#include "update/Workplace.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

using packages::InstalledPackage;
using packages::Manifest;
using packages::Refusal;
using packages::Refusals;
using packages::TrialRecord;

namespace {

QSet<QString> namesOf(const QList<InstalledPackage>& pPackages)
{
    QSet<QString> tNames;
    for (const InstalledPackage& tPackage : pPackages) {
        tNames.insert(tPackage.mInfo.mName);
    }
    return tNames;
}

// The first refusal of one of the packages.
const Refusal* refusalOf(const Refusals& pRefusals, const QList<InstalledPackage>& pPackages)
{
    for (const InstalledPackage& tPackage : pPackages) {
        if (const Refusal* tRefusal = pRefusals.find(tPackage.mHash)) {
            return tRefusal;
        }
    }
    return nullptr;
}

} // namespace

Trial::Trial(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::CheckRunner& pRunner,
             Workplace& pWorkplace, Reporter& pReporter, const os::AbortFlag& pAbort)
    : mRequest(pRequest), mFileSystem(pFileSystem), mWorkplace(pWorkplace), mReporter(pReporter),
      mAbort(pAbort), mChecks(pRequest, pWorkplace.folders(), pRunner, pReporter)
{
}

void Trial::warn(const QString& pText)
{
    if (!pText.isEmpty()) {
        mReporter.notify(MessageWarning, pText);
    }
}

QList<InstalledPackage> Trial::changed() const
{
    return changedPackages(mBack, mWorkplace.installed());
}

Failure Trial::read()
{
    const auto tRecord = TrialRecord::load(mFileSystem, mRequest.mStateDir);
    if (!tRecord && tRecord.failure().mKind != Failure::Kind::Content) {
        return tRecord.failure();
    }
    if (!tRecord) {
        warn(tRecord.failure().mText + u'.');
        close();
    }
    mRecord = tRecord.valueOr({});
    mBack = {};
    const Failure tFailure =
        mRecord.mBack > 0 ? mWorkplace.generations().reader().manifest(mRecord.mBack, &mBack) : Failure();
    return tFailure.mKind == Failure::Kind::Content ? Failure() : tFailure; // undo() tells of a damaged one
}

Failure Trial::resume(bool pMayCheck)
{
    if (const Failure tFailure = read(); tFailure || !isOpen()) {
        return tFailure;
    }
    if (!mRecord.isOf(mWorkplace.installed())) {
        if (!finishWayBack()) {
            close();
        }
        mRecord = {};
        return {};
    }
    const auto tRefusals = Refusals::load(mFileSystem, mRequest.mStateDir);
    const Refusal* tRefusal = tRefusals ? refusalOf(*tRefusals, changed()) : nullptr;
    if (!mRecord.mVerdict.isEmpty()) {
        return goBackByHand();
    }
    if (tRefusal != nullptr) {
        return fail(tRefusal->mReason, {});
    }
    if (mRecord.mAttempts >= TrialRecord::sMaxAttempts) {
        return fail(
            u"Its checks were begun %1 times and did not come to their end"_s.arg(TrialRecord::sMaxAttempts),
            namesOf(changed()));
    }
    if (!pMayCheck) {
        return {};
    }
    ++mRecord.mAttempts;
    if (const Failure tFailure = mRecord.store(mFileSystem, mRequest.mStateDir)) {
        return tFailure;
    }
    mChecks.find(mWorkplace.installed(), changed());
    return prove();
}

Failure Trial::announce(const Manifest& pNext)
{
    mBack = mWorkplace.installed();
    mChecks.find(pNext, changedPackages(mBack, pNext));
    if (mChecks.isEmpty()) {
        return {};
    }
    mRecord = {.mGeneration = pNext.mGeneration,
               .mRun = pNext.mRunId,
               .mBack = mBack.mGeneration,
               .mAttempts = 1,
               .mVerdict = {}};
    return mRecord.store(mFileSystem, mRequest.mStateDir);
}

void Trial::forget()
{
    if (isOpen()) {
        close();
    }
}

Failure Trial::prove()
{
    if (!isOpen()) {
        return {};
    }
    const ReleaseChecks::Verdict tVerdict = mChecks.run(mAbort);
    if (tVerdict.mPassed) {
        close();
        return {};
    }
    if (!tVerdict.mIsAborted) {
        return fail(tVerdict.mReason, tVerdict.mRefused);
    }
    mRefusals = {};
    const Failure tFailure = goBack();
    return tFailure ? tFailure : Failure::canceled();
}

Failure Trial::rollBack(qint64 pTo)
{
    Manifest tTarget;
    const Manifest& tCurrent = mWorkplace.installed();
    packages::GenerationReader& tReader = mWorkplace.generations().reader();
    if (!tReader.before(tCurrent).contains(pTo) || tReader.sound(pTo, &tTarget)) {
        return Failure::content(u"The generation %1 is not there to go back to"_s.arg(pTo));
    }
    if (const auto tRefusals = knownRefusals(); !tRefusals) {
        return tRefusals.failure();
    }
    mBack = tTarget;
    mRecord = {.mGeneration = tCurrent.mGeneration,
               .mRun = tCurrent.mRunId,
               .mBack = pTo,
               .mAttempts = TrialRecord::sMaxAttempts,
               .mVerdict = u"An administrator went back to the generation %1"_s.arg(pTo)};
    if (const Failure tFailure = mRecord.store(mFileSystem, mRequest.mStateDir)) {
        return tFailure;
    }
    return goBackByHand();
}

// mRecord is about what the administrator wants.
Failure Trial::goBackByHand()
{
    const TrialRecord tWanted = mRecord;
    if (const Failure tFailure = undo(tWanted.mVerdict, namesOf(changed()))) {
        return tFailure;
    }
    mReporter.notify(MessageInformation,
                     u"The packages of the generation %1 are in use again."_s.arg(tWanted.mBack),
                     tWanted.mVerdict + u'.');
    return {};
}

Failure Trial::fail(const QString& pReason, const QSet<QString>& pRefused)
{
    const QString tReason = vkcore::singleLine(pReason, vkcore::sMaxMessage);
    const qint64 tFailed = mRecord.mGeneration;
    if (const Failure tFailure = undo(tReason, pRefused)) {
        return tFailure;
    }
    mReporter.error(
        u"The generation %1 has failed, and the previous packages are in use again."_s.arg(tFailed),
        tReason + u'.');
    return mWhyBack = {Failure::Kind::CheckFailed, tReason};
}

// Puts the generation out of use that mRecord is about.
Failure Trial::undo(const QString& pReason, const QSet<QString>& pRefused)
{
    Manifest tBack;
    const Failure tUnread =
        mRecord.mBack > 0 ? mWorkplace.generations().reader().manifest(mRecord.mBack, &tBack) : Failure();
    if (tUnread) {
        if (tUnread.mKind == Failure::Kind::Content) {
            close(); // another try would not find it either, and what remains must not be refused
        }
        return {Failure::Kind::Io,
                u"%1. The previous packages can't be put in use again: %2"_s.arg(pReason, tUnread.mText)};
    }
    if (const Failure tFailure = refuse(pReason, pRefused)) {
        // A machine that keeps a bad generation is worse than one that tries it again with the next run.
        warn(u"The refused packages can't be recorded. %1."_s.arg(tFailure.mText));
    }
    if (const Failure tFailure = goBack()) {
        return {tFailure.mKind, u"%1. The previous packages could not be put in use again: %2"_s.arg(
                                    pReason, tFailure.mText)};
    }
    return {};
}

Failure Trial::refuse(const QString& pReason, const QSet<QString>& pRefused)
{
    const auto tKnown = knownRefusals();
    mRefusals = tKnown.valueOr({});
    for (const InstalledPackage& tPackage : changed()) {
        if (pRefused.contains(tPackage.mInfo.mName)) {
            mRefusals.add({.mName = tPackage.mInfo.mName,
                           .mVersion = tPackage.mInfo.mVersion.version().toString(),
                           .mHash = tPackage.mHash,
                           .mReason = pReason,
                           .mDate = QDateTime::currentDateTimeUtc()});
        }
    }
    for (const InstalledPackage& tPackage : std::as_const(mBack.mPackages)) {
        (void)mRefusals.lift(tPackage.mHash);
    }
    return tKnown ? mRefusals.store(mFileSystem, mRequest.mStateDir) : tKnown.failure();
}

Result<Refusals> Trial::knownRefusals()
{
    QString tWarning;
    const auto tRefusals = Refusals::loadOrSetAside(mFileSystem, mRequest.mStateDir, &tWarning);
    if (!tWarning.isEmpty()) {
        mReporter.error(tWarning + u'.', {});
    }
    return tRefusals;
}

Failure Trial::goBack()
{
    const Manifest tRun = mWorkplace.installed();
    if (const Failure tFailure = mWorkplace.generations().switchBack(mRecord.mBack)) {
        return tFailure.as(Failure::Kind::Io);
    }
    mWorkplace.setInstalled(mBack);
    logWayBack(tRun, mRefusals, mBack);
    if (!makeBackLast()) {
        close();
    }
    return {};
}

// Only when no power cut can bring the failed generation back.
Failure Trial::makeBackLast()
{
    const Failure tFailure = os::syncDir(mFileSystem, mWorkplace.folders().installDir());
    if (!tFailure) {
        mWorkplace.generations().retireAbove(mRecord.mBack);
    }
    return tFailure;
}

// Nothing to log if nothing was refused: such a run was aborted and has changed nothing.
void Trial::logWayBack(const Manifest& pRun, const Refusals& pRefusals, const Manifest& pBack)
{
    const QList<InstalledPackage> tChanged = changedPackages(pBack, pRun);
    mRefused.clear();
    for (const InstalledPackage& tPackage : tChanged) {
        if (const Refusal* tRefusal = pRefusals.find(tPackage.mHash)) {
            const InstalledPackage* tBack = pBack.find(tPackage.mInfo.mName);
            mRefused.append(*tRefusal);
            mRefused.last().mIsFix =
                tBack != nullptr && tPackage.mInfo.mRelease.isFixFor(tBack->mInfo.mVersion.version());
        }
    }
    if (mRefused.isEmpty()) {
        return;
    }
    Manifest tLogged;
    tLogged.mRunId = pRun.mRunId + u"-back"_s;
    tLogged.mRunDate = mRefused.first().mDate.toLocalTime();
    tLogged.mRecords = recordsOfWayBack(pRun, tChanged, pRefusals);
    QString tWarning;
    const Failure tFailure = mWorkplace.logRun(tLogged, &tWarning);
    warn(tWarning);
    warn(tFailure.mText);
}

// For a run that was cut short behind the switch back.
Failure Trial::finishWayBack()
{
    Manifest tRun;
    const bool tIsBack = mWorkplace.installed().mGeneration == mRecord.mBack;
    if (!tIsBack || mWorkplace.generations().reader().manifest(mRecord.mGeneration, &tRun) ||
        !mRecord.isOf(tRun)) {
        return {}; // the switch to it never came
    }
    const auto tRefusals = Refusals::load(mFileSystem, mRequest.mStateDir);
    logWayBack(tRun, tRefusals.valueOr({}), mBack);
    if (mRecord.mVerdict.isEmpty() && !mRefused.isEmpty()) {
        mWhyBack = {Failure::Kind::CheckFailed, mRefused.first().mReason};
    }
    return makeBackLast();
}

void Trial::close()
{
    mRecord = {};
    const Failure tFailure = TrialRecord::remove(mFileSystem, mRequest.mStateDir);
    warn(tFailure.mText);
}

} // namespace tarn::vkservice::update
