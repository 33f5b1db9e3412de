#pragma once

#include "mail/Mailer.h"
#include "mail/SmtpTransport.h"
#include "sqlite/Database.h"

#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

#include <memory>

namespace tarn::vkservice::mail {

// What the transport of a test sends, and what it answers. Lives longer than the mailer that it serves.
struct Post
{
    SendResult answer(const Mail& pMail);
    void setOutcome(SendResult::Outcome pOutcome)
    {
        const QMutexLocker tLocker(&mMutex);
        mOutcome = pOutcome;
    }
    // All mails that were handed to the transport, also those that failed; since the last call.
    QList<Mail> take();
    QStringList takeSubjects();

    QMutex mMutex;
    QList<Mail> mMails;
    SendResult::Outcome mOutcome = SendResult::Outcome::Sent;
    QString mBadRecipient; // gets mBadOutcome
    SendResult::Outcome mBadOutcome = SendResult::Outcome::Refused;
};

// A mailer with a database, a clock that the test moves, and the log that it wrote.
class Rig
{
public:
    Rig();

    // Starts (again) with the fake transport, or with the real one.
    void start();
    void startReal(const SmtpSettings& pSmtp)
    {
        mSmtp = pSmtp;
        start(nullptr);
    }
    void stop() { mMailer.reset(); }
    void restart()
    {
        stop();
        start();
    }
    // Waits until nothing is being sent.
    void settle();
    // Moves the clock, and lets the mailer do what is due then.
    void pass(qint64 pSeconds);
    void passDays(int pDays) { pass(qint64{pDays} * 24 * 60 * 60); }
    // Adds an address; a verified one counts as such from the start.
    void address(const QString& pAddress, bool pVerified);
    void set(Mailer::Reason pReason = Mailer::Reason::Changed);
    void finish(const RunReport& pRun)
    {
        mMailer->onRunFinished(pRun);
        settle();
    }
    int queued();
    bool warned(const QString& pPart) const { return !mWarnings.filter(pPart).isEmpty(); }

    QTemporaryDir mDir;
    vkcore::Database mDatabase;
    QDateTime mNow;
    MachineStatus mStatus;
    vkcore::MonitoringSettings mSettings;
    SmtpSettings mSmtp;
    Post mPost;
    QStringList mWarnings;
    QList<QDateTime> mSummaries;
    std::unique_ptr<Mailer> mMailer;

private:
    void start(std::unique_ptr<SmtpTransport> pTransport);
};

RunReport someRun(const QString& pId, ResultCode pResult, int pPackages = 0);

// The code in a verification mail's text; empty if there is none.
QString codeIn(const QString& pText);

} // namespace tarn::vkservice::mail
