#pragma once

#include <vkcore/MonitoringEmail.h>

#include <QtCore/QString>

namespace tarn::vkservice::mail {

// local@domain.tld in ASCII, at most 254 characters, of letters, digits and . _ % + - in front of the @.
// Stricter than the mail standards on purpose: such an address can stand in any command or header as it is.
bool isMailAddress(const QString& pAddress);

// What makes two spellings the same address.
QString addressKey(const QString& pAddress);

// A sender as it stands in the configuration: "ADDRESS" or "NAME <ADDRESS>".
struct Sender
{
    QString mName;
    QString mAddress; // empty if the text holds no usable address; may lie on a host without a dot

    static Sender fromString(const QString& pText);
};

// pNew with the flags of pOld: only an address that was verified before is so in the result, whatever
// flags a client sent along.
vkcore::MonitoringEmailList keepVerified(const vkcore::MonitoringEmailList& pOld,
                                         const vkcore::MonitoringEmailList& pNew);
// The list with pAddress marked as verified.
vkcore::MonitoringEmailList markVerified(const vkcore::MonitoringEmailList& pList, const QString& pAddress);

} // namespace tarn::vkservice::mail
