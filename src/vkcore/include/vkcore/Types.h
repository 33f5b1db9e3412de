#pragma once

#include <vkcore/Export.h>

#include <QtCore/QMetaType>
#include <QtCore/QString>

class QDataStream;
class QDebug;

namespace tarn::vkcore {

// The state of the service's updates.
enum ServiceStatus : int
{
    StatusIdle = 0,
    StatusSuppressed = 1,
    StatusUpdating = 2,
    StatusAborting = 3,
    StatusError = 4,
};

// What a running update is doing.
enum ServiceActivity : int
{
    ActivityNone = 0,
    ActivityDownloading = 1,
    ActivityVerifying = 2,
    ActivityWaitingForApps = 3,
    ActivityPreparing = 4,
    ActivityInstalling = 5,
    ActivityRemovingObsolete = 6,
};

// Both travel as a 32-bit int, and the debug stream prints the number.
VKCORE_EXPORT QDataStream& operator<<(QDataStream& pStream, ServiceStatus pStatus);
VKCORE_EXPORT QDataStream& operator>>(QDataStream& pStream, ServiceStatus& pStatus);
VKCORE_EXPORT QDebug operator<<(QDebug pStream, ServiceStatus pStatus);
VKCORE_EXPORT QDataStream& operator<<(QDataStream& pStream, ServiceActivity pActivity);
VKCORE_EXPORT QDataStream& operator>>(QDataStream& pStream, ServiceActivity& pActivity);
VKCORE_EXPORT QDebug operator<<(QDebug pStream, ServiceActivity pActivity);

class VKCORE_EXPORT Types
{
public:
    // The activity's name for the log ("downloading"); the number as text for an unknown value.
    static QString serviceActivityToStr(ServiceActivity pActivity);
};

} // namespace tarn::vkcore

Q_DECLARE_METATYPE(tarn::vkcore::ServiceStatus)
Q_DECLARE_METATYPE(tarn::vkcore::ServiceActivity)
