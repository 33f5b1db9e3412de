#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArrayView>
#include <QtCore/QString>

#include <functional>
#include <memory>

namespace tarn::tuf {

// Gets files over http or https, one after the other on one connection.
class HttpClient
{
public:
    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // Receives a piece of the file; false ends the transfer as a failure of this machine.
    using Sink = std::function<bool(QByteArrayView pPiece)>;

    // A file of more than pMaxLength bytes is Failure::Kind::Untrusted, and pSink never sees more than that.
    Failure get(const QString& pUrl, qint64 pMaxLength, const Sink& pSink);

private:
    struct Transfer;

    void* mCurl = nullptr;
};

} // namespace tarn::tuf
