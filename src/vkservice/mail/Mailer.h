#pragma once

#include "internal/Failure.h"
#include "mail/MachineStatus.h"
#include "mail/MailMemory.h"
#include "mail/Notices.h"
#include "mail/Outbox.h"
#include "mail/Verification.h"

#include <vkcore/MonitoringSettings.h>

#include <QtCore/QDateTime>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <functional>
#include <memory>
#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::mail {

class SmtpTransport;

// The service's mails about the machine: event mails, summaries, and the verification of addresses.
//
// Lives on the main thread, as does the database, in which it has its own tables (mail_...). No call waits
// for the mail server: sending has its own thread. A queued mail survives any end of the process, is sent at
// least once, always with the same Message-ID, and is only dropped with a warning: when the server refuses it
// permanently, or after about five days of attempts.
//
// Order of calls: open(), both settings, then the others in any order. The caller owns the settings.
class Mailer : public QObject
{
    Q_OBJECT

public:
    using Clock = std::function<QDateTime()>;
    using StatusSource = std::function<MachineStatus()>;

    enum class Reason
    {
        Loaded,  // the settings as stored
        Changed, // a client has set them
    };

    // pDatabase and pStatus must outlive the mailer; pStatus is only called in tick(). A null transport
    // selects the real one.
    Mailer(vkcore::Database& pDatabase, StatusSource pStatus, QObject* pParent = nullptr,
           std::unique_ptr<SmtpTransport> pTransport = nullptr,
           const Clock& pClock = &QDateTime::currentDateTimeUtc);
    // Cancels sending; unsent mails stay queued.
    ~Mailer() override;

    // Creates the tables. A failure if the database fails.
    Failure open();

    // If these settings differ from the previous ones, waiting mails are tried again at once.
    void setSmtpSettings(const SmtpSettings& pSettings);
    // Sends a code to each address that needs one: with Loaded to those that never got one, with Changed also
    // to those whose code is used up or expired. Limits on the number of such mails always apply.
    void setMonitoringSettings(const vkcore::MonitoringSettings& pSettings, Reason pReason);

    // To be called once for each run that has ended; a second call with the same run id does nothing.
    void onRunFinished(const RunReport& pRun);
    // Queues one mail about something besides a run that a person must look at.
    void onPersonNeeded(const RunReport& pWhat);
    // To be called with all packages that are damaged, whenever that may have changed.
    void onDamageKnown(const DamageReport& pDamage);
    // To be called about once a minute: overdue, summary, retries.
    void tick();

    // The address in the name of a configuration variable "mail.verify.ADDRESS"; null for any other name.
    static QString verificationAddress(const QString& pVariable);
    // Sets such a variable. With a code: none if it is right; the caller then marks the address as
    // verified in its settings (markVerified), stores them, and passes them back with setMonitoringSettings.
    // With an empty text: mails a new code.
    Failure verify(const QString& pAddress, const QString& pCode);
    // The value of such a variable: "verified", "not verified" or, for an address that is not in the
    // settings, "unknown".
    QString verificationState(const QString& pAddress) const;

    // False when no mail is being sent; idle() is emitted at that moment. The service may wait for it before
    // it ends.
    bool isSending() const;

Q_SIGNALS:
    // A summary was queued: to be stored as MonitoringSettings::mLastSummary.
    void summaryQueued(const QDateTime& pWhen);
    void idle();
    // For the log.
    void information(const QString& pText);
    void warning(const QString& pText);
    // The same about a mail that will not be sent.
    void givenUp(const QString& pText);

private:
    QString client() const;
    const vkcore::MonitoringEmail* find(const QString& pAddress) const;
    QStringList addresses(bool pVerified) const;
    Notices::Audience audience() const
    {
        return {.mSettings = *mSettings, .mClient = client(), .mAddresses = addresses(true)};
    }
    QString objection(const QueuedMail& pMail) const;
    void warnAboutSettings();
    void noteStoring(bool pOk, const QString& pWhat);

    Verification::Issue sendCode(const QString& pAddress, bool pReplace);
    void sendCodes(Reason pReason);
    Failure requestCode(const QString& pAddress);
    void reportRuns();
    void reportDamage();
    void checkMachine();

    vkcore::Database& mDatabase;
    StatusSource mStatus;
    Clock mClock;
    MailMemory mMemory;
    Verification mVerification;
    Outbox mOutbox;
    Notices mNotices;
    std::optional<vkcore::MonitoringSettings> mSettings;
    QList<RunReport> mRuns;              // ended, and not yet in the database
    std::optional<DamageReport> mDamage; // likewise
    QString mLastSettingsWarning;
    QHash<QString, QString> mStoreWarnings; // the mails that could not be queued, with the reason
};

} // namespace tarn::vkservice::mail
