#include "control/MailControl.h"

#include "control/KnownVariables.h"
#include "control/ScheduleControl.h"
#include "control/UpdateControl.h"
#include "mail/Address.h"
#include "os/FileSystem.h"
#include "packages/GenerationReader.h"
#include "packages/PackageFolders.h"
#include "process/ServiceApplication.h"
#include "sqlite/InstallLogStore.h"
#include "store/ConfigVariables.h"
#include "store/Settings.h"
#include "store/StateStore.h"
#include "values/RunRecord.h"

#include <vkcore/EnhVersion.h>

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore;
using mail::Mailer;
using mail::PackageLine;

namespace {

constexpr int sMaxPackagesOfRun = 1000;

} // namespace

MailControl::MailControl(const Parts& pParts)
    : mParts(pParts), mMailer(pParts.mStore.database(), [this] { return machineStatus(); })
{
    connect(&mMailer, &Mailer::information, this,
            [this](const QString& pText) { mParts.mApp.write(process::LogLevel::Info, pText); });
    connect(&mMailer, &Mailer::warning, this, &MailControl::warn);
    connect(&mMailer, &Mailer::givenUp, this, [this](const QString& pText) {
        mParts.mApp.write(process::LogLevel::Warning, pText, {process::message::sMailGivenUp});
    });
    connect(&mMailer, &Mailer::summaryQueued, this, &MailControl::storeSummaryDate);
}

Failure MailControl::open()
{
    if (const Failure tFailure = mMailer.open()) {
        return tFailure;
    }
    // The mailer forgets addresses that are missing in the settings.
    const auto tSettings = mParts.mSettings.monitoring();
    const auto tSmtp = smtpSettings(mParts.mVariables);
    if (!tSettings || !tSmtp) {
        return {Failure::Kind::Damaged, u"Their settings can't be read"_s};
    }
    mMailer.setSmtpSettings(*tSmtp);
    mMailer.setMonitoringSettings(*tSettings, Mailer::Reason::Loaded);
    return {};
}

void MailControl::onVariablesChanged()
{
    if (const auto tSmtp = smtpSettings(mParts.mVariables)) {
        mMailer.setSmtpSettings(*tSmtp);
    } else {
        warn(u"The settings of the mail server can't be read; the previous ones stay in use."_s);
    }
}

void MailControl::onMonitoringChanged(const MonitoringSettings& pSettings)
{
    mMailer.setMonitoringSettings(pSettings, Mailer::Reason::Changed);
}

void MailControl::onRunEnded(const RunRecord& pRecord)
{
    if (pRecord.mBegan.isValid()) {
        mMailer.onRunFinished({.mRunId = pRecord.mBegan.toString(Qt::ISODateWithMs),
                               .mResult = static_cast<ResultCode>(pRecord.mCode),
                               .mText = pRecord.mText,
                               .mEnd = pRecord.mFinished,
                               .mPackages = packagesSince(pRecord.mBegan)});
    }
}

void MailControl::onVerified(const QList<packages::PackageCheck>& pDamaged)
{
    mail::DamageReport tReport;
    for (const packages::PackageCheck& tCheck : pDamaged) {
        const packages::PackagePlace tPlace =
            packages::PackageFolders::place(tCheck.mFolder).value_or(packages::PackagePlace());
        QStringList tLines;
        for (const packages::Finding& tFinding : tCheck.mFindings) {
            tLines.append(packages::problemText(tFinding));
        }
        if (tCheck.mCount > tCheck.mFindings.size()) {
            tLines.append(u"and %1 more"_s.arg(tCheck.mCount - tCheck.mFindings.size()));
        }
        tReport.mFolders.append(tCheck.mFolder);
        tReport.mPackages.append({.mTitle = tPlace.mName,
                                  .mVersion = tPlace.mVersion.section(u'-', 0, 0),
                                  .mStatus = u"damaged"_s,
                                  .mReport = tLines.join(u'\n')});
    }
    tReport.mFolders.sort();
    mMailer.onDamageKnown(tReport);
}

void MailControl::onWaitsTooLong(const QString& pText, const QString& pDetails)
{
    mMailer.onPersonNeeded({.mRunId = {},
                            .mResult = ResultManualIntervention,
                            .mText = pText + u' ' + pDetails,
                            .mEnd = QDateTime::currentDateTime(),
                            .mPackages = {}});
}

