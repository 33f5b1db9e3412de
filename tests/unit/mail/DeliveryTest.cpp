#include "Rig.h"
#include "SmtpSink.h"
#include "Test.h"

namespace tarn::vkservice::mail {

namespace {

const QString sAdmin = q("admin@example.org");

class DeliveryTest : public ::testing::Test
{
protected:
    DeliveryTest() { mRig.address(sAdmin, true); }
    // Starts the mailer and makes it report an update.
    void runUpdate(const SmtpSettings& pSettings)
    {
        mRig.startReal(pSettings);
        mRig.finish(someRun(q("run"), ResultSuccess, 1));
    }
    void set(const SmtpSettings& pSettings)
    {
        mRig.mMailer->setSmtpSettings(pSettings);
        mRig.settle();
    }
    // One mail waits because of this error.
    void expectWaiting(const char* pWarning)
    {
        EXPECT_TRUE(mRig.warned(q(pWarning))) << warnings();
        EXPECT_EQ(mRig.queued(), 1);
    }
    std::string warnings() const { return mRig.mWarnings.join(u'\n').toStdString(); }

    SmtpSink mSink;
    Rig mRig;
};

TEST_F(DeliveryTest, TextAndHtmlOverStartTlsWithLogin)
{
    const QString tName = q("Büro-Rechner \xf0\x9f\x96\xa5 für Ärzte und Schwestern der Station Süd");
    mRig.mSettings.setClientName(tName);
    mSink.startSecure();
    mRig.startReal(mSink.settings());
    RunReport tRun = someRun(q("1"), ResultSuccess, 1);
    tRun.mPackages[0].mReport = q(".\n..dots\nüberlang ") + QString(1500, u'x');
    mRig.finish(tRun);

    const QList<SmtpSink::Received> tReceived = mSink.received();
    ASSERT_EQ(tReceived.size(), 1) << warnings();
    const QJsonObject& tEnvelope = tReceived[0].mEnvelope;
    EXPECT_EQ(tEnvelope[q("from")].toString(), q("updates@example.org"));
    EXPECT_EQ(tEnvelope[q("to")].toArray(), QJsonArray{sAdmin});
    EXPECT_TRUE(tEnvelope[q("tls")].toBool());
    EXPECT_EQ(tEnvelope[q("user")].toString(), q("user"));

    const QByteArray& tMessage = tReceived[0].mMessage;
    EXPECT_EQ(decoded(tMessage, q("subject")), tName + q(": updates installed"));
    EXPECT_EQ(decoded(tMessage, q("from")), q("Updates <updates@example.org>"));
    EXPECT_EQ(decoded(tMessage, q("date")), q("Thu, 07 Mar 2024 10:00:00 +0000"));
    EXPECT_TRUE(decoded(tMessage, q("content-type")).startsWith(q("multipart/alternative")));
    const QString tText = decoded(tMessage, q("text"));
    EXPECT_TRUE(tText.contains(tName));
    EXPECT_TRUE(tText.contains(q("      | ..dots\n      | überlang xxx"))) << tText;
    EXPECT_TRUE(decoded(tMessage, q("html")).contains(q("<td>") + tName));
    for (const QByteArray& tLine : tMessage.split('\n')) {
        EXPECT_LE(tLine.size(), 100);
    }
    EXPECT_EQ(mRig.queued(), 0);
}

TEST_F(DeliveryTest, EachAddressGetsAMailOfItsOwn)
{
    for (const char* tAddress :
         {"gone@example.org", "full@example.org", "second@example.org", "ADMIN@example.org"}) {
        mRig.address(q(tAddress), true);
    }
    mSink.startSecure({q("--refuse=gone@example.org"), q("--defer=full@example.org")});
    runUpdate(mSink.settings());
    const QList<SmtpSink::Received> tReceived = mSink.received();
    ASSERT_EQ(tReceived.size(), 2) << warnings();
    for (int i = 0; i < 2; ++i) {
        const QString tExpected = q(i == 0 ? "admin@example.org" : "second@example.org");
        EXPECT_EQ(tReceived[i].mEnvelope[q("to")].toArray(), QJsonArray{tExpected});
        EXPECT_EQ(decoded(tReceived[i].mMessage, q("to")).remove(u'<').remove(u'>'), tExpected);
    }
    EXPECT_NE(decoded(tReceived[0].mMessage, q("message-id")),
              decoded(tReceived[1].mMessage, q("message-id")));
    EXPECT_TRUE(mRig.warned(q("Given up: mail about an update to gone@example.org: the mail server localhost "
                              "refused it: 550 5.1.1 no such mailbox")))
        << warnings();
    expectWaiting("Will be retried: mail about an update to full@example.org");
}

TEST_F(DeliveryTest, WaitsForAServerAndForTheRightPassword)
{
    SmtpSettings tSettings = mSink.settings();
    tSettings.mUrl = mSink.url(q("smtps"));
    tSettings.mPassword = q("guessed");
    runUpdate(tSettings);
    expectWaiting("the mail server localhost gives no answer");
    mSink.startSecure({q("--smtps")});
    mRig.pass(60);
    expectWaiting("refused mail.user and mail.password");
    EXPECT_FALSE(mRig.warned(q("guessed")));
    tSettings.mPassword = mSink.settings().mPassword;
    set(tSettings);
    EXPECT_EQ(mSink.received().size(), 1) << warnings();
}

TEST_F(DeliveryTest, APasswordGoesOverNoOpenLine)
{
    mSink.start({q("--login=user:secret")});
    SmtpSettings tSettings = mSink.settings();
    tSettings.mStartTls = SmtpSettings::StartTls::IfOffered;
    tSettings.mCaFile.clear();
    runUpdate(tSettings);
    EXPECT_TRUE(mRig.warned(q("offers no encryption"))) << warnings();
    EXPECT_EQ(mSink.logins(), "");

    tSettings.mAllowPlaintext = true;
    set(tSettings);
    EXPECT_EQ(mSink.logins(), "user good plain\n");
    EXPECT_EQ(mSink.received().size(), 1) << warnings();
}

TEST_F(DeliveryTest, TellsItsPasswordToNoStranger)
{
    mSink.startSecure();
    SmtpSettings tSettings = mSink.settings();
    tSettings.mCaFile.clear(); // the system does not trust the sink's certificate
    runUpdate(tSettings);
    EXPECT_TRUE(mRig.warned(q("certificate of the mail server localhost is not trusted"))) << warnings();

    // The certificate is valid, but for another name.
    tSettings = mSink.settings();
    tSettings.mUrl.replace(q("localhost"), q("127.0.0.1"));
    mRig.mWarnings.clear();
    set(tSettings);
    EXPECT_TRUE(mRig.warned(q("certificate of the mail server 127.0.0.1 is not trusted"))) << warnings();
    EXPECT_EQ(mSink.logins(), "");
    EXPECT_TRUE(mSink.received().isEmpty());
}

TEST_F(DeliveryTest, NothingConfiguredAddsAHeaderARecipientOrAnotherMail)
{
    const char* const tHostile[] = {
        "pc\r\nBcc: victim@example.org",
        "pc\r\n\r\nA body of its own\xc2\x85\xe2\x80\xa8",
        "pc\r\n.\r\nQUIT\r\nMAIL FROM:<x@example.org>\r\nRCPT TO:<victim@example.org>",
        "=?UTF-8?Q?pc=0D=0ABcc:_victim@example.org?=",
    };
    mRig.address(q("x@example.org>\r\nRCPT TO:<victim@example.org"), true);
    mSink.startSecure();
    SmtpSettings tSettings = mSink.settings();
    tSettings.mSender = q("Updates\r\nBcc: victim@example.org <updates@example.org>");
    mRig.startReal(tSettings);
    for (const char* tText : tHostile) {
        mRig.mSettings.setClientName(q(tText));
        mRig.set();
        RunReport tRun = someRun(q(tText), ResultSuccess, 1);
        tRun.mText = q(tText);
        tRun.mPackages[0] = {q(tText), q(tText), q(tText), q(tText)};
        mRig.finish(tRun);
    }
    const QList<SmtpSink::Received> tReceived = mSink.received();
    ASSERT_EQ(tReceived.size(), std::size(tHostile)) << warnings();
    for (const SmtpSink::Received& tMail : tReceived) {
        SCOPED_TRACE(tMail.mMessage);
        EXPECT_EQ(tMail.mEnvelope[q("to")].toArray(), QJsonArray{sAdmin});
        QStringList tNames;
        const QByteArray tHead = tMail.mMessage.left(tMail.mMessage.indexOf("\r\n\r\n"));
        for (const QByteArray& tLine : tHead.split('\n')) {
            if (!tLine.startsWith(' ') && !tLine.startsWith('\t')) {
                tNames.append(q(tLine.left(tLine.indexOf(':'))).toLower());
            }
        }
        tNames.sort();
        EXPECT_EQ(tNames.join(u' ').toStdString(),
                  "auto-submitted content-type date from message-id mime-version subject to");
        EXPECT_TRUE(tMail.mMessage.contains("\r\n--")) << "the parts follow";
        EXPECT_TRUE(decoded(tMail.mMessage, q("text")).contains(q("Updates have been installed")));
    }
}

// A server that accepts a mail without confirming it: after a restart, the mailer sends the identical mail
// again.
TEST_F(DeliveryTest, AServerThatHangsHoldsUpNobodyAndTheSameMailIsSentAgain)
{
    mSink.startSecure({q("--hang")});
    mRig.startReal(mSink.settings());
    QElapsedTimer tTimer;
    tTimer.start();
    mRig.mMailer->onRunFinished(someRun(q("1"), ResultSuccess, 1));
    mRig.mMailer->tick();
    EXPECT_LT(tTimer.elapsed(), 2000);
    mSink.waitForMail();
    tTimer.restart();
    mRig.stop();
    EXPECT_LT(tTimer.elapsed(), 10000) << "the bound is far below the server's time-out of a minute";
    mSink.stop();
    EXPECT_EQ(mRig.queued(), 1);

    SmtpSink tSecond;
    tSecond.startSecure();
    mRig.startReal(tSecond.settings());
    mRig.settle();
    const QList<SmtpSink::Received> tMails = mSink.received() + tSecond.received();
    ASSERT_EQ(tMails.size(), 2) << warnings();
    for (const QString& tPart : {q("message-id"), q("date"), q("subject")}) {
        EXPECT_FALSE(decoded(tMails[0].mMessage, tPart).isEmpty());
        EXPECT_EQ(decoded(tMails[0].mMessage, tPart), decoded(tMails[1].mMessage, tPart));
    }
    EXPECT_EQ(mRig.queued(), 0);
}

TEST_F(DeliveryTest, AServerThatHangsIsGivenUpAfterTheTimeOut)
{
    mSink.startSecure({q("--hang")});
    SmtpSettings tSettings = mSink.settings();
    tSettings.mTimeoutSeconds = 2;
    runUpdate(tSettings);
    expectWaiting("Mails can't be sent now");
}

} // namespace

} // namespace tarn::vkservice::mail
