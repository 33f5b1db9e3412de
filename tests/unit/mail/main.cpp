#include "Rig.h"
#include "Test.h"

#include <QtCore/QCoreApplication>

namespace tarn::vkservice::mail {

namespace {

// The service of the test that kills one: queues a mail, and sends it for as long as it lives.
int sendOne(const QStringList& pArguments)
{
    vkcore::Database tDatabase;
    if (!tDatabase.open(pArguments.value(0), vkcore::Database::Mode::ReadWrite)) {
        return 1;
    }
    Mailer tMailer(tDatabase, [] { return MachineStatus(); });
    QObject::connect(&tMailer, &Mailer::warning,
                     [](const QString& tText) { qWarning("%s", qUtf8Printable(tText)); });
    QString tError;
    if (!tMailer.open(&tError)) {
        return 1;
    }
    SmtpSettings tSmtp;
    tSmtp.mUrl = pArguments.value(1);
    tSmtp.mCaFile = pArguments.value(2);
    tSmtp.mUser = q("user");
    tSmtp.mPassword = q("secret");
    tSmtp.mSender = q("updates@example.org");
    tMailer.setSmtpSettings(tSmtp);
    vkcore::MonitoringSettings tSettings;
    tSettings.setEventMailsEnabled(true);
    tSettings.setEventMailOnUpdate(true);
    vkcore::MonitoringEmailList tList;
    tList.append(vkcore::MonitoringEmail(q("admin@example.org"), true));
    tSettings.setNotificationEmailAddresses(tList);
    tMailer.setMonitoringSettings(tSettings, Mailer::Reason::Loaded);
    tMailer.onRunFinished(someRun(q("1"), update::ResultSuccess, 1));
    return QCoreApplication::exec();
}

} // namespace

} // namespace tarn::vkservice::mail

int main(int pArgc, char** pArgv)
{
    ::testing::InitGoogleTest(&pArgc, pArgv);
    const QCoreApplication tApplication(pArgc, pArgv);
    const QStringList tArguments = QCoreApplication::arguments();
    if (tArguments.value(1) == q("--send-one")) {
        return tarn::vkservice::mail::sendOne(tArguments.mid(2));
    }
    return RUN_ALL_TESTS();
}
