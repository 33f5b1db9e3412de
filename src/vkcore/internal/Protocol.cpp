#include "internal/Protocol.h"

#include "internal/PlainText.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::vkcore::protocol {

namespace {

template <typename T>
bool readWhole(const QJsonObject& pFrom, const QString& pName, T* pTo)
{
    const QJsonValue tValue = pFrom.value(pName);
    // A number that is not whole, or too large for 64 bits, gives the default.
    const qint64 tNumber = tValue.toInteger(0);
    if (!tValue.isDouble() || tNumber != tValue.toInteger(1) || tNumber < std::numeric_limits<T>::min() ||
        tNumber > qint64{std::numeric_limits<T>::max()}) {
        return false;
    }
    *pTo = static_cast<T>(tNumber);
    return true;
}

bool readObject(const QJsonObject& pFrom, const QString& pName, QJsonObject* pTo)
{
    const QJsonValue tValue = pFrom.value(pName);
    *pTo = tValue.toObject();
    return tValue.isObject();
}

// Each letter d of the form stands for a digit.
bool hasDateForm(const QString& pText)
{
    static constexpr QLatin1String sForm("dddd-dd-ddTdd:dd:dd");
    return std::equal(pText.cbegin(), pText.cend(), sForm.begin(), sForm.end(), [](QChar pHas, char pWants) {
        return pWants == 'd' ? pHas >= u'0' && pHas <= u'9' : pHas == QLatin1Char(pWants);
    });
}

bool readAddresses(const QJsonObject& pFrom, const QString& pName, MonitoringEmailList* pTo)
{
    const QJsonValue tValue = pFrom.value(pName);
    if (!tValue.isArray()) {
        return false;
    }
    const QJsonArray tArray = tValue.toArray();
    for (const QJsonValue tEntry : tArray) {
        const QJsonObject tObject = tEntry.toObject();
        QString tAddress;
        bool tVerified = false;
        if (!read(tObject, u"address"_s, &tAddress) || !read(tObject, u"verified"_s, &tVerified)) {
            return false;
        }
        pTo->append(MonitoringEmail(tAddress, tVerified));
    }
    return true;
}

QJsonArray addressesToJson(const MonitoringEmailList& pList)
{
    QJsonArray tArray;
    for (const MonitoringEmail& tEmail : pList) {
        tArray.append(
            QJsonObject{{u"address"_s, toJson(tEmail.mAddress)}, {u"verified"_s, tEmail.isVerified()}});
    }
    return tArray;
}

QJsonObject clientToJson(const MonitoringSettings::ClientSettings& pSettings)
{
    return {
        {u"text1"_s, toJson(pSettings.mText1)}, {u"text2"_s, toJson(pSettings.mText2)},
        {u"text3"_s, toJson(pSettings.mText3)}, {u"text4"_s, toJson(pSettings.mText4)},
        {u"date1"_s, toJson(pSettings.mDate1)}, {u"date2"_s, toJson(pSettings.mDate2)},
    };
}

bool readClient(const QJsonObject& pFrom, MonitoringSettings::ClientSettings* pTo)
{
    return read(pFrom, u"text1"_s, &pTo->mText1) && read(pFrom, u"text2"_s, &pTo->mText2) &&
           read(pFrom, u"text3"_s, &pTo->mText3) && read(pFrom, u"text4"_s, &pTo->mText4) &&
           read(pFrom, u"date1"_s, &pTo->mDate1) && read(pFrom, u"date2"_s, &pTo->mDate2);
}

// Reads a value into the setter of a settings object.
template <typename T>
bool readInto(const QJsonObject& pFrom, const QString& pName, MonitoringSettings* pTo,
              void (MonitoringSettings::*pSetter)(T))
{
    std::remove_cvref_t<T> tValue{};
    if (!read(pFrom, pName, &tValue)) {
        return false;
    }
    (pTo->*pSetter)(tValue);
    return true;
}

QJsonObject call(const QString& pMethod, const QJsonObject& pParams)
{
    return {{u"jsonrpc"_s, u"2.0"_s}, {u"method"_s, pMethod}, {u"params"_s, pParams}};
}

} // namespace

bool isTooComplex(const QByteArray& pLine)
{
    int tDepth = 0;
    int tContainers = 0;
    bool tInText = false;
    for (qsizetype i = 0; i < pLine.size(); ++i) {
        const char tByte = pLine[i];
        if (tInText) {
            if (tByte == '\\') {
                ++i;
            } else {
                tInText = tByte != '"';
            }
        } else if (tByte == '"') {
            tInText = true;
        } else if (tByte == '{' || tByte == '[') {
            if (++tDepth > sMaxNesting || ++tContainers > sMaxContainers) {
                return true;
            }
        } else if (tByte == '}' || tByte == ']') {
            --tDepth;
        }
    }
    return false;
}

