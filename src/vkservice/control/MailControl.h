#pragma once

#include "internal/Failure.h"
#include "mail/MachineStatus.h"
#include "mail/Mailer.h"
#include "packages/CheckRecord.h"

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QString>

namespace tarn::vkcore {
class MonitoringSettings;
}
namespace tarn::vkservice {
struct RunRecord;
}
namespace tarn::vkservice::store {
class ConfigVariables;
class Settings;
class StateStore;
} // namespace tarn::vkservice::store
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

class ScheduleControl;
class UpdateControl;

// Connects the mailer to the service: its settings, its log of installed packages, its variables.
class MailControl : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        store::StateStore& mStore;
        store::Settings& mSettings;
        const store::ConfigVariables& mVariables;
        const UpdateControl& mUpdates;
        const ScheduleControl& mSchedule;
        process::ServiceApplication& mApp;
    };

    explicit MailControl(const Parts& pParts);

    // Loads the stored settings; called again after the store was replaced. A failure is for the log.
    Failure open();
    void onVariablesChanged();
    void onMonitoringChanged(const vkcore::MonitoringSettings& pSettings);
    // Reports a run once, however often it is called with the record of that run.
    void onRunEnded(const RunRecord& pRecord);
    // Reports each damaged package once; pDamaged are all of them.
    void onWaitsTooLong(const QString& pText, const QString& pDetails);
    void onVerified(const QList<packages::PackageCheck>& pDamaged);
    void tick() { mMailer.tick(); }
    // Gives a mail that is being sent some time to finish.
    void finish(int pTimeoutMs);

    // The variables that verify mail addresses: mail.verify.ADDRESS.
    static bool isVerification(const QString& pVariable);
    QString verificationState(const QString& pVariable) const;
    Failure verify(const QString& pVariable, const QString& pCode);

private:
    mail::MachineStatus machineStatus() const;
    QList<mail::PackageLine> installedPackages() const;
    QList<mail::PackageLine> packagesSince(const QDateTime& pBegan) const;
    // Of the packages' titles; looked up for each mail.
    QString language() const;
    void warn(const QString& pText) const;
    void storeSummaryDate(const QDateTime& pWhen);

    Parts mParts;
    mail::Mailer mMailer;
};

} // namespace tarn::vkservice::control
