#include "os/Failure.h"

#include <cerrno>

namespace tarn::os {

Failure Failure::fromErrno(int pErrno, const QString& pWhat)
{
    const Kind tKind = pErrno == ENOSPC || pErrno == EDQUOT ? Kind::NoSpace : Kind::Io;
    return {tKind, QStringLiteral("Can't %1: %2").arg(pWhat, qt_error_string(pErrno))};
}

Failure Failure::canceled()
{
    return {Kind::Canceled, QStringLiteral("The update was aborted")};
}

} // namespace tarn::os
