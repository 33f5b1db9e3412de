#pragma once

#include "packages/CheckRecord.h"

#include <QtCore/QSet>
#include <QtCore/QString>

namespace tarn::vkservice::verify {

// All inputs of a verification.
struct VerifyRequest
{
    QString mStateDir; // with the indexes
    QString mInstallDir;
    QString mDataDir;    // empty: as mInstallDir
    QSet<QString> mDone; // folders, in manifest form, that need no check any more
};

struct VerifyProgress
{
    QString mPackage; // the name of the one that is being read
    qint64 mBytesDone = 0;
    qint64 mBytesTotal = 0; // of all packages, like mBytesDone also of those that were done before
};

struct VerifyOutcome
{
    bool mIsComplete = false; // false without a failure: it was aborted
    QStringList mFolders;     // of all installed packages
    Failure mFailure;
};

} // namespace tarn::vkservice::verify
