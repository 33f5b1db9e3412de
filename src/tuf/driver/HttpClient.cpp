#include "HttpClient.h"

#include <curl/curl.h>

#include <array>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

constexpr long sConnectSeconds = 30;
constexpr long sStallSeconds = 30;

} // namespace

struct HttpClient::Transfer
{
    qint64 mRoom;
    const Sink& mSink;
    bool mTooLong = false;
    bool mSinkFailed = false;

    static size_t take(char* pData, size_t pSize, size_t pCount, void* pSelf)
    {
        auto* tSelf = static_cast<Transfer*>(pSelf);
        const size_t tBytes = pSize * pCount;
        const auto tLength = static_cast<qint64>(tBytes);
        tSelf->mTooLong = tLength > tSelf->mRoom;
        if (tSelf->mTooLong) {
            return 0;
        }
        tSelf->mRoom -= tLength;
        tSelf->mSinkFailed = !tSelf->mSink(QByteArrayView(pData, tLength));
        return tSelf->mSinkFailed ? 0 : tBytes;
    }
};

HttpClient::HttpClient()
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    mCurl = curl_easy_init();
}

HttpClient::~HttpClient()
{
    curl_easy_cleanup(mCurl);
    curl_global_cleanup();
}

Failure HttpClient::get(const QString& pUrl, qint64 pMaxLength, const Sink& pSink)
{
    Transfer tTransfer{pMaxLength, pSink};
    std::array<char, CURL_ERROR_SIZE> tReason{};
    curl_easy_reset(mCurl);
    curl_easy_setopt(mCurl, CURLOPT_URL, pUrl.toUtf8().constData());
    curl_easy_setopt(mCurl, CURLOPT_PROTOCOLS_STR, "http,https");
    // Names arrive percent-encoded, and a server is to be asked for exactly these.
    curl_easy_setopt(mCurl, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(mCurl, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(mCurl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(mCurl, CURLOPT_CONNECTTIMEOUT, sConnectSeconds);
    curl_easy_setopt(mCurl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(mCurl, CURLOPT_LOW_SPEED_TIME, sStallSeconds);
    curl_easy_setopt(mCurl, CURLOPT_ERRORBUFFER, tReason.data());
    curl_easy_setopt(mCurl, CURLOPT_WRITEFUNCTION, Transfer::take);
    curl_easy_setopt(mCurl, CURLOPT_WRITEDATA, &tTransfer);
    const CURLcode tCode = curl_easy_perform(mCurl);
    if (tCode == CURLE_OK) {
        return Failure();
    }
    long tStatus = 0;
    curl_easy_getinfo(mCurl, CURLINFO_RESPONSE_CODE, &tStatus);
    Failure tFailure{Failure::Kind::Unreachable,
                     u"%1 can't be fetched: %2"_s.arg(pUrl, QString::fromLocal8Bit(tReason.data()))};
    if (tTransfer.mTooLong) {
        tFailure =
            Failure{Failure::Kind::Untrusted, u"%1 has more than %2 bytes"_s.arg(pUrl).arg(pMaxLength)};
    } else if (tTransfer.mSinkFailed) {
        tFailure = Failure{Failure::Kind::Damaged, u"%1 can't be stored"_s.arg(pUrl)};
    } else if (tStatus == 403 || tStatus == 404) {
        tFailure.mKind = Failure::Kind::NotFound;
    }
    return tFailure;
}

} // namespace tarn::tuf
