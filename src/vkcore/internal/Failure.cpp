#include "internal/Failure.h"

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn {

Failure Failure::fromErrno(int pErrno, const QString& pWhat)
{
    const Kind tKind = pErrno == ENOSPC || pErrno == EDQUOT ? Kind::NoSpace : Kind::Io;
    return {tKind, u"Can't %1: %2"_s.arg(pWhat, qt_error_string(pErrno))};
}

Failure Failure::canceled()
{
    return {Kind::Canceled, u"The update was aborted"_s};
}

} // namespace tarn
