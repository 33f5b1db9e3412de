#include "values/ResultCode.h"

namespace tarn::vkservice {

QString resultText(ResultCode pCode)
{
    switch (pCode) {
    case ResultNone:
        return QStringLiteral("No update has been run yet.");
    case ResultSuccess:
        return QStringLiteral("The update was successful.");
    case ResultUnreachable:
        return QStringLiteral("No update server could be reached.");
    case ResultVerificationFailed:
        return QStringLiteral("What an update server offers could not be verified.");
    case ResultAborted:
        return QStringLiteral("The update was aborted.");
    case ResultSuppressed:
        return QStringLiteral("Updates are suppressed on this machine.");
    case ResultNoSpace:
        return QStringLiteral("There is not enough free space on the disk.");
    case ResultInstallFailed:
        return QStringLiteral("The installation failed.");
    case ResultNoServer:
        return QStringLiteral("No usable update server is configured.");
    case ResultManualIntervention:
        return QStringLiteral("Manual intervention is needed.");
    case ResultStoreDamaged:
        return QStringLiteral("The records of the service are damaged.");
    }
    return QStringLiteral("Unknown result %1.").arg(static_cast<int>(pCode));
}

} // namespace tarn::vkservice
