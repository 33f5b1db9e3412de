#include "update/run/RunParts.h"

#include "update/MachineState.h"
#include "update/Reporter.h"

namespace tarn::vkservice::update {

RunParts::RunParts(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
                   Reporter& pReporter, const os::AbortFlag& pAbort, os::CheckRunner& pChecks)
    : mRequest(pRequest), mFileSystem(pFileSystem), mProcesses(pProcesses), mReporter(pReporter),
      mAbort(pAbort), mWorkplace(pFileSystem, pProcesses, pRequest),
      mDownloads(pFileSystem, pRequest.mStateDir, pReporter, pAbort),
      mIndexes(pFileSystem, pRequest.mStateDir),
      mPrepared({mFileSystem, mWorkplace, mIndexes, mReporter, mAbort}),
      mTrial(pRequest, pFileSystem, pChecks, mWorkplace, pReporter, pAbort)
{
}

void RunParts::warn(const QString& pText)
{
    if (!pText.isEmpty()) {
        mReporter.notify(MessageWarning, pText);
    }
}

Failure RunParts::updateInstallLog()
{
    QString tWarning;
    Failure tFailure = mWorkplace.updateInstallLog(&tWarning);
    warn(tWarning);
    warn(tFailure.mText);
    return tFailure;
}

void RunParts::findLostIndexes()
{
    mLostIndexes.clear();
    for (const packages::InstalledPackage& tPackage : mWorkplace.installed().mPackages) {
        if (tPackage.mInfo.mIndex && !mIndexes.has(tPackage.mInfo.mIndex->mText)) {
            mLostIndexes.append(tPackage);
        }
    }
}

void RunParts::forgetOldIndexes()
{
    packages::GenerationReader& tReader = mWorkplace.generations().reader();
    QList<packages::InstalledPackage> tPackages = mWorkplace.installed().mPackages;
    for (const qint64 tNumber : tReader.before(mWorkplace.installed())) {
        packages::Manifest tBefore;
        (void)tReader.manifest(tNumber, &tBefore); // then it has none
        tPackages += tBefore.mPackages;
    }
    QSet<QByteArray> tTexts;
    for (const auto& tPackage : std::as_const(tPackages)) {
        if (tPackage.mInfo.mIndex) {
            tTexts.insert(tPackage.mInfo.mIndex->mText.mHash.toHex());
        }
    }
    mIndexes.keepOnly(tTexts);
}

QByteArray RunParts::machineState() const
{
    return update::machineState(mRequest, mWorkplace, mLostIndexes);
}

} // namespace tarn::vkservice::update
