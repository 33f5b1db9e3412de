#include "HeldCheck.h"
#include "ServiceRig.h"

#include "../unit/mail/SmtpSink.h"
#include "sqlite/Database.h"

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
        const QJsonObject tParams{{q("name"), q(pName)}, {q("value"), pValue}};
        return mRig.connect().errorOf("setConfigValue", tParams) == 0;
    }
    // The addresses of the settings: "a@example.com+" for one that is verified.
    QString addresses()
    {
        const QJsonArray tAddresses =
            mRig.connect().call("getMonitoringSettings")[q("notificationEmailAddresses")].toArray();
        QStringList tTexts;
        for (const QJsonValue tAddress : tAddresses) {
            tTexts.append(tAddress[q("address")].toString() + q(tAddress[q("verified")].toBool() ? "+" : ""));
        }
        return tTexts.join(u' ');
    }
    bool setAddresses(const QStringList& pAddresses)
    {
        QJsonObject tSettings = mRig.connect().call("getMonitoringSettings").toObject();
        QJsonArray tAddresses;
        for (const QString& tAddress : pAddresses) {
            tAddresses.append(QJsonObject{{q("address"), tAddress}, {q("verified"), false}});
        }
        tSettings.insert(q("notificationEmailAddresses"), tAddresses);
        tSettings.insert(q("eventMailsEnabled"), true);
        tSettings.insert(q("eventMailOnUpdate"), true);
        return mRig.connect().call("setMonitoringSettings", {{q("settings"), tSettings}}) == QJsonValue(true);
    }
    // A service with a mail server and an address that was sent its code; returns the code.
    void startAndAsk(QString* pCode)
    {
        ASSERT_NO_FATAL_FAILURE(mUpdate.prepare(mRig));
        ASSERT_NO_FATAL_FAILURE(mRig.start());
        mSink.startSecure();
        ASSERT_TRUE(set("mail.url", mSink.url(q("smtp"))));
        ASSERT_TRUE(set("mail.caFile", mSink.certificate()));
        ASSERT_TRUE(set("mail.user", q("user")));
        ASSERT_TRUE(set("mail.password", q("secret")));
        ASSERT_TRUE(set("mail.sender", q("Updates <updates@example.org>")));
        ASSERT_TRUE(setAddresses({q("a@example.com")}));
        const QString tAsked = mail(0);
        const QRegularExpression tForm(q("mail\\.verify\\.a@example\\.com:([A-Z0-9-]+)"));
        *pCode = tForm.match(tAsked).captured(1);
        ASSERT_FALSE(pCode->isEmpty()) << tAsked.toStdString();
    }
    void update()
    {
        RawPeer tMonitor = mRig.connect();
        ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
        ASSERT_EQ(mRig.connect().call("triggerUpdate", Json(R"({"manual": true})")), QJsonValue(true));
        ASSERT_TRUE(tMonitor.waitForEvent("serviceStatusChanged", "status", 0));
    }
    // The text of the mail with this number, once it has arrived.
    QString mail(int pNumber)
    {
        const QDeadlineTimer tDeadline(30000);
        while (mSink.received().size() <= pNumber && !tDeadline.hasExpired()) {
            QThread::msleep(20);
        }
        const auto tReceived = mSink.received();
        return tReceived.size() > pNumber ? decoded(tReceived.at(pNumber).mMessage, q("text")) : QString();
    }

    SmtpSink mSink;
    HeldUpdate mUpdate;
};

} // namespace

// The store accepts the record of the run but not its mail, or neither; then the service is killed.
TEST_F(MailTest, MailThatAKillKeptFromBeingQueuedComesOnce)
{
    QString tCode;
    ASSERT_NO_FATAL_FAILURE(startAndAsk(&tCode));
    EXPECT_FALSE(set("mail.verify.a@example.com", q("WRONG")));
    EXPECT_EQ(addresses(), q("a@example.com"));
    ASSERT_TRUE(set("mail.verify.a@example.com", tCode));
    EXPECT_EQ(addresses(), q("a@example.com+"));
    ASSERT_EQ(mRig.connect().errorOf("setLanguages", R"({"app": "de", "data": null})"), 0);
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
        const QString tMail = mail(tRecorded ? 1 : 2);
        EXPECT_TRUE(tMail.contains(q("Schl\xc3\xa4"
                                     "fer")))
            << "in the language of now";
        EXPECT_TRUE(tMail.contains(q("\n      | Advisory: CVE-2026-1: it never woke up\n")));
        ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
        if (tRecorded) {
            mUpdate.hold(); // publishes another version
            mUpdate.letGo();
        }
    }
    // A duplicate mail would arrive before this one.
    ASSERT_TRUE(setAddresses({q("a@example.com"), q("b@example.com")}));
    EXPECT_TRUE(mail(3).contains(q("mail.verify.b@example.com")));
    EXPECT_EQ(addresses(), q("a@example.com+ b@example.com")) << "who stays in the list stays verified";
    EXPECT_FALSE(mRig.log().contains("secret") || mRig.log().contains(tCode.toUtf8()));
}

// The service is killed in the check of new packages. What the run has installed counts when they have
// passed.
TEST_F(MailTest, ARunThatIsKilledInItsChecksIsReportedAtTheirEnd)
{
    QString tCode;
    ASSERT_NO_FATAL_FAILURE(startAndAsk(&tCode));
    ASSERT_TRUE(set("mail.verify.a@example.com", tCode));
    HeldCheck tCheck(mRig.installation());
    ASSERT_EQ(mRig.connect().call("triggerUpdate", Json(R"({"manual": true})")), QJsonValue(true));
    ASSERT_TRUE(tCheck.hasBegun());
    mRig.program().signal(SIGKILL);
    mRig.program().wait();
    tCheck.letGo();
    ASSERT_NO_FATAL_FAILURE(mRig.start({"-e"}));
    const QString tMail = mail(1);
    EXPECT_TRUE(tMail.contains(q("have passed their checks")) && tMail.contains(q("sleeper 1.0.0 ")))
        << tMail;
    const QJsonValue tRun = mRig.connect().call("getHistory")[q("runs")][0];
    EXPECT_EQ(tRun[q("code")], 1);
    EXPECT_EQ(tRun[q("packages")][0][q("name")], q("sleeper"));
}
