#pragma once

#include "values/ResultCode.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice::mail {

// A package as shown to users.
struct PackageLine
{
    QString mTitle;   // in the service's language, else the package name
    QString mVersion; // "1.2.3 (2024-03-07)"
    QString mStatus;  // as in the install log ("ok", "error", ...); empty in a list of installed packages
    QString mReport;  // may be empty

    bool operator==(const PackageLine&) const = default;
};

// The current state of the machine.
struct MachineStatus
{
    ResultCode mLastResult = ResultNone; // of the last run
    QString mLastResultText;
    QDateTime mLastRun;     // its end; invalid before the first
    QDateTime mLastSuccess; // the end of the last run with success, also one that found nothing new; invalid
                            // if none
    QDateTime mNextCheck;   // invalid if nothing is scheduled
    QList<PackageLine> mInstalled;
};

// The installed packages with damaged files.
struct DamageReport
{
    QStringList mFolders; // identify the packages, also after a restart
    QList<PackageLine> mPackages;
};

// One run of the updater that has ended.
struct RunReport
{
    QString mRunId; // identifies this run, also after a restart
    ResultCode mResult = ResultNone;
    QString mText; // what happened, as text
    QDateTime mEnd;
    QList<PackageLine> mPackages; // those that were installed or failed
};

} // namespace tarn::vkservice::mail
