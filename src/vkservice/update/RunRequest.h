#pragma once

#include "internal/PackageValues.h"
#include "internal/Values.h"
#include "packages/Refusals.h"
#include "update/Choices.h"
#include "update/SwitchTime.h"
#include "values/ResultCode.h"
#include "values/RunRecord.h"

#include <vkcore/NetProxy.h>

#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

#include <functional>
#include <memory>

namespace tarn::vkservice::update {

struct ServerAccess
{
    QString mName; // for messages
    QString mUri;
    QString mUser;
    QString mPassword;
};

// How long a run waits for a server before it retries, or tries the next one.
struct Patience
{
    int mConnectSeconds = 15;
    int mSlowBytesPerSecond = 1000; // slower than this
    int mSlowSeconds = 30;          // for this long is too slow
    int mSmallFileSeconds = 120;    // for a complete metadata file
    int mAttempts = 4;              // for one file, and how often it may restart
    int mFirstPauseMs = 1000;       // before the second attempt; each later pause is three times as long
    int mMetadataSeconds = 600;     // for all metadata files of a server
    int mRatePeriodSeconds = 180;   // over which RunRequest::mLeastBytesPerSecond is an average
};

// All inputs of a run; it does not ask for anything while it runs.
struct RunRequest
{
    QList<ServerAccess> mServers; // in the order to try: the default server first
    QString mWhyNoServer;         // why mServers is empty, if known; a sentence without its full stop
    vkcore::NetProxyMode mProxyMode = vkcore::NetProxyModeOs;
    vkcore::NetProxy mProxy{false, true};
    QString mAppLanguage;
    QString mDataLanguage;
    QString mStateDir;   // folder of the trusted metadata and of unfinished downloads
    QString mInstallDir; // contains packages/, generations/, current
    QString mDataDir;    // packages of the kind data; empty: below mInstallDir
    QString mRootFile;   // first trusted TUF root, installed by the administrator
    int mWaitForAppsSeconds = 600;
    int mParallelDownloads = 2;
    qint64 mBytesPerSecond = 0;         // 0: no limit
    qint64 mLeastBytesPerSecond = 5000; // the run leaves a slower server for the next one; 0: no limit
    QSet<QString> mDamaged;             // folders of damaged packages, in manifest form
    Choices mChoices;                   // which packages it takes
    int mCheckSeconds = 120;            // for each check of a new generation
    QString mCheckDir;                  // the administrator's checks; empty: none
    int mKeepGenerations = 2;           // before the current one
    bool mOnlyTrial = false;            // brings an open trial to its end, and asks no server
    QString mCaFile;                    // empty: the system's certificates
    Patience mPatience;
    OpeningAt mOpeningAt; // none: the run may switch at any time
    // Called before the switch. The machine stays on as long as the result lives.
    std::function<std::shared_ptr<const void>()> mHoldMachine;
};

using vkcore::protocol::Progress;

struct RunResult
{
    ResultCode mCode = ResultNone;
    QString mText; // resultText, or more details
    int mInstalledCount = 0;
    RunTraffic mTraffic = {};
    // The security fixes that were offered and are not installed; none if no server could be asked.
    std::optional<QList<vkcore::protocol::PackageVersion>> mPendingFixes = {};
    QStringList mUnusableServers = {}; // each with its reason
    // What was offered and not taken; none if no server could be asked.
    std::optional<QList<vkcore::protocol::LeftOutPackage>> mLeftOut = {};
    // What its checks have refused meanwhile, so that it is left out from now on.
    QList<packages::Refusal> mRefused = {};
    QDateTime mInstallFrom = {}; // packages are prepared, and a run at this time may switch to them
};

} // namespace tarn::vkservice::update
