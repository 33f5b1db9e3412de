#include "control/KnownVariables.h"

#include "internal/Machine.h"
#include "store/ConfigVariables.h"

#include <QtCore/QDir>
#include <QtCore/QStandardPaths>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace store;

namespace {

constexpr qint64 sDay = 86400;

QString defaultInstallDir()
{
    return vkcore::machine::isActing()
               ? u"/opt/vk"_s
               : QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/vk"_s;
}

// What a scheduled run does in such a state of the machine.
QStringList stateWords()
{
    return {u"go"_s, u"defer"_s};
}

// What updates install.
QStringList onlyWords()
{
    return {u"all"_s, u"security"_s};
}

// A wrong value counts: without windows an update would be installed in the middle of the day.
VariableRule windowsRule(const QString& pName)
{
    return {.mName = pName,
            .mDefault = QString(),
            .mCheck =
                [](const QString& pText) {
                    const auto tWindows = schedule::Windows::fromText(pText);
                    return tWindows ? QString() : tWindows.failure().mText;
                },
            .mKeepsWrong = true};
}

// The words of mail.startTls, in the order of mail::SmtpSettings::StartTls.
QStringList startTlsWords()
{
    return {u"required"_s, u"ifOffered"_s, u"never"_s};
}

} // namespace

// One row for each variable: its name, its default, and for a number the minimum and the maximum. The manual
// page vk.cfg.5 must list the same; a test compares them.
void addKnownVariables(ConfigVariables& pVariables, const QString& pConfigDir)
{
    pVariables.addRule(pathRule(u"install.dir"_s, defaultInstallDir()));
    pVariables.addRule(wholeNumberRule(u"update.waitForApps"_s, 600, 0, 7 * sDay));
    pVariables.addRule(wholeNumberRule(u"update.parallelDownloads"_s, 2, 1, 16));
    pVariables.addRule(wholeNumberRule(u"update.bandwidthLimit"_s, 0, 0, qint64(1) << 40));
    pVariables.addRule(wholeNumberRule(u"update.minimumRate"_s, 5000, 0, 1000 * 1000 * 1000));
    pVariables.addRule(certificatesRule(u"update.caFile"_s));
    pVariables.addRule(pathRule(u"update.rootFile"_s, pConfigDir + u"/root.json"_s));
    pVariables.addRule(wholeNumberRule(u"update.verifyEvery"_s, 30, 0, 3650));
    pVariables.addRule(wholeNumberRule(u"update.checkTimeout"_s, 120, 1, sDay));
    pVariables.addRule(wholeNumberRule(u"update.keepGenerations"_s, 2, 1, 20));
    pVariables.addRule(yesNoRule(u"update.suppressed"_s, false));
    pVariables.addRule(pathRule(u"update.suppressFile"_s, QString()));
    pVariables.addRule(strictWordRule(u"update.only"_s, onlyWords()));
    pVariables.addRule(wordRule(u"update.onMetered"_s, stateWords()));
    pVariables.addRule(wordRule(u"update.onBattery"_s, stateWords()));
    pVariables.addRule(wholeNumberRule(u"schedule.jitter"_s, 0, 0, 7 * sDay));
    pVariables.addRule(windowsRule(u"schedule.window"_s));
    pVariables.addRule(wholeNumberRule(u"schedule.windowDeadline"_s, 14, 0, 3650));
    pVariables.addRule(metricsFileRule(u"status.metricsFile"_s));
    pVariables.addRule(textRule(u"mail.url"_s, QString()));
    pVariables.addRule(textRule(u"mail.sender"_s, QString()));
    pVariables.addRule(textRule(u"mail.user"_s, QString()));
    pVariables.addRule(textRule(u"mail.password"_s, QString()));
    pVariables.addRule(wordRule(u"mail.startTls"_s, startTlsWords()));
    pVariables.addRule(certificatesRule(u"mail.caFile"_s));
    pVariables.addRule(yesNoRule(u"mail.allowPlaintext"_s, false));
    pVariables.addRule(wholeNumberRule(u"mail.timeout"_s, 60, 1, 600));
    // Prefixes of keys in the configuration file. They are not variables.
    pVariables.addPrefix(u"service."_s);
}

bool takesOnlySecurity(const ConfigVariables& pVariables, bool* pAllRead)
{
    return pVariables.word(u"update.only"_s, pAllRead) != 0; // also if it is wrong: "all" would bring more
}

Result<schedule::Windows> windowsOf(const ConfigVariables& pVariables)
{
    bool tAllRead = true;
    const QString tText = pVariables.text(u"schedule.window"_s, &tAllRead);
    auto tWindows = schedule::Windows::fromText(tText);
    if (!tAllRead) {
        return Failure{Failure::Kind::Damaged, u"The variable schedule.window can't be read"_s};
    }
    return tWindows ? tWindows
                    : Failure::content(
                          u"The variable schedule.window is wrong: %1"_s.arg(tWindows.failure().mText));
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
    tSettings.mStartTls =
        static_cast<mail::SmtpSettings::StartTls>(pVariables.word(u"mail.startTls"_s, &tAllRead));
    tSettings.mCaFile = tText("mail.caFile");
    tSettings.mAllowPlaintext = pVariables.flag(u"mail.allowPlaintext"_s, &tAllRead);
    tSettings.mTimeoutSeconds = static_cast<int>(pVariables.number(u"mail.timeout"_s, &tAllRead));
    return tAllRead ? std::optional(tSettings) : std::nullopt;
}

} // namespace tarn::vkservice::control
