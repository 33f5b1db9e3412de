#include "values/ResultCode.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice {

QString resultText(ResultCode pCode)
{
    switch (pCode) {
    case ResultNone:
        return u"No update has been run yet."_s;
    case ResultSuccess:
        return u"The update was successful."_s;
    case ResultUnreachable:
        return u"No update server could be reached."_s;
    case ResultVerificationFailed:
        return u"What an update server offers could not be verified."_s;
    case ResultAborted:
        return u"The update was aborted."_s;
    case ResultSuppressed:
        return u"Updates are suppressed on this machine."_s;
    case ResultNoSpace:
        return u"There is not enough free space on the disk."_s;
    case ResultInstallFailed:
        return u"The installation failed."_s;
    case ResultNoServer:
        return u"No usable update server is configured."_s;
    case ResultManualIntervention:
        return u"Manual intervention is needed."_s;
    case ResultStoreDamaged:
        return u"The records of the service are damaged."_s;
    case ResultCheckFailed:
        return u"The new packages failed their check; the previous ones are in use again."_s;
    }
    return u"Unknown result %1."_s.arg(static_cast<int>(pCode));
}

const QList<ResultWord>& resultWords()
{
    static const QList<ResultWord> sWords{
        {ResultSuccess, "success"_L1},
        {ResultUnreachable, "unreachable"_L1},
        {ResultVerificationFailed, "verification_failed"_L1},
        {ResultAborted, "aborted"_L1},
        {ResultNoSpace, "no_space"_L1},
        {ResultInstallFailed, "install_failed"_L1},
        {ResultNoServer, "no_server"_L1},
        {ResultManualIntervention, "manual_intervention"_L1},
        {ResultStoreDamaged, "store_damaged"_L1},
        {ResultCheckFailed, "check_failed"_L1},
    };
    return sWords;
}

} // namespace tarn::vkservice
