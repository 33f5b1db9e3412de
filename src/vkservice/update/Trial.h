#pragma once

#include "internal/Failure.h"
#include "packages/Refusals.h"
#include "packages/TrialRecord.h"
#include "update/ReleaseChecks.h"

namespace tarn::os {
class AbortFlag;
class FileSystem;
} // namespace tarn::os

namespace tarn::vkservice::update {

class Reporter;
class Workplace;
struct RunRequest;

// A new generation that has checks is on trial until they have passed; else the one before it counts again,
// and the packages that have failed are refused. What is decided is on the disk before it is done, so that a
// kill at any moment only delays it.
class Trial
{
public:
    // The workplace is open when the methods are called.
    Trial(const RunRequest& pRequest, os::FileSystem& pFileSystem, os::CheckRunner& pRunner,
          Workplace& pWorkplace, Reporter& pReporter, const os::AbortFlag& pAbort);

    // Brings the trial that an earlier run has left to its end. Kind::CheckFailed if the previous generation
    // counts again. Without pMayCheck no check is run, and isOpen() may be true afterwards.
    Failure resume(bool pMayCheck);
    // The generation in use has not proven itself yet.
    bool isOpen() const { return mRecord.mGeneration > 0; }

    // To be called before the switch to pNext: remembers on the disk that it is on trial, if it has checks.
    Failure announce(const packages::Manifest& pNext);
    // After the switch. A failure, and the previous generation counts again, if a check does not pass or the
    // run is aborted.
    Failure prove();
    // The switch has failed.
    void forget();

    // Makes an earlier generation, whatever its checks say, the current one; the packages of the current one
    // that it has not are refused, and its own are not any more.
    Failure rollBack(qint64 pTo);

    // The packages that the way back has put out of use for good.
    const QList<packages::Refusal>& refused() const { return mRefused; }
    // Why the previous generation counts again; none if it does not, or if an administrator or an abort
    // wanted it.
    const Failure& whyBack() const { return mWhyBack; }

private:
    QList<packages::InstalledPackage> changed() const;
    Failure read();
    // Each puts the previous generation in use again, and refuses some of the packages that it has not.
    Failure goBackByHand();
    Failure fail(const QString& pReason, const QSet<QString>& pRefused);
    Failure undo(const QString& pReason, const QSet<QString>& pRefused);
    Failure refuse(const QString& pReason, const QSet<QString>& pRefused);
    Result<packages::Refusals> knownRefusals();
    Failure goBack();
    void logWayBack(const packages::Manifest& pRun, const packages::Refusals& pRefusals,
                    const packages::Manifest& pBack);
    Failure finishWayBack();
    Failure makeBackLast();
    void close();
    void warn(const QString& pText);

    const RunRequest& mRequest;
    os::FileSystem& mFileSystem;
    Workplace& mWorkplace;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
    ReleaseChecks mChecks;
    packages::TrialRecord mRecord;
    packages::Refusals mRefusals; // for the log, also if they could not be stored
    QList<packages::Refusal> mRefused;
    Failure mWhyBack;
    packages::Manifest mBack; // of the generation to go back to; empty if that is none
};

} // namespace tarn::vkservice::update
