#pragma once

#include "Text.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <optional>

// An object, also given as JSON text: R"({"a": 1})".
class Json : public QJsonObject
{
public:
    Json() = default;
    Json(const QByteArray& pText) : QJsonObject(QJsonDocument::fromJson(pText).object()) {}
    Json(const char* pText) : Json(QByteArray(pText)) {}
    Json(const QJsonObject& pObject) : QJsonObject(pObject) {}
    Json(std::initializer_list<QPair<QString, QJsonValue>> pMembers) : QJsonObject(pMembers) {}
};

// A client on the level of sockets and lines, which can also send what a correct client would not.
class RawPeer
{
public:
    explicit RawPeer(const QString& pSocket, int pTimeoutMs = 10000);
    ~RawPeer();
    RawPeer(RawPeer&& pOther) noexcept;
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    bool isConnected() const { return mFd >= 0; }
    int descriptor() const { return mFd; }
    // False if the service has closed the connection.
    bool send(const QByteArray& pBytes) const;
    void sendRequest(const Text& pMethod, const Json& pParams = {}, qint64 pId = 1) const;

    // The next line; none if the service has closed the connection, or on timeout.
    std::optional<QByteArray> readLine(int pTimeoutMs = 20000);
    // Waits for the end of the connection and drops all data before it.
    bool waitForEnd(int pTimeoutMs = 20000);

    // The "result" of one request; on an error, *pError is its object {"code", "message"}. Drops events
    // before the answer.
    QJsonValue call(const Text& pMethod, const Json& pParams = {}, QJsonObject* pError = nullptr);
    // The error code of the answer, 0 for a result.
    int errorOf(const Text& pMethod, const Json& pParams = {});
    // The next event: {"method", "params"}, or an empty object on timeout.
    QJsonObject event(int pTimeoutMs = 20000);
    // Reads up to an event with this method and, if given, this member in its parameters.
    bool waitForEvent(const Text& pMethod, const Text& pMember = {}, const QJsonValue& pValue = {});

private:
    enum class Read
    {
        Bytes,
        End,
        Late,
    };
    Read readSome(const QDeadlineTimer& pDeadline);

    int mFd = -1;
    QByteArray mInput;
    qint64 mNextId = 1000;
};
