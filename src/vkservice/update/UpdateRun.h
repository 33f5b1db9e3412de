#pragma once

#include "update/ResultCode.h"

#include <vkcore/NetProxy.h>
#include <vkcore/Types.h>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace tarn::vkservice::os {
class FileSystem;
class ProcessList;
} // namespace tarn::vkservice::os

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

struct Progress
{
    vkcore::ServiceActivity mActivity = vkcore::ActivityNone;
    bool mCancelable = false;
    QString mText;
    qint64 mBytesDone = 0;
    qint64 mBytesTotal = 0;
    qint64 mDone = 0; // of mTotal: the share of the activity to show
    qint64 mTotal = 0;
    int mPackage = 0; // counted from 1
    int mPackageCount = 0;
    int mFailedCount = 0;
};

struct RunResult
{
    ResultCode mCode = ResultNone;
    QString mText; // resultText, or more exactly what happened
    int mInstalledCount = 0;
};

// One update at a time, on a thread of its own. The object lives on the main thread and its signals come
// there.
class UpdateRun : public QObject
{
    Q_OBJECT

public:
    UpdateRun(os::FileSystem& pFileSystem, os::ProcessList& pProcesses, QObject* pParent = nullptr);
    // Aborts a run under way and waits for its end.
    ~UpdateRun() override;

    // Repairs what a killed run left behind and brings the install log up to the current generation. Called
    // once, before the first run. False with a reason for the log if the folders can't be used.
    bool recover(const RunRequest& pRequest, QString* pError);

    // False if a run is under way.
    bool start(const RunRequest& pRequest);
    // Ends the run at its next safe point; harmless when none is under way.
    void abort();
    bool isRunning() const;
    Progress progress() const;

Q_SIGNALS:
    void activityChanged(tarn::vkcore::ServiceActivity pActivity);
    // Message types as on the socket: 0 error, 1 warning, 4 information.
    void notification(int pType, const QString& pText, const QString& pDetails);
    void error(int pType, const QString& pText, const QString& pDetails);
    // The last signal of a run; isRunning() is false from here on.
    void finished(const tarn::vkservice::update::RunResult& pResult);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace tarn::vkservice::update
