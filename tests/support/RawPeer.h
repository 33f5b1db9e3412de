#pragma once

#include "Text.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <optional>

// An object, also given as the text of one: R"({"a": 1})".
class Json : public QJsonObject
{
public:
    Json() = default;
    Json(const QByteArray& pText) : QJsonObject(QJsonDocument::fromJson(pText).object()) {}
    Json(const char* pText) : Json(QByteArray(pText)) {}
    Json(const QJsonObject& pObject) : QJsonObject(pObject) {}
    Json(std::initializer_list<QPair<QString, QJsonValue>> pMembers) : QJsonObject(pMembers) {}
};

// A client that knows sockets and lines only, so it can also send what no proper client would.
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
    // False if the service has hung up.
    bool send(const QByteArray& pBytes) const;
    void sendRequest(const Text& pMethod, const Json& pParams = {}, qint64 pId = 1) const;

    // The next line; none when the service has hung up or the time is over.
    std::optional<QByteArray> readLine(int pTimeoutMs = 20000);
    // Waits for the end of the connection and drops what comes before it.
    bool waitForEnd(int pTimeoutMs = 20000);

    // The answer to one request: its "result"; an object {"code", "message"} of an error is in *pError.
    // Events that come before it are dropped.
    QJsonValue call(const Text& pMethod, const Json& pParams = {}, QJsonObject* pError = nullptr);
    // The code of the error that answers the request, 0 for a result.
    int errorOf(const Text& pMethod, const Json& pParams = {});
    // The next event: {"method", "params"}, an empty object if none comes.
    QJsonObject event(int pTimeoutMs = 20000);
    // Reads on to an event with this method and, where it is given, this member in its parameters.
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
