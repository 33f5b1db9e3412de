#pragma once

#include <vkcore/MonitoringEmail.h>

#include <QtCore/QString>

namespace tarn::vkservice::mail {

// local@domain.tld in ASCII, at most 254 characters, of letters, digits and . _ % + - in front of the @.
// Stricter than the mail standards on purpose: such an address is safe in any command or header without
// quoting.
bool isMailAddress(const QString& pAddress);

// The normal form of an address: two spellings of the same address have the same one.
QString addressKey(const QString& pAddress);

// A sender as in the configuration: "ADDRESS" or "NAME <ADDRESS>".
struct Sender
{
    QString mName;
    QString mAddress; // empty if there is no usable address; the host may lack a dot

    static Sender fromString(const QString& pText);
};

// pNew with the flags of pOld: only an address that was already verified is verified in the result, whatever
// flags a client sent.
vkcore::MonitoringEmailList keepVerified(const vkcore::MonitoringEmailList& pOld,
                                         const vkcore::MonitoringEmailList& pNew);
// The list with pAddress marked as verified.
vkcore::MonitoringEmailList markVerified(const vkcore::MonitoringEmailList& pList, const QString& pAddress);

} // namespace tarn::vkservice::mail
