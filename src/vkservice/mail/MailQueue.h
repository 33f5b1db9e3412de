#pragma once

#include "mail/Mail.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::mail {

enum class MailKind : int
{
    Verification = 0, // the numbers are stored in the database
    UpdateDone = 1,
    UpdateFailed = 2,
    ManualIntervention = 3,
    Overdue = 4,
    Summary = 5,
    Damage = 6,
};

// "summary mail", for the log.
QString mailKindText(MailKind pKind);

struct QueuedMail
{
    MailKind mKind = MailKind::Summary;
    Mail mMail;
    int mAttempts = 0;  // failed ones
    QDateTime mExpires; // obsolete after it; invalid for none
};

// The mails that wait to be sent, in tables of the service's database. A mail from add() survives any end of
// the process until remove().
class MailQueue
{
public:
    static constexpr int sMaxAttempts = 35; // five days, by the pauses between them
    static constexpr int sMaxAgeDays = 14;
    static constexpr int sMaxMails = 5000;

    explicit MailQueue(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    bool ensureSchema();

    // False, with errorText(), if it was not stored.
    bool add(const QueuedMail& pMail, const QDateTime& pNow);
    // A mail that is due: the oldest of those with the fewest failures, so that none blocks the others.
    std::optional<QueuedMail> nextDue(const QDateTime& pNow);
    // A mail is identified by its Message-ID, which is unique across databases.
    bool remove(const QString& pMessageId);
    // Removes all mails of one kind to one address.
    bool removeAll(MailKind pKind, const QString& pRecipient);
    // After a failed attempt: counts it and delays the mail by a pause that grows with its attempts. pAll:
    // the mail did not cause the failure, so the other due mails are delayed, too. Removes those that were
    // tried for too long, and lists them in *pGivenUp.
    bool postpone(const QString& pMessageId, bool pAll, const QDateTime& pNow, QList<QueuedMail>* pGivenUp);
    // Makes all mails due now.
    bool hurry(const QDateTime& pNow);
    int count();

    QString errorText() const { return mErrorText; }

    // 1 minute after the first failed attempt, 4 hours after the eighth and all later ones.
    static int pauseSeconds(int pAttempts);

private:
    QList<QueuedMail> due(const QDateTime& pNow, int pLimit);
    bool putOff(const QueuedMail& pMail, bool pTried, const QDateTime& pNow);
    bool check(bool pOk);

    vkcore::Database& mDatabase;
    QString mErrorText;
};

} // namespace tarn::vkservice::mail