void MailControl::finish(int pTimeoutMs)
{
    if (!mMailer.isSending()) {
        return;
    }
    QEventLoop tLoop;
    connect(&mMailer, &Mailer::idle, &tLoop, &QEventLoop::quit);
    QTimer::singleShot(pTimeoutMs, &tLoop, &QEventLoop::quit);
    tLoop.exec();
}

bool MailControl::isVerification(const QString& pVariable)
{
    return !Mailer::verificationAddress(pVariable).isNull();
}

QString MailControl::verificationState(const QString& pVariable) const
{
    return mMailer.verificationState(Mailer::verificationAddress(pVariable));
}

Failure MailControl::verify(const QString& pVariable, const QString& pCode)
{
    const QString tAddress = Mailer::verificationAddress(pVariable);
    const Failure tFailure = mMailer.verify(tAddress, pCode);
    if (tFailure || pCode.trimmed().isEmpty()) {
        return tFailure;
    }
    auto tSettings = mParts.mSettings.monitoring();
    if (tSettings) {
        tSettings->setNotificationEmailAddresses(
            mail::markVerified(tSettings->notificationEmailAddresses(), tAddress));
    }
    if (!tSettings || !mParts.mSettings.setMonitoring(*tSettings)) {
        return {Failure::Kind::Io, u"The verification could not be saved"_s};
    }
    onMonitoringChanged(*tSettings);
    return {};
}

QString MailControl::language() const
{
    return mParts.mApp.languageOr(mParts.mSettings.appLanguage().value_or(QString()));
}

void MailControl::warn(const QString& pText) const
{
    mParts.mApp.write(process::LogLevel::Warning, pText);
}

void MailControl::storeSummaryDate(const QDateTime& pWhen)
{
    auto tSettings = mParts.mSettings.monitoring();
    if (tSettings) {
        tSettings->mLastSummary = pWhen.toLocalTime();
    }
    if (!tSettings || !mParts.mSettings.setMonitoring(*tSettings)) {
        warn(u"The time of the last summary mail could not be saved."_s);
    }
}

mail::MachineStatus MailControl::machineStatus() const
{
    const RunRecord& tRun = mParts.mUpdates.lastRun();
    return {.mLastResult = static_cast<ResultCode>(tRun.mCode),
            .mLastResultText = tRun.mText,
            .mLastRun = tRun.mFinished,
            .mLastSuccess = tRun.mLastSuccess,
            .mNextCheck = mParts.mSchedule.nextCheck(),
            .mInstalled = installedPackages()};
}

QList<PackageLine> MailControl::installedPackages() const
{
    const QString tDataDir = mParts.mSettings.dataDirectory().value_or(QString());
    packages::GenerationReader tReader(os::realFileSystem(),
                                       {mParts.mVariables.text(u"install.dir"_s), tDataDir});
    packages::Manifest tManifest;
    (void)tReader.current(&tManifest); // an unreadable log counts as empty
    const QString tLanguage = language();
    QList<PackageLine> tLines;
    for (const packages::InstalledPackage& tPackage : std::as_const(tManifest.mPackages)) {
        const QString tTitle = tPackage.mInfo.mTitle.bestValue(tLanguage);
        tLines.append({.mTitle = tTitle.isEmpty() ? tPackage.mInfo.mName : tTitle,
                       .mVersion = tPackage.mInfo.mVersion.toString(),
                       .mStatus = {},
                       .mReport = {}});
    }
    return tLines;
}

QList<PackageLine> MailControl::packagesSince(const QDateTime& pBegan) const
{
    InstallLogStore tLog;
    QList<GRef2<InstLogEntry>> tEntries;
    const QDateTime tFrom = QDateTime::fromSecsSinceEpoch(pBegan.toSecsSinceEpoch());
    QList<PackageLine> tLines;
    if (!tLog.openForReading(mParts.mApp.getStateDir() + u'/' + InstallLogStore::fileName()) ||
        !tLog.read(&tEntries, tFrom, {}, sMaxPackagesOfRun, false)) {
        return tLines;
    }
    const QString tLanguage = language();
    for (const auto& tEntry : std::as_const(tEntries)) {
        tLines.append({.mTitle = tEntry->mName.bestValue(tLanguage),
                       .mVersion = EnhVersion(tEntry->mVersion, tEntry->mVersionDate).toString(),
                       .mStatus = tEntry->mStatus,
                       .mReport = tEntry->mInstallReport.bestValue(tLanguage)});
    }
    return tLines;
}

} // namespace tarn::vkservice::control
