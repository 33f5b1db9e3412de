#include "keys/SigningTime.h"

#include <QtCore/QByteArray>

namespace tarn::vkpublish {

QDateTime signingTime()
{
    bool tOk = false;
    const qint64 tSeconds = qgetenv("SOURCE_DATE_EPOCH").toLongLong(&tOk);
    return tOk && tSeconds >= 0 ? QDateTime::fromSecsSinceEpoch(tSeconds, Qt::UTC)
                                : QDateTime::currentDateTimeUtc();
}

} // namespace tarn::vkpublish
