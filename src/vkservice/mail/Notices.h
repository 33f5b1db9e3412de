#pragma once

#include <vkcore/MonitoringSettings.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::mail {

class MailMemory;
class Outbox;
struct MachineStatus;
struct RunReport;

// Decides which mails about the machine are due, and queues each once. What has been told is noted in the
// same transaction as the mail, so an end of the process in between neither loses nor doubles one.
// All methods give false, with errorText(), if the database could not take it; then nothing is
// noted, and the same call later does it.
class Notices
{
public:
    struct Audience
    {
        vkcore::MonitoringSettings mSettings;
        QString mClient;        // the machine's name
        QStringList mAddresses; // the verified ones; none: there is nobody to write to
    };

    Notices(vkcore::Database& pDatabase, MailMemory& pMemory, Outbox& pOutbox)
        : mDatabase(pDatabase), mMemory(pMemory), mOutbox(pOutbox)
    {
    }

    // From here on a machine that has never had a successful run is waited for.
    bool startWatching(const QDateTime& pNow);
    // A run that was reported before, told by its id, does nothing.
    bool runFinished(const Audience& pAudience, const RunReport& pRun);
    // One mail for each time without success that gets longer than the tolerance.
    bool checkOverdue(const Audience& pAudience, const MachineStatus& pStatus, const QDateTime& pNow);
    // *pQueued is the time of a summary that was queued, invalid if none was.
    bool checkSummary(const Audience& pAudience, const MachineStatus& pStatus, const QDateTime& pNow,
                      QDateTime* pQueued);

    QString errorText() const { return mErrorText; }

private:
    struct Story;
    Story storyOf(const Audience& pAudience, const RunReport& pRun);
    QDateTime lastGood(const MachineStatus& pStatus);
    bool noteClock(const QDateTime& pLastGood, const QDateTime& pNow);
    QDateTime waitingSince(const MachineStatus& pStatus, const QDateTime& pNow);
    bool isOverdue(const Audience& pAudience, const MachineStatus& pStatus, const QDateTime& pNow);
    bool isSummaryDue(const Audience& pAudience, const QDateTime& pNow);
    bool commit(const std::function<bool()>& pBody);

    vkcore::Database& mDatabase;
    MailMemory& mMemory;
    Outbox& mOutbox;
    QString mErrorText;
};

} // namespace tarn::vkservice::mail
