#include "Rig.h"
#include "Test.h"

#include <QtCore/QEventLoop>
#include <QtCore/QMutexLocker>
#include <QtCore/QRegularExpression>
#include <QtCore/QTimer>

#include <utility>

namespace tarn::vkservice::mail {

namespace {

class FakeTransport : public SmtpTransport
{
public:
    explicit FakeTransport(Post& pPost) : mPost(pPost) {}
    SendResult send(const Mail& pMail, const SmtpSettings&) override { return mPost.answer(pMail); }
    void cancel() override {}

private:
    Post& mPost;
};

} // namespace

SendResult Post::answer(const Mail& pMail)
{
    const QMutexLocker tLocker(&mMutex);
    mMails.append(pMail);
    return {pMail.mRecipient == mBadRecipient ? mBadOutcome : mOutcome, q("as the test wants it")};
}

QList<Mail> Post::take()
{
    const QMutexLocker tLocker(&mMutex);
    return std::exchange(mMails, {});
}

QStringList Post::takeSubjects()
{
    QStringList tSubjects;
    for (const Mail& tMail : take()) {
        tSubjects.append(tMail.mSubject);
    }
    return tSubjects;
}

Rig::Rig() : mNow(QDate(2024, 3, 7), QTime(10, 0), Qt::UTC)
{
    EXPECT_TRUE(mDatabase.open(mDir.filePath(q("service.db")), vkcore::Database::Mode::ReadWrite));
    mSettings.setClientName(q("lab-pc-3"));
    mSettings.setEventMailsEnabled(true);
    mSettings.setEventMailOnUpdate(true);
    mSettings.setEventMailOnOverdue(true);
    mSettings.setEventMailOnManualIntervention(true);
    mSmtp.mUrl = q("smtp://localhost");
    mSmtp.mSender = q("updates@example.org");
    mStatus.mLastSuccess = mNow;
}

void Rig::start()
{
    start(std::make_unique<FakeTransport>(mPost));
}

void Rig::start(std::unique_ptr<SmtpTransport> pTransport)
{
    mMailer = std::make_unique<Mailer>(
        mDatabase, [this] { return mStatus; }, nullptr, std::move(pTransport), [this] { return mNow; });
    for (const auto tSignal : {&Mailer::warning, &Mailer::givenUp}) {
        QObject::connect(mMailer.get(), tSignal, mMailer.get(),
                         [this](const QString& tText) { mWarnings.append(tText); });
    }
    QObject::connect(mMailer.get(), &Mailer::summaryQueued, mMailer.get(),
                     [this](const QDateTime& tWhen) { mSummaries.append(tWhen); });
    ASSERT_FALSE(mMailer->open());
    mMailer->setSmtpSettings(mSmtp);
    set(Mailer::Reason::Loaded);
}

void Rig::settle()
{
    if (!mMailer->isSending()) {
        return;
    }
    QEventLoop tLoop;
    QObject::connect(mMailer.get(), &Mailer::idle, &tLoop, &QEventLoop::quit);
    QTimer::singleShot(60000, &tLoop, [&tLoop] { tLoop.exit(1); });
    ASSERT_EQ(tLoop.exec(), 0) << "sending does not end";
}

void Rig::pass(qint64 pSeconds)
{
    mNow = mNow.addSecs(pSeconds);
    mMailer->tick();
    settle();
}

void Rig::address(const QString& pAddress, bool pVerified)
{
    vkcore::MonitoringEmailList tList = mSettings.notificationEmailAddresses();
    tList.append(vkcore::MonitoringEmail(pAddress, pVerified));
    mSettings.setNotificationEmailAddresses(tList);
}

void Rig::set(Mailer::Reason pReason)
{
    mMailer->setMonitoringSettings(mSettings, pReason);
    settle();
}

int Rig::queued()
{
    vkcore::Statement tQuery(mDatabase, "SELECT count(*) FROM mail_queue");
    return tQuery.step() ? static_cast<int>(tQuery.integer(0)) : -1;
}

RunReport someRun(const QString& pId, ResultCode pResult, int pPackages)
{
    RunReport tRun;
    tRun.mRunId = pId;
    tRun.mResult = pResult;
    tRun.mText = q("what came of it");
    for (int i = 0; i < pPackages; ++i) {
        tRun.mPackages.append({q("Package %1").arg(i), q("1.0"), q("ok"), {}});
    }
    return tRun;
}

QString codeIn(const QString& pText)
{
    static const QRegularExpression sCode(q("--config-var=mail\\.verify\\.[^:\\s]+:(\\S+)"));
    return sCode.match(pText).captured(1);
}

} // namespace tarn::vkservice::mail
