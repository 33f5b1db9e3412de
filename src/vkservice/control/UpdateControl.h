#pragma once

#include "control/RunRequests.h"
#include "internal/Failure.h"
#include "update/RefusedPackages.h"
#include "values/RunRecord.h"

#include <vkcore/Types.h>

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace tarn::vkservice::update {
class UpdateThread;
}

namespace tarn::vkservice::control {

class StoreCare;

// The update runs of the service: whether one may start, the status for clients, and the last result.
class UpdateControl : public QObject
{
    Q_OBJECT

public:
    UpdateControl(update::UpdateThread& pThread, const RunSources& pSources, StoreCare& pStore);

    // Loads the record of the last run; a run that the service did not survive gets its result here. True if
    // there was such a run; no value if the store cannot be read.
    std::optional<bool> load();
    // Repairs what a killed run left. A failure is for the log.
    Failure recover();
    // After recover(), until a run begins: a killed run left packages that have not proven themselves.
    bool isOnTrial() const;
    // Brings their trial to its end, by a run that asks no server. Harmless if there is none.
    void resumeTrial();
    // Makes an earlier generation the current one, and refuses the packages that replaced it. Not during a
    // run.
    Failure rollBack(qint64 pGeneration);
    // The refusals of the package were lifted.
    void noteAccepted(const QString& pPackage);
    // When to restart a run that was interrupted, in seconds from the start of the service: one minute after
    // the first interruption, twice as long after each further one in a row. No value if no run was
    // interrupted, or after the eighth time: then only the schedule starts the next run.
    std::optional<int> resumeSeconds() const;
    // Stores a result that does not belong to a run.
    void note(ResultCode pCode, const QString& pText);

    vkcore::ServiceStatus status() const;
    bool isActive() const;
    update::Progress progress() const;
    const RunRecord& lastRun() const { return mLastRun; }
    // The last run of this process, code 0 if there was none.
    const RunRecord& sessionRun() const { return mSessionRun; }
    // Valid if the last run of this process has prepared packages: from when on they may be installed.
    const QDateTime& preparedFor() const { return mPreparedFor; }
    QString resultText(const RunRecord& pRecord) const;

    // Joins a run in progress; one by hand makes it switch without waiting for a window. If updates are
    // suppressed, nothing starts, and the result says so.
    Failure trigger(bool pManual);
    // A scheduled run does not start now. The text, a sentence, is part of the last result until the next
    // run.
    void putOff(const QString& pText);
    // False if no run is in progress.
    bool abort();
    // As abort, and from now on no run is started or joined.
    bool stop();
    // To be called when suppression may have started or ended.
    void checkSuppression();

Q_SIGNALS:
    // What is installed, or what is refused, has changed without a run.
    void packagesChanged();
    void statusChanged(tarn::vkcore::ServiceStatus pStatus);
    void activityChanged(tarn::vkcore::ServiceActivity pActivity);
    void notification(int pType, const QString& pText, const QString& pDetails);
    void logged(const QString& pLine);
    void error(int pType, const QString& pText, const QString& pDetails);
    void runStarted(bool pManual);
    // With the reason; before runEnded.
    void serverUnusable(const QString& pServer);
    // Emitted before the status that ends the run.
    void runEnded(const tarn::vkservice::RunRecord& pRecord, bool pManual);

private:
    bool isSuppressed() const;
    Result<update::RunRequest> request();
    // The request of a run that asks servers.
    Result<update::RunRequest> requestFor(bool pManual);
    Failure startRun(bool pManual);
    Failure begin(const update::RunRequest& pRequest, bool pManual);
    Result<update::OpeningAt> openings(bool pManual);
    void finish(const update::RunResult& pResult);
    void noteWayBackByHand(const QList<packages::Refusal>& pRefused);
    void noteRefused(const QList<packages::Refusal>& pRefused);
    void storePending(const std::optional<QList<vkcore::protocol::PackageVersion>>& pFixes);
    void changeLeftOut(const std::function<update::LeftOutPackages(const update::LeftOutPackages&)>& pChange);
    void record(ResultCode pCode, const QString& pText, const QDateTime& pBegan = {},
                const RunTraffic& pTraffic = {});
    void setStatus(vkcore::ServiceStatus pStatus);
    vkcore::ServiceStatus restingStatus() const;

    update::UpdateThread& mThread;
    RunSources mSources;
    StoreCare& mStore;
    RunRecord mLastRun;
    RunRecord mSessionRun;
    vkcore::ServiceStatus mStatus = vkcore::StatusIdle;
    QDateTime mBegan;
    QDateTime mPreparedFor;
    QString mPutOff;
    std::shared_ptr<std::atomic_bool> mSwitchAtOnce; // of the run in progress
    bool mManual = false;
    bool mOnlyTrial = false;        // the run in progress
    std::optional<bool> mTriggered; // meanwhile: what it was triggered with
    bool mStopped = false;
};

} // namespace tarn::vkservice::control
