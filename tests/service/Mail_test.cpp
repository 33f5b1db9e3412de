#include "ServiceRig.h"

#include "../unit/mail/SmtpSink.h"
#include "sqlite/Database.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QJsonArray>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>

#include <csignal>

using tarn::vkcore::Database;
using tarn::vkservice::mail::decoded;
using tarn::vkservice::mail::SmtpSink;

namespace {

class MailTest : public ServiceTest
{
protected:
    bool set(const char* pName, const QString& pValue)
    {
        const QJsonObject tParams{{QStringLiteral("name"), QLatin1String(pName)},
                                  {QStringLiteral("value"), pValue}};
        return mRig.connect().errorOf(QStringLiteral("setConfigValue"), tParams) == 0;
    }
    // The addresses of the settings: "a@example.com+" for one that is verified.
    QString addresses()
    {
        const QJsonArray tAddresses = mRig.connect()
                                          .call(QStringLiteral("getMonitoringSettings"))
                                          .toObject()
                                          .value(QLatin1String("notificationEmailAddresses"))
                                          .toArray();
        QStringList tTexts;
        for (const QJsonValue& tAddress : tAddresses) {
            tTexts.append(
                tAddress.toObject().value(QLatin1String("address")).toString() +
                QLatin1String(tAddress.toObject().value(QLatin1String("verified")).toBool() ? "+" : ""));
        }
        return tTexts.join(u' ');
    }
    bool setAddresses(const QStringList& pAddresses)
    {
        QJsonObject tSettings = mRig.connect().call(QStringLiteral("getMonitoringSettings")).toObject();
        QJsonArray tAddresses;
        for (const QString& tAddress : pAddresses) {
            tAddresses.append(
                QJsonObject{{QStringLiteral("address"), tAddress}, {QStringLiteral("verified"), false}});
        }
        tSettings.insert(QStringLiteral("notificationEmailAddresses"), tAddresses);
        tSettings.insert(QStringLiteral("eventMailsEnabled"), true);
        tSettings.insert(QStringLiteral("eventMailOnUpdate"), true);
        return mRig.connect().call(QStringLiteral("setMonitoringSettings"),
                                   {{QStringLiteral("settings"), tSettings}}) == QJsonValue(true);
    }
    // A service with a mail server, and an address that has got its code; gives the code.
    void startAndAsk(QString* pCode)
    {
        ASSERT_NO_FATAL_FAILURE(mUpdate.prepare(mRig));
        ASSERT_NO_FATAL_FAILURE(mRig.start());
        mSink.startSecure();
        ASSERT_TRUE(set("mail.url", mSink.url(QStringLiteral("smtp"))));
        ASSERT_TRUE(set("mail.caFile", mSink.certificate()));
        ASSERT_TRUE(set("mail.user", QStringLiteral("user")));
        ASSERT_TRUE(set("mail.password", QStringLiteral("secret")));
        ASSERT_TRUE(set("mail.sender", QStringLiteral("Updates <updates@example.org>")));
        ASSERT_TRUE(setAddresses({QStringLiteral("a@example.com")}));
        const QString tAsked = mail(0);
        const QRegularExpression tForm(QStringLiteral("mail\\.verify\\.a@example\\.com:([A-Z0-9-]+)"));
        *pCode = tForm.match(tAsked).captured(1);
        ASSERT_FALSE(pCode->isEmpty()) << tAsked.toStdString();
    }
    void update()
    {
        RawPeer tMonitor = mRig.connect();
        ASSERT_EQ(tMonitor.call(QStringLiteral("enterMonitorMode")), QJsonValue(true));
        ASSERT_EQ(mRig.connect().call(QStringLiteral("triggerUpdate"), json(R"({"manual": true})")),
                  QJsonValue(true));
        ASSERT_TRUE(
            tMonitor.waitForEvent(QStringLiteral("serviceStatusChanged"), QStringLiteral("status"), 0));
    }
    // The text of the mail with this number, once it has arrived.
    QString mail(int pNumber)
    {
        const QDeadlineTimer tDeadline(30000);
        while (mSink.received().size() <= pNumber && !tDeadline.hasExpired()) {
            QThread::msleep(20);
        }
        const auto tReceived = mSink.received();
        return tReceived.size() > pNumber ? decoded(tReceived.at(pNumber).mMessage, QStringLiteral("text"))
                                          : QString();
    }

