#include "control/KnownVariables.h"

#include "store/ConfigVariables.h"

#include <QtCore/QDir>
#include <QtCore/QStandardPaths>

#include <unistd.h>

namespace tarn::vkservice::control {

using namespace store;

namespace {

constexpr qint64 sDay = 86400;

QString defaultInstallDir()
{
    return ::geteuid() == 0 ? QStringLiteral("/opt/vk")
                            : QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                                  QStringLiteral("/vk");
}

// The words of mail.startTls, in the order of mail::SmtpSettings::StartTls.
QStringList startTlsWords()
{
    return {QStringLiteral("required"), QStringLiteral("ifOffered"), QStringLiteral("never")};
}

} // namespace

// A row for each variable: its name, its default, and for a number the least and the greatest. The manual
// page vk.cfg.5 has to say the same; a test compares them.
void addKnownVariables(ConfigVariables& pVariables, const QString& pConfigDir)
{
    pVariables.addRule(pathRule(QStringLiteral("install.dir"), defaultInstallDir()));
    pVariables.addRule(wholeNumberRule(QStringLiteral("update.waitForApps"), 600, 0, 7 * sDay));
    pVariables.addRule(wholeNumberRule(QStringLiteral("update.parallelDownloads"), 2, 1, 16));
    pVariables.addRule(wholeNumberRule(QStringLiteral("update.bandwidthLimit"), 0, 0, qint64(1) << 40));
    pVariables.addRule(wholeNumberRule(QStringLiteral("update.minimumRate"), 5000, 0, 1000 * 1000 * 1000));
    pVariables.addRule(certificatesRule(QStringLiteral("update.caFile")));
    pVariables.addRule(
        pathRule(QStringLiteral("update.rootFile"), pConfigDir + QStringLiteral("/root.json")));
    pVariables.addRule(yesNoRule(QStringLiteral("update.suppressed"), false));
    pVariables.addRule(pathRule(QStringLiteral("update.suppressFile"), QString()));
    pVariables.addRule(wholeNumberRule(QStringLiteral("schedule.jitter"), 0, 0, 7 * sDay));
    pVariables.addRule(textRule(QStringLiteral("mail.url"), QString()));
    pVariables.addRule(textRule(QStringLiteral("mail.sender"), QString()));
    pVariables.addRule(textRule(QStringLiteral("mail.user"), QString()));
    pVariables.addRule(textRule(QStringLiteral("mail.password"), QString()));
    pVariables.addRule(wordRule(QStringLiteral("mail.startTls"), startTlsWords()));
    pVariables.addRule(certificatesRule(QStringLiteral("mail.caFile")));
    pVariables.addRule(yesNoRule(QStringLiteral("mail.allowPlaintext"), false));
    pVariables.addRule(wholeNumberRule(QStringLiteral("mail.timeout"), 60, 1, 600));
    // Keys of the configuration file begin so. They are not variables.
    pVariables.addPrefix(QStringLiteral("service."));
}

std::optional<mail::SmtpSettings> smtpSettings(const ConfigVariables& pVariables)
{
    bool tAllRead = true;
    const auto tText = [&](const char* pName) { return pVariables.text(QLatin1String(pName), &tAllRead); };
    mail::SmtpSettings tSettings;
    tSettings.mUrl = tText("mail.url").trimmed();
    tSettings.mSender = tText("mail.sender").trimmed();
    tSettings.mUser = tText("mail.user").trimmed();
    tSettings.mPassword = tText("mail.password");
    tSettings.mStartTls = static_cast<mail::SmtpSettings::StartTls>(
        pVariables.word(QStringLiteral("mail.startTls"), &tAllRead));
    tSettings.mCaFile = tText("mail.caFile");
    tSettings.mAllowPlaintext = pVariables.flag(QStringLiteral("mail.allowPlaintext"), &tAllRead);
    tSettings.mTimeoutSeconds =
        static_cast<int>(pVariables.number(QStringLiteral("mail.timeout"), &tAllRead));
    return tAllRead ? std::optional(tSettings) : std::nullopt;
}

} // namespace tarn::vkservice::control
