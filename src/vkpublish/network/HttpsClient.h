#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

#include <chrono>

namespace tarn::vkpublish {

class Receiver;

// How to reach a folder of a web server. A proxy is from the environment.
struct HttpsAccess
{
    QString mFolder = {}; // its address, which begins with https://
    // The only certificate authorities to trust; empty: those of the system.
    QString mCaFile = {};
    QString mNetrcFile = {};    // user and password; empty: ~/.netrc
    qint64 mBytesPerSecond = 0; // 0: no limit
};

// Gets files from a web server, over https only and on one connection.
class HttpsClient
{
public:
    enum class Size
    {
        Small, // takes at most two minutes, and what the limit of the rate adds
        Large, // takes as long as bytes come
    };

    explicit HttpsClient(HttpsAccess pAccess);
    ~HttpsClient();
    HttpsClient(const HttpsClient&) = delete;
    HttpsClient& operator=(const HttpsClient&) = delete;

    // pPath: below the folder, percent-encoded. Kind::Unreachable if another attempt may succeed, NotFound
    // for the statuses 403 and 404, NoServer for what only a person can change. A failure of pTo is returned
    // as it is.
    Failure get(const QString& pPath, Size pSize, Receiver& pTo);

private:
    using Clock = std::chrono::steady_clock;
    struct Transfer;
    bool setUp(const QByteArray& pUrl, Size pSize);
    void keepRate(qint64 pBytes);

    HttpsAccess mAccess;
    void* mCurl;             // CURL
    Clock::time_point mNext; // when bytes may be taken again
};

} // namespace tarn::vkpublish
