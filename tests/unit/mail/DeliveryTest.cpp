#include "Rig.h"
#include "SmtpSink.h"

#include <gtest/gtest.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonArray>
#include <QtCore/QProcess>

namespace tarn::vkservice::mail {

namespace {

const QString sAdmin = QStringLiteral("admin@example.org");

class DeliveryTest : public ::testing::Test
{
protected:
    void runUpdate() { mRig.finish(someRun(QStringLiteral("run %1").arg(++mRun), update::ResultSuccess, 1)); }
    std::string warnings() const { return mRig.mWarnings.join(QLatin1Char('\n')).toStdString(); }

    SmtpSink mSink;
    Rig mRig;
    int mRun = 0;
};

TEST_F(DeliveryTest, TextAndHtmlOverStartTlsWithLogin)
{
    const QString tName =
        QString::fromUtf8("Büro-Rechner \xf0\x9f\x96\xa5 für Ärzte und Schwestern der Station Süd");
    mRig.mSettings.setClientName(tName);
    mRig.address(sAdmin, true);
    mSink.startSecure();
    mRig.startReal(mSink.settings());
    RunReport tRun = someRun(QStringLiteral("1"), update::ResultSuccess, 1);
    tRun.mPackages[0].mReport = QString::fromUtf8(".\n..dots\nüberlang ") + QString(1500, QLatin1Char('x'));
    mRig.finish(tRun);

    const QList<SmtpSink::Received> tReceived = mSink.received();
    ASSERT_EQ(tReceived.size(), 1) << warnings();
    const QJsonObject& tEnvelope = tReceived[0].mEnvelope;
    EXPECT_EQ(tEnvelope[QLatin1String("from")].toString(), QStringLiteral("updates@example.org"));
    EXPECT_EQ(tEnvelope[QLatin1String("to")].toArray(), QJsonArray{sAdmin});
    EXPECT_TRUE(tEnvelope[QLatin1String("tls")].toBool());
    EXPECT_EQ(tEnvelope[QLatin1String("user")].toString(), QStringLiteral("user"));

    const QByteArray& tMessage = tReceived[0].mMessage;
    EXPECT_EQ(decoded(tMessage, QStringLiteral("subject")), tName + QStringLiteral(": updates installed"));
    EXPECT_EQ(decoded(tMessage, QStringLiteral("from")), QStringLiteral("Updates <updates@example.org>"));
    EXPECT_EQ(decoded(tMessage, QStringLiteral("date")), QStringLiteral("Thu, 07 Mar 2024 10:00:00 +0000"));
    EXPECT_TRUE(decoded(tMessage, QStringLiteral("content-type"))
                    .startsWith(QStringLiteral("multipart/alternative")));
    const QString tText = decoded(tMessage, QStringLiteral("text"));
    EXPECT_TRUE(tText.contains(tName));
    EXPECT_TRUE(tText.contains(QString::fromUtf8("      | ..dots\n      | überlang xxx")))
        << tText.toStdString();
    EXPECT_TRUE(decoded(tMessage, QStringLiteral("html")).contains(QStringLiteral("<td>") + tName));
    for (const QByteArray& tLine : tMessage.split('\n')) {
        EXPECT_LE(tLine.size(), 100);
    }
    EXPECT_EQ(mRig.queued(), 0);
}

TEST_F(DeliveryTest, OverTlsFromTheStart)
{
    mRig.address(sAdmin, true);
    mSink.startSecure({QStringLiteral("--smtps")});
    SmtpSettings tSettings = mSink.settings();
    tSettings.mUrl = mSink.url(QStringLiteral("smtps"));
    mRig.startReal(tSettings);
    runUpdate();
    EXPECT_EQ(mSink.received().size(), 1) << warnings();
}

TEST_F(DeliveryTest, EachAddressGetsAMailOfItsOwn)
{
    mRig.address(QStringLiteral("gone@example.org"), true);
    mRig.address(QStringLiteral("full@example.org"), true);
    for (int i = 0; i < 5; ++i) {
        mRig.address(QStringLiteral("a%1@example.org").arg(i), true);
    }
    mRig.address(QStringLiteral("A0@example.org"), true);
    mSink.startSecure(
        {QStringLiteral("--refuse=gone@example.org"), QStringLiteral("--defer=full@example.org")});
    mRig.startReal(mSink.settings());
    runUpdate();

    QStringList tRecipients;
    QStringList tIds;
    for (const SmtpSink::Received& tReceived : mSink.received()) {
        const QJsonArray tTo = tReceived.mEnvelope[QLatin1String("to")].toArray();
        ASSERT_EQ(tTo.size(), 1);
        tRecipients.append(tTo[0].toString());
        EXPECT_EQ(decoded(tReceived.mMessage, QStringLiteral("to"))
                      .remove(QLatin1Char('<'))
                      .remove(QLatin1Char('>')),
                  tRecipients.last());
        tIds.append(decoded(tReceived.mMessage, QStringLiteral("message-id")));
    }
    EXPECT_EQ(tRecipients.join(QLatin1Char(' ')).toStdString(),
              "a0@example.org a1@example.org a2@example.org a3@example.org a4@example.org");
    EXPECT_EQ(tIds.removeDuplicates(), 0);
    EXPECT_TRUE(mRig.warned(
        QStringLiteral("Given up: mail about an update to gone@example.org: the mail server localhost "
                       "refused it: 550 5.1.1 no such mailbox")))
        << warnings();
    EXPECT_TRUE(mRig.warned(QStringLiteral("Tried again later: mail about an update to full@example.org")))
        << warnings();
    EXPECT_EQ(mRig.queued(), 1);
}

TEST_F(DeliveryTest, AWrongPasswordIsNamedAndTheRightOneSends)
{
    mRig.address(sAdmin, true);
    mSink.startSecure();
    SmtpSettings tSettings = mSink.settings();
    tSettings.mPassword = QStringLiteral("guessed");
    mRig.startReal(tSettings);
    runUpdate();
    EXPECT_TRUE(mSink.received().isEmpty());
    EXPECT_TRUE(mRig.warned(QStringLiteral("refused mail.user and mail.password"))) << warnings();
    EXPECT_FALSE(mRig.warned(QStringLiteral("guessed")));
    EXPECT_EQ(mRig.queued(), 1);

    mRig.mMailer->setSmtpSettings(mSink.settings());
    mRig.settle();
    EXPECT_EQ(mSink.received().size(), 1) << warnings();
}

TEST_F(DeliveryTest, WaitsForAServerThatIsDown)
{
    mRig.address(sAdmin, true);
    mRig.startReal(mSink.settings());
    runUpdate();
    EXPECT_TRUE(mRig.warned(QStringLiteral("the mail server localhost gives no answer"))) << warnings();
    mSink.startSecure();
    mRig.pass(59);
    EXPECT_TRUE(mSink.received().isEmpty());
    mRig.pass(1);
    EXPECT_EQ(mSink.received().size(), 1) << warnings();
}

TEST_F(DeliveryTest, APasswordGoesOverNoOpenLine)
{
    mRig.address(sAdmin, true);
    mSink.start({QStringLiteral("--login=user:secret")});
    SmtpSettings tSettings = mSink.settings();
    tSettings.mStartTls = SmtpSettings::StartTls::IfOffered;
    tSettings.mCaFile.clear();
    mRig.startReal(tSettings);
    runUpdate();
    EXPECT_TRUE(mRig.warned(QStringLiteral("offers no encryption"))) << warnings();
    EXPECT_EQ(mSink.logins(), "");

    tSettings.mAllowPlaintext = true;
    mRig.mMailer->setSmtpSettings(tSettings);
    mRig.settle();
    EXPECT_EQ(mSink.logins(), "user good plain\n");
    EXPECT_EQ(mSink.received().size(), 1) << warnings();
}

TEST_F(DeliveryTest, TellsItsPasswordToNoStranger)
{
    mRig.address(sAdmin, true);
    mSink.startSecure();
    SmtpSettings tSettings = mSink.settings();
    tSettings.mCaFile.clear(); // the system knows nothing of the sink's certificate
    mRig.startReal(tSettings);
    runUpdate();
    EXPECT_TRUE(mRig.warned(QStringLiteral("certificate of the mail server localhost is not trusted")))
        << warnings();

    // The certificate is right, but for another name.
    tSettings = mSink.settings();
    tSettings.mUrl.replace(QStringLiteral("localhost"), QStringLiteral("127.0.0.1"));
    mRig.mWarnings.clear();
    mRig.mMailer->setSmtpSettings(tSettings);
    mRig.settle();
    EXPECT_TRUE(mRig.warned(QStringLiteral("certificate of the mail server 127.0.0.1 is not trusted")))
        << warnings();
    EXPECT_EQ(mSink.logins(), "");
    EXPECT_TRUE(mSink.received().isEmpty());
}

TEST_F(DeliveryTest, ARefusedSenderIsAMatterOfTheSettings)
{
    mRig.address(sAdmin, true);
    mSink.startSecure({QStringLiteral("--refuse-sender")});
    mRig.startReal(mSink.settings());
    runUpdate();
    EXPECT_TRUE(mRig.warned(QStringLiteral("550 5.7.1 sender not welcome"))) << warnings();
    EXPECT_EQ(mRig.queued(), 1);
}

TEST_F(DeliveryTest, NothingConfiguredAddsAHeaderARecipientOrAnotherMail)
{
    const char* const tHostile[] = {
        "pc\r\nBcc: victim@example.org",
        "pc\r\n\r\nA body of its own",
        "pc\r\n.\r\nQUIT\r\nMAIL FROM:<x@example.org>\r\nRCPT TO:<victim@example.org>",
        "=?UTF-8?Q?pc=0D=0ABcc:_victim@example.org?=",
        "pc\n.\n",
    };
    mRig.address(sAdmin, true);
    mRig.address(QStringLiteral("x@example.org>\r\nRCPT TO:<victim@example.org"), true);
    mSink.startSecure();
    SmtpSettings tSettings = mSink.settings();
    tSettings.mSender = QStringLiteral("Updates\r\nBcc: victim@example.org <updates@example.org>");
    mRig.startReal(tSettings);
    for (const char* tText : tHostile) {
        mRig.mSettings.setClientName(QLatin1String(tText));
        mRig.set();
        RunReport tRun = someRun(QLatin1String(tText), update::ResultSuccess, 1);
        tRun.mText = QLatin1String(tText);
        tRun.mPackages[0] = {QLatin1String(tText), QLatin1String(tText), QLatin1String(tText),
                             QLatin1String(tText)};
        mRig.finish(tRun);
    }
    const QList<SmtpSink::Received> tReceived = mSink.received();
    ASSERT_EQ(tReceived.size(), std::size(tHostile)) << warnings();
    for (const SmtpSink::Received& tMail : tReceived) {
        SCOPED_TRACE(tMail.mMessage.toStdString());
        EXPECT_EQ(tMail.mEnvelope[QLatin1String("to")].toArray(), QJsonArray{sAdmin});
        QStringList tNames;
        const QByteArray tHead = tMail.mMessage.left(tMail.mMessage.indexOf("\r\n\r\n"));
        for (const QByteArray& tLine : tHead.split('\n')) {
            if (!tLine.startsWith(' ') && !tLine.startsWith('\t')) {
                tNames.append(QString::fromLatin1(tLine.left(tLine.indexOf(':'))).toLower());
            }
        }
        tNames.sort();
        EXPECT_EQ(tNames.join(QLatin1Char(' ')).toStdString(),
                  "auto-submitted content-type date from message-id mime-version subject to");
        EXPECT_TRUE(tMail.mMessage.contains("\r\n--")) << "the parts follow";
        EXPECT_TRUE(decoded(tMail.mMessage, QStringLiteral("text"))
                        .contains(QStringLiteral("Updates have been installed")));
    }
}

// A server that takes a mail and never says so: whoever dies then can't know, and sends it again, as the same
// mail.
TEST_F(DeliveryTest, AKilledServiceSendsItsMailAgainAsTheSameMail)
{
    mSink.startSecure({QStringLiteral("--hang")});
    mRig.mDatabase.close();
    const QString tDatabase = mRig.mDir.filePath(QStringLiteral("service.db"));
    QProcess tService;
    tService.setProcessChannelMode(QProcess::ForwardedChannels);
    tService.start(
        QCoreApplication::applicationFilePath(),
        {QStringLiteral("--send-one"), tDatabase, mSink.settings().mUrl, mSink.settings().mCaFile});
    ASSERT_TRUE(tService.waitForStarted());
    mSink.waitForMail();
    tService.kill();
    ASSERT_TRUE(tService.waitForFinished());
    mSink.stop();
    const QList<SmtpSink::Received> tBefore = mSink.received();
    ASSERT_EQ(tBefore.size(), 1);

    SmtpSink tSecond;
    tSecond.startSecure();
    ASSERT_TRUE(mRig.mDatabase.open(tDatabase, vkcore::Database::Mode::ReadWrite));
    ASSERT_EQ(mRig.queued(), 1);
    mRig.address(sAdmin, true);
    mRig.startReal(tSecond.settings());
    mRig.settle();
    const QList<SmtpSink::Received> tAfter = tSecond.received();
    ASSERT_EQ(tAfter.size(), 1) << warnings();
    for (const QString& tPart :
         {QStringLiteral("message-id"), QStringLiteral("date"), QStringLiteral("subject")}) {
        EXPECT_FALSE(decoded(tAfter[0].mMessage, tPart).isEmpty());
        EXPECT_EQ(decoded(tAfter[0].mMessage, tPart), decoded(tBefore[0].mMessage, tPart));
    }
    EXPECT_EQ(mRig.queued(), 0);
}

TEST_F(DeliveryTest, AServerThatHangsHoldsUpNeitherCallsNorTheEnd)
{
    mSink.startSecure({QStringLiteral("--hang")});
    mRig.address(sAdmin, true);
    mRig.startReal(mSink.settings());
    QElapsedTimer tTimer;
    tTimer.start();
    mRig.mMailer->onRunFinished(someRun(QStringLiteral("1"), update::ResultSuccess, 1));
    mRig.mMailer->tick();
    EXPECT_LT(tTimer.elapsed(), 2000);
    mSink.waitForMail();
    tTimer.restart();
    mRig.stop();
    EXPECT_LT(tTimer.elapsed(), 10000) << "the bound is far below the server's time-out of a minute";
    EXPECT_EQ(mRig.queued(), 1);
}

TEST_F(DeliveryTest, AServerThatDiesInTheMiddleLeavesTheMailQueued)
{
    mSink.startSecure({QStringLiteral("--hang")});
    mRig.address(sAdmin, true);
    mRig.startReal(mSink.settings());
    mRig.mMailer->onRunFinished(someRun(QStringLiteral("1"), update::ResultSuccess, 1));
    mSink.waitForMail();
    mSink.stop();
    mRig.settle();
    EXPECT_TRUE(mRig.warned(QStringLiteral("Mails can't be sent now"))) << warnings();
    EXPECT_EQ(mRig.queued(), 1);
}

TEST_F(DeliveryTest, AServerThatHangsIsGivenUpAfterTheTimeOut)
{
    mSink.startSecure({QStringLiteral("--hang")});
    mRig.address(sAdmin, true);
    SmtpSettings tSettings = mSink.settings();
    tSettings.mTimeoutSeconds = 2;
    mRig.startReal(tSettings);
    runUpdate();
    EXPECT_TRUE(mRig.warned(QStringLiteral("Mails can't be sent now"))) << warnings();
    EXPECT_EQ(mRig.queued(), 1);
}

} // namespace

} // namespace tarn::vkservice::mail