    SmtpSink mSink;
    HeldUpdate mUpdate;
};

} // namespace

// From the first setting to the mail about an update, with a kill in between.
TEST_F(MailTest, VerifiedAddressGetsTheMailAboutAnUpdate)
{
    QString tCode;
    ASSERT_NO_FATAL_FAILURE(startAndAsk(&tCode));
    EXPECT_FALSE(set("mail.verify.a@example.com", QStringLiteral("WRONG")));
    EXPECT_EQ(addresses(), QStringLiteral("a@example.com"));
    EXPECT_TRUE(set("mail.verify.a@example.com", tCode));
    EXPECT_EQ(addresses(), QStringLiteral("a@example.com+"));
    EXPECT_EQ(mRig.connect().call(QStringLiteral("getConfigValue"),
                                  json(R"({"name": "mail.verify.a@example.com", "default": ""})")),
              QJsonValue(QStringLiteral("verified")));

    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    ASSERT_TRUE(setAddresses({QStringLiteral("a@example.com")}));
    EXPECT_EQ(addresses(), QStringLiteral("a@example.com+")) << "who stays in the list stays verified";

    ASSERT_NO_FATAL_FAILURE(update());
    const QString tReport = mail(1);
    EXPECT_TRUE(tReport.contains(QStringLiteral("sleeper"))) << tReport.toStdString();
    EXPECT_FALSE(mRig.log().contains("secret") || mRig.log().contains(tCode.toUtf8()));
}

// The store takes the record of the run and not its mail, or neither of them; then the service is killed.
TEST_F(MailTest, MailThatAKillKeptFromBeingQueuedComesOnce)
{
    QString tCode;
    ASSERT_NO_FATAL_FAILURE(startAndAsk(&tCode));
    ASSERT_TRUE(set("mail.verify.a@example.com", tCode));
    const char* const tRefuseMail = "CREATE TRIGGER mail BEFORE INSERT ON mail_queue BEGIN "
                                    "SELECT RAISE(ABORT, 'no room'); END";
    const char* const tRefuseRecord =
        "CREATE TRIGGER record BEFORE INSERT ON settings WHEN NEW.name = 'lastRun.code' BEGIN "
        "SELECT RAISE(ABORT, 'no room'); END";
    for (const bool tRecorded : {true, false}) {
        SCOPED_TRACE(tRecorded);
        Database tStore;
        ASSERT_TRUE(tStore.open(mRig.state("state.db"), Database::Mode::ReadWrite));
        ASSERT_TRUE(tStore.execute(tRefuseMail) && (tRecorded || tStore.execute(tRefuseRecord)));
        ASSERT_NO_FATAL_FAILURE(update());
        mRig.program().signal(SIGKILL);
        mRig.program().wait();
        ASSERT_TRUE(tStore.execute("DROP TRIGGER mail; DROP TRIGGER IF EXISTS record"));
        tStore.close();
        ASSERT_NO_FATAL_FAILURE(mRig.start());
        EXPECT_TRUE(mail(tRecorded ? 1 : 2).contains(QStringLiteral("sleeper")));
        ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
        if (tRecorded) {
            mUpdate.hold(); // publishes another version
            mUpdate.letGo();
        }
    }
    // A mail that came twice would come in front of this one.
    ASSERT_TRUE(setAddresses({QStringLiteral("a@example.com"), QStringLiteral("b@example.com")}));
    EXPECT_TRUE(mail(3).contains(QStringLiteral("mail.verify.b@example.com")));
}

int main(int pArgc, char** pArgv)
{
    ::testing::InitGoogleTest(&pArgc, pArgv);
    const QCoreApplication tApplication(pArgc, pArgv);
    return RUN_ALL_TESTS();
}
