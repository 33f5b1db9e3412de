#include "HttpsFetcher.h"

#include "net/TlsTrust.h"

#include <curl/curl.h>

#include <array>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr long sConnectSeconds = 30;
constexpr long sTotalSeconds = 120;
constexpr long sMaxRedirects = 5;

struct Body
{
    qint64 mMaxLength;
    QByteArray* mTo;

    static size_t take(char* pData, size_t pSize, size_t pCount, void* pSelf)
    {
        auto* tSelf = static_cast<Body*>(pSelf);
        const auto tLength = static_cast<qint64>(pSize) * static_cast<qint64>(pCount);
        if (tLength > tSelf->mMaxLength - tSelf->mTo->size()) {
            return 0;
        }
        tSelf->mTo->append(pData, tLength);
        return pSize * pCount;
    }
};

Failure::Kind kindOf(CURLcode pCode, long pStatus)
{
    if (pCode == CURLE_WRITE_ERROR) {
        return Failure::Kind::Untrusted; // longer than allowed
    }
    return pStatus == 403 || pStatus == 404 ? Failure::Kind::NotFound : Failure::Kind::Unreachable;
}

} // namespace

HttpsFetcher::HttpsFetcher(const QString& pFolder, const QString& pCaFile)
    : mFolder(pFolder), mCaFile(pCaFile)
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    mCurl = curl_easy_init();
}

HttpsFetcher::~HttpsFetcher()
{
    curl_easy_cleanup(mCurl);
    curl_global_cleanup();
}

bool HttpsFetcher::setUp(const QByteArray& pUrl)
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
    curl_easy_setopt(mCurl, CURLOPT_CONNECTTIMEOUT, sConnectSeconds);
    curl_easy_setopt(mCurl, CURLOPT_TIMEOUT, sTotalSeconds);
    return net::setTlsTrust(mCurl, mCaFile);
}

Failure HttpsFetcher::fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
{
    pTo->clear();
    const QString tUrl = mFolder + u'/' + pPath;
    Body tBody{pMaxLength, pTo};
    std::array<char, CURL_ERROR_SIZE> tReason{};
    if (!setUp(tUrl.toUtf8())) {
        return {Failure::Kind::Unreachable, u"The transfer of %1 can't be set up"_s.arg(tUrl)};
    }
    curl_easy_setopt(mCurl, CURLOPT_ERRORBUFFER, tReason.data());
    curl_easy_setopt(mCurl, CURLOPT_WRITEFUNCTION, Body::take);
    curl_easy_setopt(mCurl, CURLOPT_WRITEDATA, &tBody);
    const CURLcode tCode = curl_easy_perform(mCurl);
    if (tCode == CURLE_OK) {
        return {};
    }
    long tStatus = 0;
    curl_easy_getinfo(mCurl, CURLINFO_RESPONSE_CODE, &tStatus);
    const QString tWhy = tCode == CURLE_WRITE_ERROR ? u"it has more than %1 bytes"_s.arg(pMaxLength)
                                                    : QString::fromLocal8Bit(tReason.data());
    return {kindOf(tCode, tStatus), u"%1 can't be fetched: %2"_s.arg(tUrl, tWhy)};
}

} // namespace tarn::vkpublish
