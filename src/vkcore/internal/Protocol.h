#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QString>

#include <optional>

// The lines of the service socket: JSON-RPC 2.0, one object per line. Values.h defines their content.
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

// Whether the line nests deeper than sMaxNesting objects and arrays, or has more than sMaxContainers of them,
// each of which takes many times its size to parse. Checks the bytes before parsing.
bool isTooComplex(const QByteArray& pLine);

// One compact line with its line end.
QByteArray toLine(const QJsonObject& pObject);
QJsonObject request(qint64 pId, const QString& pMethod, const QJsonObject& pParams);
QJsonObject result(qint64 pId, const QJsonValue& pResult);
// The texts of errors and events are for people, so they are sent as singleLine. pId none: an error that
// answers no particular request (id null).
QJsonObject error(std::optional<qint64> pId, int pCode, const QString& pMessage);
QJsonObject event(const QString& pMethod, const QJsonObject& pParams);

} // namespace tarn::vkcore::protocol
