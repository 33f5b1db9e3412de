#pragma once

#include "os/CheckRunner.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"

#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <functional>

namespace tarn::vkservice::update {

class Reporter;
struct RunRequest;

// The packages of pNew whose bytes pOld does not have. A repaired package is not among them.
QList<packages::InstalledPackage> changedPackages(const packages::Manifest& pOld,
                                                  const packages::Manifest& pNew);

// Those of pChanged that belong together with a package: what requires it, what it requires, and so on.
QSet<QString> relatedPackages(const QList<packages::InstalledPackage>& pChanged, const QString& pName);

// "viewer 2.0.0.0".
QString packageLabel(const packages::InstalledPackage& pPackage);

// The programs that prove a new generation: those of its changed packages, then the administrator's.
class ReleaseChecks
{
public:
    struct Verdict
    {
        bool mPassed = true;
        bool mIsAborted = false;
        QString mReason;        // a sentence without its full stop
        QSet<QString> mRefused; // the packages that have failed with the check
    };

    ReleaseChecks(const RunRequest& pRequest, const packages::PackageFolders& pFolders,
                  os::CheckRunner& pRunner, Reporter& pReporter);

    // Reports what can't be run.
    void find(const packages::Manifest& pNew, const QList<packages::InstalledPackage>& pChanged);
    bool isEmpty() const { return mChecks.isEmpty(); }
    // One after the other, until one has failed.
    Verdict run(const os::AbortFlag& pAbort);

private:
    struct Check
    {
        QString mLabel;
        QString mPackage; // empty: the administrator's
        os::CheckProgram mProgram;
    };

    void addOfPackage(const packages::Manifest& pNew, const packages::InstalledPackage& pPackage);
    void addOfAdministrator(const packages::Manifest& pNew);
    QSet<QString> failedWith(const Check& pCheck) const;
    void report(const Check& pCheck, const os::CheckOutcome& pOutcome);

    const RunRequest& mRequest;
    const packages::PackageFolders& mFolders;
    os::CheckRunner& mRunner;
    Reporter& mReporter;
    QList<packages::InstalledPackage> mChanged;
    QList<Check> mChecks;
};

} // namespace tarn::vkservice::update
