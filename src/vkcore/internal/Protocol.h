#pragma once

#include <vkcore/MonitoringSettings.h>
#include <vkcore/NetProxy.h>
#include <vkcore/Scheduler.h>
#include <vkcore/Server.h>
#include <vkcore/ServerList.h>
#include <vkcore/Types.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QString>

#include <optional>

// The lines of the service socket: JSON-RPC 2.0, one object a line. Both ends make and read their
// values with the same functions.
namespace tarn::vkcore::protocol {

inline constexpr int sVersion = 1;
inline constexpr qsizetype sMaxLine = 8 * 1024 * 1024; // bytes, without the line end
inline constexpr int sMaxNesting = 64;
inline constexpr int sMaxContainers = 250'000;

enum ErrorCode : int
{
    ParseError = -32700,
    InvalidRequest = -32600,
    MethodNotFound = -32601,
    InvalidParams = -32602,
    Refused = 1, // not permitted to this peer, or not possible now
};

// Deeper than sMaxNesting objects and arrays, or more than sMaxContainers of them, each of which takes a
// parser many times its bytes? Looks at the bytes only, so that it can come before the parser.
bool isTooComplex(const QByteArray& pLine);

// One compact line with its line end.
QByteArray toLine(const QJsonObject& pObject);
QJsonObject request(qint64 pId, const QString& pMethod, const QJsonObject& pParams);
QJsonObject result(qint64 pId, const QJsonValue& pResult);
// The texts of errors and events are for people: they go out as singleLine, whatever they quote.
// pId none: an error that answers no particular request (id null).
QJsonObject error(std::optional<qint64> pId, int pCode, const QString& pMessage);
QJsonObject event(const QString& pMethod, const QJsonObject& pParams);

// A null text is null, and back.
QJsonValue toJson(const QString& pText);
// yyyy-MM-ddTHH:mm:ss in local time, an invalid date null.
QJsonValue toJson(const QDateTime& pDate);
QJsonObject toJson(const NetProxy& pProxy);
QJsonObject toJson(const MonitoringSettings& pSettings);
// As in the server list: with a member "password" only where the entry has one set.
QJsonObject toJson(const Server& pServer);

// The readers give false for a missing member or one of another type, and then leave *pTo alone.
// A number has to be whole and in range; unknown members are ignored.
bool read(const QJsonObject& pFrom, const QString& pName, bool* pTo);
bool read(const QJsonObject& pFrom, const QString& pName, int* pTo);
bool read(const QJsonObject& pFrom, const QString& pName, long long* pTo);
bool read(const QJsonObject& pFrom, const QString& pName, QString* pTo);   // a text or null
bool read(const QJsonObject& pFrom, const QString& pName, QDateTime* pTo); // a date or null
bool read(const QJsonObject& pFrom, NetProxy* pTo);
bool read(const QJsonObject& pFrom, MonitoringSettings* pTo);
bool read(const QJsonObject& pFrom, Server* pTo);

} // namespace tarn::vkcore::protocol
