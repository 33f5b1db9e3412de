#pragma once

#include "update/UpdateRun.h"
#include "values/RunRecord.h"

#include <vkcore/Types.h>

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <functional>
#include <optional>

namespace tarn::vkservice::store {
class Settings;
}

namespace tarn::vkservice::control {

// The update runs of the service: whether one may start, what status that makes for clients, and how the last
// one ended.
class UpdateControl : public QObject
{
    Q_OBJECT

public:
    // Gives none, with a reason, where what a run needs can't be had.
    using RequestSource = std::function<std::optional<update::RunRequest>(QString* pReason)>;

    UpdateControl(update::UpdateRun& pRun, store::Settings& pSettings, RequestSource pRequests,
                  std::function<bool()> pSuppressed, QObject* pParent = nullptr);

    // Takes up the record of the last run; a run that the service did not survive gets its result here. True
    // if there was one; none if the store can't be read.
    std::optional<bool> load();
    // When a run that was cut short is to begin again, in seconds from the start of the service: a minute
    // after the first one, twice as long after each further one in a row. None where there is no such run,
    // and after the eighth: what ends the service so often is left to the schedule.
    std::optional<int> resumeSeconds() const;
    // Puts down a result that belongs to no run.
    void note(ResultCode pCode, const QString& pText);

    vkcore::ServiceStatus status() const;
    bool isActive() const;
    update::Progress progress() const;
    const RunRecord& lastRun() const { return mLastRun; }
    // The last run of this process, code 0 if there was none.
    const RunRecord& sessionRun() const { return mSessionRun; }
    QString resultText(const RunRecord& pRecord) const;

    // A run under way is joined. Where updates are suppressed nothing starts, and that is the result.
    bool trigger(bool pManual, QString* pReason);
    // False if no run is under way.
    bool abort();
    // Suppression may have begun or ended.
    void checkSuppression();

Q_SIGNALS:
    void statusChanged(tarn::vkcore::ServiceStatus pStatus);
    void activityChanged(tarn::vkcore::ServiceActivity pActivity);
    void notification(int pType, const QString& pText, const QString& pDetails);
    void error(int pType, const QString& pText, const QString& pDetails);
    // Comes before the status that ends the run.
    void runEnded(const tarn::vkservice::RunRecord& pRecord, bool pManual);

private:
    void finish(const update::RunResult& pResult);
    void record(ResultCode pCode, const QString& pText, const QDateTime& pBegan = {});
    void setStatus(vkcore::ServiceStatus pStatus);
    vkcore::ServiceStatus restingStatus() const;

    update::UpdateRun& mRun;
    store::Settings& mSettings;
    RequestSource mRequests;
    std::function<bool()> mSuppressed;
    RunRecord mLastRun;
    RunRecord mSessionRun;
    vkcore::ServiceStatus mStatus = vkcore::StatusIdle;
    QDateTime mBegan;
    bool mManual = false;
};

} // namespace tarn::vkservice::control
