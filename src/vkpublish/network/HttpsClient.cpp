#include "network/HttpsClient.h"

#include "network/Receiver.h"

#include "net/TlsTrust.h"

#include <QtCore/QFile>

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr long sConnectSeconds = 30;
constexpr long sSmallFileSeconds = 120;
constexpr qint64 sMostSmallBytes = 16 * 1024 * 1024; // of which a rate limit makes more seconds
constexpr qint64 sSlowBytesPerSecond = 1000;         // slower than this
constexpr long sSlowSeconds = 60;                    // for this long is too slow
constexpr long sMaxRedirects = 5;

constexpr long sOk = 200;
constexpr long sPartial = 206;
constexpr long sRangeNotSatisfiable = 416;

bool isForPerson(CURLcode pCode, long pStatus)
{
    const bool tIsRefusal = pStatus >= 400 && pStatus < 500 && pStatus != 408 && pStatus != 429;
    return tIsRefusal || pCode == CURLE_PEER_FAILED_VERIFICATION || pCode == CURLE_SSL_CACERT_BADFILE ||
           pCode == CURLE_UNSUPPORTED_PROTOCOL;
}

Failure::Kind kindOf(CURLcode pCode, long pStatus)
{
    if (pStatus == 403 || pStatus == 404) {
        return Failure::Kind::NotFound;
    }
    return isForPerson(pCode, pStatus) ? Failure::Kind::NoServer : Failure::Kind::Unreachable;
}

} // namespace

struct HttpsClient::Transfer
{
    HttpsClient& mClient;
    CURL* mCurl;
    Receiver& mTo;
    qint64 mFrom; // the first byte that was asked for
    bool mBegun = false;
    bool mRefused = false;
    Failure mFailure = {};

    long status() const
    {
        long tStatus = 0;
        curl_easy_getinfo(mCurl, CURLINFO_RESPONSE_CODE, &tStatus);
        return tStatus;
    }

    bool rangeIsRight() const
    {
        curl_header* tHeader = nullptr;
        const QByteArray tWanted = "bytes " + QByteArray::number(mFrom) + '-';
        return mFrom > 0 &&
               curl_easy_header(mCurl, "Content-Range", 0, CURLH_HEADER, -1, &tHeader) == CURLHE_OK &&
               QByteArray(tHeader->value).startsWith(tWanted);
    }

    void begin()
    {
        mBegun = true;
        if (status() == sOk && mFrom > 0) {
            mFailure = mTo.restart(); // a server that knows no ranges sends the whole file
        }
        mRefused = status() != sOk && (status() != sPartial || !rangeIsRight());
    }

    static size_t take(char* pData, size_t pOne, size_t pSize, void* pSelf)
    {
        auto* tSelf = static_cast<Transfer*>(pSelf);
        if (!tSelf->mBegun) {
            tSelf->begin();
        }
        if (tSelf->mFailure || tSelf->mRefused) {
            return 0;
        }
        tSelf->mClient.keepRate(static_cast<qint64>(pOne * pSize));
        tSelf->mFailure = tSelf->mTo.write({pData, static_cast<qsizetype>(pOne * pSize)});
        return tSelf->mFailure ? 0 : pOne * pSize;
    }
};

HttpsClient::HttpsClient(HttpsAccess pAccess) : mAccess(std::move(pAccess))
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    mCurl = curl_easy_init();
}

HttpsClient::~HttpsClient()
{
    curl_easy_cleanup(mCurl);
    curl_global_cleanup();
}

