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

VariableRule wordRule(const QString& pName, const QStringList& pWords)
{
    return {pName, pWords.first(), [pWords](const QString& pText) {
                return pWords.contains(pText)
                           ? QString()
                           : QStringLiteral("one of %1 is expected").arg(pWords.join(QStringLiteral(", ")));
            }};
}

void addMailVariables(ConfigVariables& pVariables)
{
    for (const char* tName : {"mail.url", "mail.user", "mail.password", "mail.sender"}) {
        pVariables.addRule(textRule(QLatin1String(tName), QString()));
    }
    pVariables.addRule(
        wordRule(QStringLiteral("mail.startTls"),
                 {QStringLiteral("required"), QStringLiteral("ifOffered"), QStringLiteral("never")}));
    pVariables.addRule(pathRule(QStringLiteral("mail.caFile"), QString()));
    pVariables.addRule(yesNoRule(QStringLiteral("mail.allowPlaintext"), false));
    pVariables.addRule(wholeNumberRule(QStringLiteral("mail.timeout"), 60, 1, 600));
}

} // namespace

void addKnownVariables(ConfigVariables& pVariables, const QString& pConfigDir)
{
    pVariables.addRule(pathRule(QStringLiteral("install.dir"), defaultInstallDir()));
    pVariables.addRule(wholeNumberRule(QStringLiteral("update.waitForApps"), 600, 0, 7 * sDay));
    pVariables.addRule(wholeNumberRule(QStringLiteral("update.parallelDownloads"), 2, 1, 16));
    pVariables.addRule(wholeNumberRule(QStringLiteral("update.bandwidthLimit"), 0, 0, qint64(1) << 40));
    pVariables.addRule(pathRule(QStringLiteral("update.caFile"), QString()));
    pVariables.addRule(
        pathRule(QStringLiteral("update.rootFile"), pConfigDir + QStringLiteral("/root.json")));
    pVariables.addRule(yesNoRule(QStringLiteral("update.suppressed"), false));
    pVariables.addRule(pathRule(QStringLiteral("update.suppressFile"), QString()));
    pVariables.addRule(wholeNumberRule(QStringLiteral("schedule.jitter"), 0, 0, 7 * sDay));
    addMailVariables(pVariables);
}

} // namespace tarn::vkservice::control
