#pragma once

#include <vkcore/Export.h>

#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkcore {

// An address that the service's mails go to. Only the service marks one as verified.
class VKCORE_EXPORT MonitoringEmail
{
public:
    MonitoringEmail() = default;
    explicit MonitoringEmail(const QString& pAddress, bool pVerified = false);

    bool isVerified() const { return mVerified; }

    QString mAddress;

    bool operator==(const MonitoringEmail&) const = default;

private:
    bool mVerified = false;
};

class VKCORE_EXPORT MonitoringEmailList : public QList<MonitoringEmail>
{
public:
    MonitoringEmailList() = default;
    // One unverified entry for each address. The service keeps the flag of an address that is in its old
    // list, too.
    explicit MonitoringEmailList(const QList<QString>& pAddresses);
};

} // namespace tarn::vkcore