QByteArray toLine(const QJsonObject& pObject)
{
    return QJsonDocument(pObject).toJson(QJsonDocument::Compact) += '\n';
}

QJsonObject request(qint64 pId, const QString& pMethod, const QJsonObject& pParams)
{
    QJsonObject tObject = call(pMethod, pParams);
    tObject.insert("id"_L1, pId);
    return tObject;
}

QJsonObject result(qint64 pId, const QJsonValue& pResult)
{
    return {{u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, pId}, {u"result"_s, pResult}};
}

QJsonObject error(std::optional<qint64> pId, int pCode, const QString& pMessage)
{
    const QJsonObject tError{{u"code"_s, pCode}, {u"message"_s, singleLine(pMessage, sMaxMessage)}};
    return {{u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, pId ? QJsonValue(*pId) : QJsonValue()}, {u"error"_s, tError}};
}

QJsonObject event(const QString& pMethod, const QJsonObject& pParams)
{
    QJsonObject tParams = pParams;
    for (QJsonValueRef tValue : tParams) {
        if (tValue.isString()) {
            tValue = singleLine(tValue.toString(), sMaxMessage);
        }
    }
    return call(pMethod, tParams);
}

QJsonValue toJson(const QString& pText)
{
    return pText.isNull() ? QJsonValue() : QJsonValue(pText);
}

QJsonValue toJson(const QDateTime& pDate)
{
    return pDate.isValid() ? pDate.toLocalTime().toString(u"yyyy-MM-ddTHH:mm:ss"_s) : QJsonValue();
}

QJsonObject toJson(const NetProxy& pProxy)
{
    return {
        {u"enabled"_s, pProxy.mEnabled},
        {u"configured"_s, pProxy.mConfigured},
        {u"host"_s, toJson(pProxy.mHost)},
        {u"port"_s, qint64{pProxy.mPort}},
        {u"user"_s, toJson(pProxy.mUser)},
        {u"password"_s, toJson(pProxy.mPassword)},
        {u"passwordChanged"_s, pProxy.mPasswordChanged},
    };
}

QJsonObject toJson(const MonitoringSettings& pSettings)
{
    return {
        {u"eventMailsEnabled"_s, pSettings.eventMailsEnabled()},
        {u"eventMailOnUpdate"_s, pSettings.eventMailOnUpdate()},
        {u"eventMailOnOverdue"_s, pSettings.eventMailOnOverdue()},
        {u"eventMailOnManualIntervention"_s, pSettings.eventMailOnManualIntervention()},
        {u"summarizedMailsEnabled"_s, pSettings.summarizedMailsEnabled()},
        {u"summarizedMailsOnChangeOnly"_s, pSettings.summarizedMailsOnChangeOnly()},
        {u"summarizedMailPeriod"_s, pSettings.summarizedMailPeriod()},
        {u"updateOverduePeriod"_s, pSettings.updateOverduePeriod()},
        {u"clientName"_s, toJson(pSettings.clientName())},
        {u"notificationEmailAddresses"_s, addressesToJson(pSettings.notificationEmailAddresses())},
        {u"lastSummary"_s, toJson(pSettings.mLastSummary)},
        {u"clientSettings"_s, clientToJson(pSettings.mClientSettings)},
    };
}

QJsonObject toJson(const Server& pServer)
{
    QJsonObject tObject{
        {u"name"_s, toJson(pServer.getName())},
        {u"uri"_s, toJson(pServer.getUri())},
        {u"userName"_s, toJson(pServer.getUserName())},
        {u"enabled"_s, pServer.isEnabled()},
        {u"default"_s, pServer.isDefault()},
        {u"savePassword"_s, pServer.savePassword()},
    };
    if (pServer.getPassword()) {
        tObject.insert("password"_L1, toJson(*pServer.getPassword()));
    }
    return tObject;
}

bool read(const QJsonObject& pFrom, const QString& pName, bool* pTo)
{
    const QJsonValue tValue = pFrom.value(pName);
    if (!tValue.isBool()) {
        return false;
    }
    *pTo = tValue.toBool();
    return true;
}

bool read(const QJsonObject& pFrom, const QString& pName, int* pTo)
{
    return readWhole(pFrom, pName, pTo);
}

bool read(const QJsonObject& pFrom, const QString& pName, long long* pTo)
{
    return readWhole(pFrom, pName, pTo);
}

bool read(const QJsonObject& pFrom, const QString& pName, QString* pTo)
{
    const QJsonValue tValue = pFrom.value(pName);
    if (!tValue.isString() && !tValue.isNull()) {
        return false;
    }
    *pTo = tValue.isNull() ? QString() : tValue.toString();
    return true;
}

