#include "control/MachineId.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>
#include <QtCore/QSysInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

QByteArray machineId()
{
    QFile tFile(u"/etc/machine-id"_s);
    const QByteArray tId = tFile.open(QIODevice::ReadOnly) ? tFile.readLine().trimmed() : QByteArray();
    return tId.isEmpty() ? QSysInfo::machineHostName().toUtf8() : tId;
}

QByteArray phaseSeed()
{
    return QCryptographicHash::hash("vkservice phases\n" + machineId(), QCryptographicHash::Sha256).toHex();
}

} // namespace tarn::vkservice::control
