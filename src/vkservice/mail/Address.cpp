#include "mail/Address.h"

#include "internal/PlainText.h"

#include <QtCore/QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::singleLine;

namespace {

// Case-insensitive regular expressions match some letters outside ASCII; this does not.
bool isAsciiLetter(QChar pChar)
{
    const char16_t tLower = pChar.unicode() | 0x20;
    return tLower >= u'a' && tLower <= u'z';
}

bool consistsOf(QStringView pText, QLatin1String pOthers)
{
    for (const QChar tChar : pText) {
        const bool tDigit = tChar >= u'0' && tChar <= u'9';
        if (!isAsciiLetter(tChar) && !tDigit && !pOthers.contains(tChar)) {
            return false;
        }
    }
    return !pText.isEmpty();
}

bool endsInTopLevel(QStringView pDomain)
{
    const QStringView tTop = pDomain.mid(pDomain.lastIndexOf(u'.') + 1);
    if (tTop.size() < 2 || tTop.size() == pDomain.size()) {
        return false;
    }
    return std::all_of(tTop.begin(), tTop.end(), isAsciiLetter);
}

bool isAddressOnAnyHost(const QString& pAddress)
{
    const qsizetype tAt = pAddress.indexOf(u'@');
    return tAt > 0 && tAt <= 64 && pAddress.size() <= 254 &&
           consistsOf(QStringView(pAddress).left(tAt), "._%+-"_L1) &&
           consistsOf(QStringView(pAddress).mid(tAt + 1), ".-"_L1);
}

} // namespace

bool isMailAddress(const QString& pAddress)
{
    return isAddressOnAnyHost(pAddress) &&
           endsInTopLevel(QStringView(pAddress).mid(pAddress.indexOf(u'@') + 1));
}

QString addressKey(const QString& pAddress)
{
    return pAddress.toLower();
}

Sender Sender::fromString(const QString& pText)
{
    const QString tText = pText.trimmed();
    Sender tSender;
    const qsizetype tOpen = tText.lastIndexOf(u'<');
    if (tOpen >= 0 && tText.endsWith(u'>')) {
        tSender.mName = singleLine(tText.left(tOpen), 64);
        tSender.mAddress = tText.mid(tOpen + 1).chopped(1);
    } else {
        tSender.mAddress = tText;
    }
    if (!isAddressOnAnyHost(tSender.mAddress)) {
        tSender.mAddress.clear();
    }
    return tSender;
}

vkcore::MonitoringEmailList keepVerified(const vkcore::MonitoringEmailList& pOld,
                                         const vkcore::MonitoringEmailList& pNew)
{
    QSet<QString> tVerified;
    for (const vkcore::MonitoringEmail& tEntry : pOld) {
        if (tEntry.isVerified()) {
            tVerified.insert(addressKey(tEntry.mAddress));
        }
    }
    vkcore::MonitoringEmailList tResult;
    for (const vkcore::MonitoringEmail& tEntry : pNew) {
        tResult.append(
            vkcore::MonitoringEmail(tEntry.mAddress, tVerified.contains(addressKey(tEntry.mAddress))));
    }
    return tResult;
}

vkcore::MonitoringEmailList markVerified(const vkcore::MonitoringEmailList& pList, const QString& pAddress)
{
    vkcore::MonitoringEmailList tResult;
    for (const vkcore::MonitoringEmail& tEntry : pList) {
        const bool tSame = addressKey(tEntry.mAddress) == addressKey(pAddress);
        tResult.append(vkcore::MonitoringEmail(tEntry.mAddress, tSame || tEntry.isVerified()));
    }
    return tResult;
}

} // namespace tarn::vkservice::mail
