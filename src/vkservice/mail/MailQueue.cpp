#include "mail/MailQueue.h"

#include "sqlite/Database.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::Statement;

namespace {

constexpr std::array sPauses{60, 2 * 60, 5 * 60, 15 * 60, 30 * 60, 60 * 60, 2 * 60 * 60, 4 * 60 * 60};

QDateTime fromStored(qint64 pSeconds)
{
    return pSeconds == 0 ? QDateTime() : QDateTime::fromSecsSinceEpoch(pSeconds, Qt::UTC);
}

qint64 toStored(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toSecsSinceEpoch() : 0;
}

} // namespace

QString mailKindText(MailKind pKind)
{
    switch (pKind) {
    case MailKind::Verification:
        return u"verification mail"_s;
    case MailKind::UpdateDone:
        return u"mail about an update"_s;
    case MailKind::UpdateFailed:
        return u"mail about a failed update"_s;
    case MailKind::ManualIntervention:
        return u"mail about manual intervention"_s;
    case MailKind::Overdue:
        return u"mail about an overdue update"_s;
    case MailKind::Damage:
        return u"damage mail"_s;
    case MailKind::Summary:
        return u"summary mail"_s;
    }
    return u"mail"_s;
}

int MailQueue::pauseSeconds(int pAttempts)
{
    const int tLast = static_cast<int>(sPauses.size()) - 1;
    return sPauses.at(static_cast<size_t>(std::clamp(pAttempts - 1, 0, tLast)));
}

bool MailQueue::check(bool pOk)
{
    mErrorText = pOk ? QString() : mDatabase.errorText();
    return pOk;
}

bool MailQueue::ensureSchema()
{
    return check(
        mDatabase.execute("CREATE TABLE IF NOT EXISTS mail_queue ("
                          "id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL, "
                          "message_id TEXT NOT NULL UNIQUE, recipient TEXT NOT NULL, date INTEGER NOT NULL, "
                          "subject TEXT NOT NULL, text TEXT NOT NULL, html TEXT NOT NULL, "
                          "attempts INTEGER NOT NULL, next_attempt INTEGER NOT NULL, "
                          "expires INTEGER NOT NULL, tried INTEGER NOT NULL DEFAULT 0)"));
}

int MailQueue::count()
{
    Statement tQuery(mDatabase, "SELECT count(*) FROM mail_queue");
    return tQuery.step() ? static_cast<int>(tQuery.integer(0)) : 0;
}

bool MailQueue::add(const QueuedMail& pMail, const QDateTime& pNow)
{
    if (count() >= sMaxMails) {
        mErrorText = u"%1 mails are waiting already"_s.arg(sMaxMails);
        return false;
    }
    Statement tInsert(
        mDatabase,
        "INSERT INTO mail_queue (kind, message_id, recipient, date, subject, text, html, attempts, "
        "next_attempt, expires) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, 0, ?8, ?9)");
    tInsert.bind(1, static_cast<qint64>(pMail.mKind))
        .bind(2, pMail.mMail.mMessageId)
        .bind(3, pMail.mMail.mRecipient)
        .bind(4, toStored(pMail.mMail.mDate))
        .bind(5, pMail.mMail.mSubject)
        .bind(6, pMail.mMail.mText)
        .bind(7, pMail.mMail.mHtml)
        .bind(8, toStored(pNow))
        .bind(9, toStored(pMail.mExpires));
    return check(tInsert.run());
}

QList<QueuedMail> MailQueue::due(const QDateTime& pNow, int pLimit)
{
    // A time further ahead than the longest pause was set before the clock was set back.
    Statement tQuery(
        mDatabase,
        "SELECT kind, message_id, recipient, date, subject, text, html, attempts, expires "
        "FROM mail_queue WHERE next_attempt <= ?1 OR next_attempt > ?2 ORDER BY tried, id LIMIT ?3");
    const qint64 tNow = toStored(pNow);
    tQuery.bind(1, tNow).bind(2, tNow + sPauses.back()).bind(3, qint64{pLimit});
    QList<QueuedMail> tMails;
    while (tQuery.step()) {
        QueuedMail tMail;
        tMail.mKind = static_cast<MailKind>(tQuery.integer(0));
        tMail.mMail = {.mRecipient = tQuery.text(2),
                       .mMessageId = tQuery.text(1),
                       .mDate = fromStored(tQuery.integer(3)),
                       .mSubject = tQuery.text(4),
                       .mText = tQuery.text(5),
                       .mHtml = tQuery.text(6)};
        tMail.mAttempts = static_cast<int>(tQuery.integer(7));
        tMail.mExpires = fromStored(tQuery.integer(8));
        tMails.append(tMail);
    }
    check(tQuery.isOk());
    return tMails;
}

std::optional<QueuedMail> MailQueue::nextDue(const QDateTime& pNow)
{
    const QList<QueuedMail> tMails = due(pNow, 1);
    return tMails.isEmpty() ? std::nullopt : std::optional(tMails.first());
}

bool MailQueue::remove(const QString& pMessageId)
{
    return check(
        Statement(mDatabase, "DELETE FROM mail_queue WHERE message_id = ?1").bind(1, pMessageId).run());
}

bool MailQueue::removeAll(MailKind pKind, const QString& pRecipient)
{
    Statement tDelete(mDatabase, "DELETE FROM mail_queue WHERE kind = ?1 AND recipient = ?2");
    return check(tDelete.bind(1, static_cast<qint64>(pKind)).bind(2, pRecipient).run());
}

bool MailQueue::hurry(const QDateTime& pNow)
{
    return check(
        Statement(mDatabase, "UPDATE mail_queue SET next_attempt = ?1").bind(1, toStored(pNow)).run());
}

bool MailQueue::putOff(const QueuedMail& pMail, bool pTried, const QDateTime& pNow)
{
    Statement tUpdate(
        mDatabase,
        "UPDATE mail_queue SET attempts = ?1, next_attempt = ?2, tried = tried + ?3 WHERE message_id = ?4");
    return tUpdate.bind(1, qint64{pMail.mAttempts})
        .bind(2, toStored(pNow.addSecs(pauseSeconds(pMail.mAttempts))))
        .bind(3, qint64{pTried})
        .bind(4, pMail.mMail.mMessageId)
        .run();
}

bool MailQueue::postpone(const QString& pMessageId, bool pAll, const QDateTime& pNow,
                         QList<QueuedMail>* pGivenUp)
{
    pGivenUp->clear();
    return check(mDatabase.transaction([&] {
        for (QueuedMail& tMail : due(pNow, sMaxMails)) {
            if (!pAll && tMail.mMail.mMessageId != pMessageId) {
                continue;
            }
            ++tMail.mAttempts;
            const bool tGivenUp =
                tMail.mAttempts >= sMaxAttempts || tMail.mMail.mDate.addDays(sMaxAgeDays) <= pNow;
            if (tGivenUp) {
                pGivenUp->append(tMail);
            }
            if (!(tGivenUp ? remove(tMail.mMail.mMessageId)
                           : putOff(tMail, tMail.mMail.mMessageId == pMessageId, pNow))) {
                return false;
            }
        }
        return true;
    }));
}

} // namespace tarn::vkservice::mail
