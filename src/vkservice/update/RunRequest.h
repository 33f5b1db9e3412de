#pragma once

#include "internal/Values.h"
#include "values/ResultCode.h"

#include <vkcore/NetProxy.h>

#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkservice::update {

struct ServerAccess
{
    QString mName; // for messages
    QString mUri;
    QString mUser;
    QString mPassword;
};

// How long a run bears with a server before it tries again, or the next one.
struct Patience
{
    int mConnectSeconds = 15;
    int mSlowBytesPerSecond = 1000; // slower than this
    int mSlowSeconds = 30;          // for so long is too slow
    int mSmallFileSeconds = 120;    // for a whole metadata file
    int mAttempts = 4;              // for one file, and how often it may begin again
    int mFirstPauseMs = 1000;       // before the second attempt; each later pause is three times as long
    int mMetadataSeconds = 600;     // for all metadata files of a server
    int mRatePeriodSeconds = 180;   // over which RunRequest::mLeastBytesPerSecond is an average
};

// All that a run needs to know; it asks nobody while it runs.
struct RunRequest
{
    QList<ServerAccess> mServers; // in the order to try: the default server first
    QString mWhyNoServer;         // a sentence without its full stop, where it is known why mServers is empty
    vkcore::NetProxyMode mProxyMode = vkcore::NetProxyModeOs;
    vkcore::NetProxy mProxy{false, true};
    QString mAppLanguage;
    QString mDataLanguage;
    QString mStateDir;   // trusted metadata and unfinished downloads lie here
    QString mInstallDir; // holds packages/, generations/, current
    QString mDataDir;    // packages of the kind data; empty: below mInstallDir
    QString mRootFile;   // first trusted TUF root, installed by the administrator
    int mWaitForAppsSeconds = 600;
    int mParallelDownloads = 2;
    qint64 mBytesPerSecond = 0;         // 0: no limit
    qint64 mLeastBytesPerSecond = 5000; // a server that gives less is left for the next one; 0: no matter
    QString mCaFile;                    // empty: the system's certificates
    Patience mPatience;
};

using vkcore::protocol::Progress;

struct RunResult
{
    ResultCode mCode = ResultNone;
    QString mText; // resultText, or more exactly what happened
    int mInstalledCount = 0;
};

} // namespace tarn::vkservice::update
