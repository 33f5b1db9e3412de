#include "control/ReleaseControl.h"

#include "control/InstallFolders.h"
#include "control/StoreCare.h"
#include "control/UpdateControl.h"
#include "internal/PlainText.h"
#include "packages/GenerationReader.h"
#include "packages/Refusals.h"
#include "packages/TrialRecord.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore::protocol;
using packages::Manifest;
using packages::Refusals;
using process::LogLevel;

namespace {

GenerationEntry entryOf(const Manifest& pManifest)
{
    GenerationEntry tEntry;
    tEntry.mGeneration = pManifest.mGeneration;
    tEntry.mDate = pManifest.mRunDate;
    for (const packages::InstalledPackage& tPackage : pManifest.mPackages) {
        tEntry.mPackages.append({tPackage.mInfo.mName, tPackage.mInfo.mVersion.version().toString()});
    }
    return tEntry;
}

} // namespace

Result<GenerationEntries> ReleaseControl::generations() const
{
    const auto tFolders = installFolders(mParts.mSettings, mParts.mVariables, mParts.mStore);
    if (!tFolders) {
        return tFolders.failure();
    }
    packages::GenerationReader tReader(
        mFileSystem, *tFolders, static_cast<int>(mParts.mVariables.number(u"update.keepGenerations"_s)));
    Manifest tCurrent;
    if (const Failure tFailure = tReader.current(&tCurrent)) {
        return tFailure;
    }
    GenerationEntries tEntries;
    if (tCurrent.mGeneration == 0) {
        return tEntries;
    }
    const auto tTrial = packages::TrialRecord::load(mFileSystem, mParts.mApp.getStateDir());
    tEntries.mGenerations.append(entryOf(tCurrent));
    tEntries.mGenerations.last().mCurrent = true;
    tEntries.mGenerations.last().mOnTrial = tTrial && tTrial->isOf(tCurrent);
    for (const qint64 tNumber : tReader.before(tCurrent)) {
        Manifest tBefore;
        if (!tReader.sound(tNumber, &tBefore)) {
            tEntries.mGenerations.append(entryOf(tBefore));
        }
    }
    return tEntries;
}

Failure ReleaseControl::rollBack(qint64 pGeneration)
{
    const auto tGenerations = generations();
    if (!tGenerations) {
        return tGenerations.failure();
    }
    if (pGeneration == 0 && tGenerations->mGenerations.size() < 2) {
        return Failure::content(u"There is no generation to go back to"_s);
    }
    const qint64 tTo = pGeneration == 0 ? tGenerations->mGenerations[1].mGeneration : pGeneration;
    const Failure tFailure = mParts.mUpdates.rollBack(tTo);
    mParts.mApp.write(tFailure ? LogLevel::Warning : LogLevel::Notice,
                      tFailure
                          ? u"The way back to the generation %1 failed: %2."_s.arg(tTo).arg(tFailure.mText)
                          : u"An administrator went back to the generation %1."_s.arg(tTo));
    return tFailure;
}

Result<RefusalEntries> ReleaseControl::refusals() const
{
    const auto tRefusals = Refusals::load(mFileSystem, mParts.mApp.getStateDir());
    if (!tRefusals) {
        return tRefusals.failure();
    }
    RefusalEntries tEntries;
    for (const packages::Refusal& tRefusal : tRefusals->all()) {
        tEntries.mRefused.append({tRefusal.mName, tRefusal.mVersion,
                                  QString::fromLatin1(tRefusal.mHash.toHex()), tRefusal.mReason,
                                  tRefusal.mDate.toLocalTime()});
    }
    return tEntries;
}

Failure ReleaseControl::accept(const QString& pPackage)
{
    QString tWarning;
    auto tRefusals = Refusals::loadOrSetAside(mFileSystem, mParts.mApp.getStateDir(), &tWarning);
    if (!tRefusals) {
        return tRefusals.failure();
    }
    if (!tWarning.isEmpty()) {
        mParts.mApp.write(LogLevel::Error, tWarning + u'.');
    }
    if (tRefusals->lift(pPackage) == 0) {
        return Failure::content(
            u"No version of the package %1 is refused"_s.arg(vkcore::singleLine(pPackage)));
    }
    const Failure tFailure = tRefusals->store(mFileSystem, mParts.mApp.getStateDir());
    if (!tFailure) {
        mParts.mUpdates.noteAccepted(pPackage);
        mParts.mApp.write(LogLevel::Notice,
                          u"An administrator accepts the package %1 again."_s.arg(pPackage));
    }
    return tFailure;
}

} // namespace tarn::vkservice::control