bool HttpsClient::setUp(const QByteArray& pUrl, Size pSize)
{
    curl_easy_reset(mCurl);
    curl_easy_setopt(mCurl, CURLOPT_URL, pUrl.constData());
    curl_easy_setopt(mCurl, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(mCurl, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(mCurl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(mCurl, CURLOPT_MAXREDIRS, sMaxRedirects);
    curl_easy_setopt(mCurl, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(mCurl, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(mCurl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(mCurl, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_OPTIONAL));
    if (!mAccess.mNetrcFile.isEmpty()) {
        curl_easy_setopt(mCurl, CURLOPT_NETRC_FILE, QFile::encodeName(mAccess.mNetrcFile).constData());
    }
    curl_easy_setopt(mCurl, CURLOPT_CONNECTTIMEOUT, sConnectSeconds);
    long tSmallFileSeconds = sSmallFileSeconds;
    qint64 tSlow = sSlowBytesPerSecond;
    if (mAccess.mBytesPerSecond > 0) {
        tSmallFileSeconds += static_cast<long>(sMostSmallBytes / mAccess.mBytesPerSecond);
        tSlow = std::min(tSlow, mAccess.mBytesPerSecond / 2);
    }
    if (pSize == Size::Small) {
        curl_easy_setopt(mCurl, CURLOPT_TIMEOUT, tSmallFileSeconds);
    }
    curl_easy_setopt(mCurl, CURLOPT_LOW_SPEED_LIMIT, static_cast<long>(tSlow));
    curl_easy_setopt(mCurl, CURLOPT_LOW_SPEED_TIME, sSlowSeconds);
    return net::setTlsTrust(mCurl, mAccess.mCaFile);
}

// The limit of libcurl lets the first bytes of each file pass: the whole file, if it is small.
void HttpsClient::keepRate(qint64 pBytes)
{
    if (mAccess.mBytesPerSecond > 0) {
        const std::chrono::duration<double> tTime(double(pBytes) / double(mAccess.mBytesPerSecond));
        mNext = std::max(mNext, Clock::now()) + std::chrono::duration_cast<Clock::duration>(tTime);
        std::this_thread::sleep_until(mNext);
    }
}

Failure HttpsClient::get(const QString& pPath, Size pSize, Receiver& pTo)
{
    const QString tUrl = mAccess.mFolder + u'/' + pPath;
    const QString tSentence = u"%1 can't be fetched: %2"_s;
    std::array<char, CURL_ERROR_SIZE> tReason{};
    if (!setUp(tUrl.toUtf8(), pSize)) {
        return {Failure::Kind::NoServer, u"The transfer of %1 can't be set up"_s.arg(tUrl)};
    }
    Transfer tTransfer{*this, mCurl, pTo, pTo.received()};
    const QByteArray tRange = QByteArray::number(tTransfer.mFrom) + '-';
    if (tTransfer.mFrom > 0) {
        curl_easy_setopt(mCurl, CURLOPT_RANGE, tRange.constData());
    }
    curl_easy_setopt(mCurl, CURLOPT_ERRORBUFFER, tReason.data());
    curl_easy_setopt(mCurl, CURLOPT_WRITEFUNCTION, Transfer::take);
    curl_easy_setopt(mCurl, CURLOPT_WRITEDATA, &tTransfer);
    const CURLcode tCode = curl_easy_perform(mCurl);
    if (tTransfer.mFailure) {
        return tTransfer.mFailure;
    }
    const long tStatus = tTransfer.status();
    if ((tTransfer.mRefused && tStatus == sPartial) || tStatus == sRangeNotSatisfiable) {
        const Failure tFailure = pTo.restart();
        return tFailure ? tFailure
                        : Failure{Failure::Kind::Unreachable,
                                  tSentence.arg(tUrl, u"the server sent another range than requested"_s)};
    }
    if ((tTransfer.mRefused || tCode == CURLE_OK) && tStatus != sOk && tStatus != sPartial) {
        return {Failure::Kind::Unreachable,
                tSentence.arg(tUrl, u"the server answers with status %1"_s.arg(tStatus))};
    }
    return tCode == CURLE_OK
               ? Failure()
               : Failure{kindOf(tCode, tStatus), tSentence.arg(tUrl, QString::fromLocal8Bit(tReason.data()))};
}

} // namespace tarn::vkpublish
