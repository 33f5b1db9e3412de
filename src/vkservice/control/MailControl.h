#pragma once

#include "mail/MachineStatus.h"
#include "mail/Mailer.h"
#include "values/RunRecord.h"

#include <vkcore/MonitoringSettings.h>

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <functional>

namespace tarn::vkservice::store {
class ConfigVariables;
class Settings;
class StateStore;
} // namespace tarn::vkservice::store

namespace tarn::vkservice::control {

// The mailer with what it needs of the service: its settings, its log of installed packages, its variables.
class MailControl : public QObject
{
    Q_OBJECT

public:
    // What the mailer can't find in the store; the language is that of the packages' titles.
    struct Surroundings
    {
        std::function<RunRecord()> mLastRun;
        std::function<QDateTime()> mNextCheck;
        std::function<QString()> mInstallDir;
        QString mStateDir;
        std::function<QString()> mLanguage; // asked for each mail
    };

    MailControl(store::StateStore& pStore, store::Settings& pSettings, store::ConfigVariables& pVariables,
                const Surroundings& pSurroundings, QObject* pParent = nullptr);

    // Takes up what is stored; once more after the store was replaced. False with a reason for the log.
    bool open(QString* pError);
    void onVariablesChanged();
    void onMonitoringChanged(const vkcore::MonitoringSettings& pSettings);
    // Tells of a run once, however often it is called with the record of the same run.
    void onRunEnded(const RunRecord& pRecord);
    void tick() { mMailer.tick(); }
    // Gives a mail that is on its way a while to get there.
    void finish(int pTimeoutMs);

    // The variables by which an administrator shows that an address is read: mail.verify.ADDRESS.
    static bool isVerification(const QString& pVariable);
    QString verificationState(const QString& pVariable) const;
    bool verify(const QString& pVariable, const QString& pCode, QString* pReason);

Q_SIGNALS:
    void information(const QString& pText);
    void warning(const QString& pText);

private:
    mail::MachineStatus machineStatus() const;
    QList<mail::PackageLine> installedPackages() const;
    QList<mail::PackageLine> packagesSince(const QDateTime& pBegan) const;
    void storeSummaryDate(const QDateTime& pWhen);

    store::Settings& mSettings;
    store::ConfigVariables& mVariables;
    Surroundings mSurroundings;
    mail::Mailer mMailer;
};

} // namespace tarn::vkservice::control
