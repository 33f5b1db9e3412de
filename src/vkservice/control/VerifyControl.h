#pragma once

#include "internal/PackageValues.h"
#include "packages/CheckRecord.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "verify/VerifyThread.h"

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QSet>
#include <QtCore/QTimer>

namespace tarn::vkservice::store {
class ConfigVariables;
class Settings;
} // namespace tarn::vkservice::store
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

class StoreCare;
class UpdateControl;

// The verifications of the installed files: on request and by the clock, never beside an update, which they
// give way to. Keeps the record of what they found.
class VerifyControl : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        packages::CheckRecordFile& mRecord;
        const store::Settings& mSettings;
        const store::ConfigVariables& mVariables;
        UpdateControl& mUpdates;
        StoreCare& mStore;
        process::ServiceApplication& mApp;
    };

    VerifyControl(os::FileSystem& pFileSystem, const Parts& pParts);

    // Reads the record. To be called before the first update.
    void load();
    // Joins a verification in progress.
    Failure start();
    // False if none is in progress. What it has found so far is kept.
    bool stop();
    // As stop, and from now on none is started.
    void shutDown();
    // False as soon as nothing reads files any more; idle() is emitted at that moment.
    bool isReading() const { return mThread.isRunning(); }
    // To be called about once a minute by a service that keeps the machine's schedule.
    void tick();
    // To be called when packages may have been replaced.
    void onPackagesChanged();

    vkcore::protocol::VerificationState state() const;
    // The installed packages.
    Result<vkcore::protocol::PackageEntries> packages() const;
    // The checks of those packages that are damaged now.
    QList<packages::PackageCheck> damaged() const;

Q_SIGNALS:
    // state() has changed; at most once a second while files are read.
    void changed();
    // A package is damaged that was not known to be.
    void damageFound(const QString& pText, const QString& pDetails, const QString& pPackage);
    // A verification has ended, or was stopped.
    void ended();
    void idle();

private:
    Result<packages::Manifest> installed() const;
    QSet<QString> doneFolders() const;
    bool isContinuable() const;
    void begin(bool pContinue);
    void proceed();
    void onPackage(const packages::PackageCheck& pCheck);
    void onFinished(const verify::VerifyOutcome& pOutcome);
    void conclude(const QStringList& pFolders);
    void finish(const QString& pFailure);
    void store();

    Parts mParts;
    os::FileSystem& mFileSystem;
    verify::VerifyThread mThread;
    QTimer mProgress;
    QDateTime mNotBefore;  // the start of the service, or a day after a failure
    QDateTime mStored;     // when the record was written last
    bool mRunning = false; // a verification is in progress, even while it waits
    bool mShutDown = false;
    QString mFailure;
};

} // namespace tarn::vkservice::control
