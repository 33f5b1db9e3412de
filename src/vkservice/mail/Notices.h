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
struct DamageReport;
struct MachineStatus;
struct RunReport;

// Decides which mails about the machine are due, and queues each once. The note about a mail is written in
// the same transaction as the mail, so a killed process neither loses nor repeats one. All methods return
// false, with errorText(), if the database fails; then nothing is changed, and the caller can try again
// later.
class Notices
{
public:
    struct Audience
    {
        vkcore::MonitoringSettings mSettings;
        QString mClient;        // the machine's name
        QStringList mAddresses; // the verified ones; empty: no mails are written
    };

    Notices(vkcore::Database& pDatabase, MailMemory& pMemory, Outbox& pOutbox)
        : mDatabase(pDatabase), mMemory(pMemory), mOutbox(pOutbox)
    {
    }

    // Starts the overdue period for a machine that never had a successful run.
    bool startWatching(const QDateTime& pNow);
    // Ignores a run whose id was already reported.
    bool runFinished(const Audience& pAudience, const RunReport& pRun);
    // One mail for each call.
    bool personNeeded(const Audience& pAudience, const RunReport& pWhat);
    // One mail for each package that becomes damaged. pDamage: all that are damaged now.
    bool damageKnown(const Audience& pAudience, const DamageReport& pDamage);
    // One mail for each period without success that exceeds the tolerance.
    bool checkOverdue(const Audience& pAudience, const MachineStatus& pStatus, const QDateTime& pNow);
    // *pQueued is the time of the queued summary, invalid if none was queued.
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
