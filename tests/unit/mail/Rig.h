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

// The mails and answers of a test's transport. It outlives the mailer.
struct Post
{
    SendResult answer(const Mail& pMail);
    void setOutcome(SendResult::Outcome pOutcome)
    {
        const QMutexLocker tLocker(&mMutex);
        mOutcome = pOutcome;
    }
    // All mails handed to the transport since the last call, also failed ones.
    QList<Mail> take();
    QStringList takeSubjects();

    QMutex mMutex;
    QList<Mail> mMails;
    SendResult::Outcome mOutcome = SendResult::Outcome::Sent;
    QString mBadRecipient; // gets mBadOutcome
    SendResult::Outcome mBadOutcome = SendResult::Outcome::Refused;
};

// A mailer with a database, a clock that the test moves, and its log.
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
    // Moves the clock and runs what is due.
    void pass(qint64 pSeconds);
    void passDays(int pDays) { pass(qint64{pDays} * 24 * 60 * 60); }
    // Adds an address, optionally as verified.
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