bool read(const QJsonObject& pFrom, const QString& pName, QDateTime* pTo)
{
    QString tText;
    if (!read(pFrom, pName, &tText)) {
        return false;
    }
    if (tText.isNull()) {
        *pTo = QDateTime();
        return true;
    }
    const QDateTime tDate =
        hasDateForm(tText) ? QDateTime::fromString(tText, u"yyyy-MM-ddTHH:mm:ss"_s) : QDateTime();
    if (!tDate.isValid()) {
        return false;
    }
    *pTo = tDate;
    return true;
}

bool read(const QJsonObject& pFrom, NetProxy* pTo)
{
    NetProxy tProxy(false, false);
    long long tPort = 0;
    if (!read(pFrom, u"enabled"_s, &tProxy.mEnabled) || !read(pFrom, u"configured"_s, &tProxy.mConfigured) ||
        !read(pFrom, u"host"_s, &tProxy.mHost) || !read(pFrom, u"port"_s, &tPort) ||
        !read(pFrom, u"user"_s, &tProxy.mUser) || !read(pFrom, u"password"_s, &tProxy.mPassword) ||
        !read(pFrom, u"passwordChanged"_s, &tProxy.mPasswordChanged) || tPort < 0 ||
        tPort > std::numeric_limits<quint16>::max()) {
        return false;
    }
    tProxy.mPort = static_cast<quint32>(tPort);
    *pTo = tProxy;
    return true;
}

bool read(const QJsonObject& pFrom, MonitoringSettings* pTo)
{
    using Settings = MonitoringSettings;
    MonitoringSettings tSettings;
    MonitoringEmailList tAddresses;
    QJsonObject tClient;
    const bool tOk =
        readInto(pFrom, u"eventMailsEnabled"_s, &tSettings, &Settings::setEventMailsEnabled) &&
        readInto(pFrom, u"eventMailOnUpdate"_s, &tSettings, &Settings::setEventMailOnUpdate) &&
        readInto(pFrom, u"eventMailOnOverdue"_s, &tSettings, &Settings::setEventMailOnOverdue) &&
        readInto(pFrom, u"eventMailOnManualIntervention"_s, &tSettings,
                 &Settings::setEventMailOnManualIntervention) &&
        readInto(pFrom, u"summarizedMailsEnabled"_s, &tSettings, &Settings::setSummarizedMailsEnabled) &&
        readInto(pFrom, u"summarizedMailsOnChangeOnly"_s, &tSettings,
                 &Settings::setSummarizedMailsOnChangeOnly) &&
        readInto(pFrom, u"summarizedMailPeriod"_s, &tSettings, &Settings::setSummarizedMailPeriod) &&
        readInto(pFrom, u"updateOverduePeriod"_s, &tSettings, &Settings::setUpdateOverduePeriod) &&
        readInto(pFrom, u"clientName"_s, &tSettings, &Settings::setClientName) &&
        readAddresses(pFrom, u"notificationEmailAddresses"_s, &tAddresses) &&
        read(pFrom, u"lastSummary"_s, &tSettings.mLastSummary) &&
        readObject(pFrom, u"clientSettings"_s, &tClient) && readClient(tClient, &tSettings.mClientSettings);
    if (!tOk) {
        return false;
    }
    tSettings.setNotificationEmailAddresses(tAddresses);
    *pTo = tSettings;
    return true;
}

bool read(const QJsonObject& pFrom, Server* pTo)
{
    QString tName;
    QString tUri;
    QString tUserName;
    bool tEnabled = false;
    bool tDefault = false;
    bool tSavePassword = false;
    QString tPassword;
    const bool tHasPassword = pFrom.contains("password"_L1);
    if (!read(pFrom, u"name"_s, &tName) || !read(pFrom, u"uri"_s, &tUri) ||
        !read(pFrom, u"userName"_s, &tUserName) || !read(pFrom, u"enabled"_s, &tEnabled) ||
        !read(pFrom, u"default"_s, &tDefault) || !read(pFrom, u"savePassword"_s, &tSavePassword) ||
        (tHasPassword && !read(pFrom, u"password"_s, &tPassword))) {
        return false;
    }
    pTo->setName(tName);
    pTo->setUri(tUri);
    pTo->setUserName(tUserName);
    pTo->setEnabled(tEnabled);
    pTo->setDefault(tDefault);
    pTo->setSavePassword(tSavePassword);
    if (tHasPassword) {
        pTo->setPassword(tPassword);
    }
    return true;
}

} // namespace tarn::vkcore::protocol
