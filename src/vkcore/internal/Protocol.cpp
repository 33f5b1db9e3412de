#include "internal/Protocol.h"

#include "internal/PlainText.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <algorithm>
#include <limits>

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
        return pWants == 'd' ? pHas >= QLatin1Char('0') && pHas <= QLatin1Char('9')
                             : pHas == QLatin1Char(pWants);
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
        if (!read(tObject, QStringLiteral("address"), &tAddress) ||
            !read(tObject, QStringLiteral("verified"), &tVerified)) {
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
        tArray.append(QJsonObject{{QStringLiteral("address"), toJson(tEmail.mAddress)},
                                  {QStringLiteral("verified"), tEmail.isVerified()}});
    }
    return tArray;
}

QJsonObject clientToJson(const MonitoringSettings::ClientSettings& pSettings)
{
    return {
        {QStringLiteral("text1"), toJson(pSettings.mText1)},
        {QStringLiteral("text2"), toJson(pSettings.mText2)},
        {QStringLiteral("text3"), toJson(pSettings.mText3)},
        {QStringLiteral("text4"), toJson(pSettings.mText4)},
        {QStringLiteral("date1"), toJson(pSettings.mDate1)},
        {QStringLiteral("date2"), toJson(pSettings.mDate2)},
    };
}

bool readClient(const QJsonObject& pFrom, MonitoringSettings::ClientSettings* pTo)
{
    return read(pFrom, QStringLiteral("text1"), &pTo->mText1) &&
           read(pFrom, QStringLiteral("text2"), &pTo->mText2) &&
           read(pFrom, QStringLiteral("text3"), &pTo->mText3) &&
           read(pFrom, QStringLiteral("text4"), &pTo->mText4) &&
           read(pFrom, QStringLiteral("date1"), &pTo->mDate1) &&
           read(pFrom, QStringLiteral("date2"), &pTo->mDate2);
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
    return {{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
            {QStringLiteral("method"), pMethod},
            {QStringLiteral("params"), pParams}};
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
    tObject.insert(QLatin1String("id"), pId);
    return tObject;
}

QJsonObject result(qint64 pId, const QJsonValue& pResult)
{
    return {{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
            {QStringLiteral("id"), pId},
            {QStringLiteral("result"), pResult}};
}

QJsonObject error(std::optional<qint64> pId, int pCode, const QString& pMessage)
{
    const QJsonObject tError{{QStringLiteral("code"), pCode},
                             {QStringLiteral("message"), singleLine(pMessage, sMaxMessage)}};
    return {{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
            {QStringLiteral("id"), pId ? QJsonValue(*pId) : QJsonValue()},
            {QStringLiteral("error"), tError}};
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
    return pDate.isValid() ? pDate.toLocalTime().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"))
                           : QJsonValue();
}

QJsonObject toJson(const NetProxy& pProxy)
{
    return {
        {QStringLiteral("enabled"), pProxy.mEnabled},
        {QStringLiteral("configured"), pProxy.mConfigured},
        {QStringLiteral("host"), toJson(pProxy.mHost)},
        {QStringLiteral("port"), qint64{pProxy.mPort}},
        {QStringLiteral("user"), toJson(pProxy.mUser)},
        {QStringLiteral("password"), toJson(pProxy.mPassword)},
        {QStringLiteral("passwordChanged"), pProxy.mPasswordChanged},
    };
}

QJsonObject toJson(const MonitoringSettings& pSettings)
{
    return {
        {QStringLiteral("eventMailsEnabled"), pSettings.eventMailsEnabled()},
        {QStringLiteral("eventMailOnUpdate"), pSettings.eventMailOnUpdate()},
        {QStringLiteral("eventMailOnOverdue"), pSettings.eventMailOnOverdue()},
        {QStringLiteral("eventMailOnManualIntervention"), pSettings.eventMailOnManualIntervention()},
        {QStringLiteral("summarizedMailsEnabled"), pSettings.summarizedMailsEnabled()},
        {QStringLiteral("summarizedMailsOnChangeOnly"), pSettings.summarizedMailsOnChangeOnly()},
        {QStringLiteral("summarizedMailPeriod"), pSettings.summarizedMailPeriod()},
        {QStringLiteral("updateOverduePeriod"), pSettings.updateOverduePeriod()},
        {QStringLiteral("clientName"), toJson(pSettings.clientName())},
        {QStringLiteral("notificationEmailAddresses"),
         addressesToJson(pSettings.notificationEmailAddresses())},
        {QStringLiteral("lastSummary"), toJson(pSettings.mLastSummary)},
        {QStringLiteral("clientSettings"), clientToJson(pSettings.mClientSettings)},
    };
}

QJsonObject toJson(const Server& pServer)
{
    QJsonObject tObject{
        {QStringLiteral("name"), toJson(pServer.getName())},
        {QStringLiteral("uri"), toJson(pServer.getUri())},
        {QStringLiteral("userName"), toJson(pServer.getUserName())},
        {QStringLiteral("enabled"), pServer.isEnabled()},
        {QStringLiteral("default"), pServer.isDefault()},
        {QStringLiteral("savePassword"), pServer.savePassword()},
    };
    if (pServer.getPassword()) {
        tObject.insert(QLatin1String("password"), toJson(*pServer.getPassword()));
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
    const QDateTime tDate = hasDateForm(tText)
                                ? QDateTime::fromString(tText, QStringLiteral("yyyy-MM-ddTHH:mm:ss"))
                                : QDateTime();
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
    if (!read(pFrom, QStringLiteral("enabled"), &tProxy.mEnabled) ||
        !read(pFrom, QStringLiteral("configured"), &tProxy.mConfigured) ||
        !read(pFrom, QStringLiteral("host"), &tProxy.mHost) || !read(pFrom, QStringLiteral("port"), &tPort) ||
        !read(pFrom, QStringLiteral("user"), &tProxy.mUser) ||
        !read(pFrom, QStringLiteral("password"), &tProxy.mPassword) ||
        !read(pFrom, QStringLiteral("passwordChanged"), &tProxy.mPasswordChanged) || tPort < 0 ||
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
        readInto(pFrom, QStringLiteral("eventMailsEnabled"), &tSettings, &Settings::setEventMailsEnabled) &&
        readInto(pFrom, QStringLiteral("eventMailOnUpdate"), &tSettings, &Settings::setEventMailOnUpdate) &&
        readInto(pFrom, QStringLiteral("eventMailOnOverdue"), &tSettings, &Settings::setEventMailOnOverdue) &&
        readInto(pFrom, QStringLiteral("eventMailOnManualIntervention"), &tSettings,
                 &Settings::setEventMailOnManualIntervention) &&
        readInto(pFrom, QStringLiteral("summarizedMailsEnabled"), &tSettings,
                 &Settings::setSummarizedMailsEnabled) &&
        readInto(pFrom, QStringLiteral("summarizedMailsOnChangeOnly"), &tSettings,
                 &Settings::setSummarizedMailsOnChangeOnly) &&
        readInto(pFrom, QStringLiteral("summarizedMailPeriod"), &tSettings,
                 &Settings::setSummarizedMailPeriod) &&
        readInto(pFrom, QStringLiteral("updateOverduePeriod"), &tSettings,
                 &Settings::setUpdateOverduePeriod) &&
        readInto(pFrom, QStringLiteral("clientName"), &tSettings, &Settings::setClientName) &&
        readAddresses(pFrom, QStringLiteral("notificationEmailAddresses"), &tAddresses) &&
        read(pFrom, QStringLiteral("lastSummary"), &tSettings.mLastSummary) &&
        readObject(pFrom, QStringLiteral("clientSettings"), &tClient) &&
        readClient(tClient, &tSettings.mClientSettings);
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
    const bool tHasPassword = pFrom.contains(QLatin1String("password"));
    if (!read(pFrom, QStringLiteral("name"), &tName) || !read(pFrom, QStringLiteral("uri"), &tUri) ||
        !read(pFrom, QStringLiteral("userName"), &tUserName) ||
        !read(pFrom, QStringLiteral("enabled"), &tEnabled) ||
        !read(pFrom, QStringLiteral("default"), &tDefault) ||
        !read(pFrom, QStringLiteral("savePassword"), &tSavePassword) ||
        (tHasPassword && !read(pFrom, QStringLiteral("password"), &tPassword))) {
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
