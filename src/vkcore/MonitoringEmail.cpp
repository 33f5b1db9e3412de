#include <vkcore/MonitoringEmail.h>

namespace tarn::vkcore {

MonitoringEmail::MonitoringEmail(const QString& pAddress, bool pVerified)
    : mAddress(pAddress), mVerified(pVerified)
{
}

MonitoringEmailList::MonitoringEmailList(const QList<QString>& pAddresses)
{
    reserve(pAddresses.size());
    for (const QString& tAddress : pAddresses) {
        append(MonitoringEmail(tAddress));
    }
}

} // namespace tarn::vkcore
