#include "update/HttpJob.h"

namespace tarn::vkservice::update {

namespace {

// An error page may have so many bytes; from a longer one the connection is cut.
constexpr qint64 sMaxIgnored = 64 * 1024;
// An attempt that got so far was worth it, and the count of attempts begins anew.
constexpr qint64 sWorthwhileBytes = 1024 * 1024;
constexpr int sPauseGrowth = 3;

constexpr long sOk = 200;
constexpr long sPartial = 206;
constexpr long sNotModified = 304;

bool isWorthRetrying(CURLcode pResult)
{
    switch (pResult) {
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_PARTIAL_FILE:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
        return true;
    default:
        return false;
    }
}

bool isWorthRetrying(long pStatus)
{
    return pStatus == 408 || pStatus == 429 || pStatus >= 500;
}

// Servers that keep files in buckets answer 403 for one that isn't there.
bool saysNotFound(long pStatus)
{
    return pStatus == 403 || pStatus == 404 || pStatus == 410;
}

QString statusText(long pStatus)
{
    switch (pStatus) {
    case 401:
        return QStringLiteral("the server refuses the user name or the password (status 401)");
    case 407:
        return QStringLiteral("the proxy refuses the user name or the password (status 407)");
    default:
        return QStringLiteral("the server answers with status %1").arg(pStatus);
    }
}

} // namespace

HttpJob::HttpJob(Transfer& pTransfer, const HttpSettings& pSettings, qint64 pBytesPerSecond)
    : mTransfer(pTransfer), mSettings(pSettings), mBytesPerSecond(pBytesPerSecond),
      mUrl(pSettings.mBase + '/' + pTransfer.mPath.toUtf8()), mNotBefore(Clock::now())
{
}

HttpJob::~HttpJob()
{
    finish();
}

void HttpJob::finish()
{
    if (mHandle != nullptr) {
        curl_multi_remove_handle(mMulti, mHandle);
        curl_easy_cleanup(mHandle);
        mHandle = nullptr;
    }
    curl_slist_free_all(mHeaders);
    mHeaders = nullptr;
}

void HttpJob::begin(CURLM* pMulti)
{
    Sink& tSink = *mTransfer.mSink;
    if (!tSink.isResumable()) {
        tSink.restart();
    }
    mOffset = tSink.received();
    mIgnored = 0;
    mBodyBegun = mBodyTaken = mRangeWrong = false;
    mErrorText[0] = '\0';
    ++mAttempts;

    mMulti = pMulti;
    mHandle = curl_easy_init();
    mSettings.apply(mHandle);
    curl_easy_setopt(mHandle, CURLOPT_URL, mUrl.constData());
    curl_easy_setopt(mHandle, CURLOPT_PRIVATE, this);
    curl_easy_setopt(mHandle, CURLOPT_ERRORBUFFER, mErrorText);
    curl_easy_setopt(mHandle, CURLOPT_WRITEFUNCTION, &HttpJob::onData);
    curl_easy_setopt(mHandle, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(mHandle, CURLOPT_MAX_RECV_SPEED_LARGE, static_cast<curl_off_t>(mBytesPerSecond));
    if (!tSink.isResumable()) {
        curl_easy_setopt(mHandle, CURLOPT_TIMEOUT, static_cast<long>(mSettings.mPatience.mSmallFileSeconds));
    }
    if (mOffset > 0) {
        curl_easy_setopt(mHandle, CURLOPT_RANGE, (QByteArray::number(mOffset) + '-').constData());
    }
    if (!mTransfer.mKnown.mEtag.isEmpty()) {
        mHeaders = curl_slist_append(mHeaders, ("If-None-Match: " + mTransfer.mKnown.mEtag).constData());
    }
    if (!mTransfer.mKnown.mLastModified.isEmpty()) {
        mHeaders =
            curl_slist_append(mHeaders, ("If-Modified-Since: " + mTransfer.mKnown.mLastModified).constData());
    }
    curl_easy_setopt(mHandle, CURLOPT_HTTPHEADER, mHeaders);
    curl_multi_add_handle(mMulti, mHandle);
}

size_t HttpJob::onData(char* pData, size_t pOne, size_t pSize, void* pSelf)
{
    return static_cast<HttpJob*>(pSelf)->take(QByteArrayView(pData, static_cast<qsizetype>(pOne * pSize)));
}

// Anything but the number of bytes given ends the attempt.
size_t HttpJob::take(QByteArrayView pData)
{
    if (!mBodyBegun) {
        mBodyBegun = true;
        mBodyTaken = takesBody();
    }
    if (mSinkTrouble || mRangeWrong) {
        return 0;
    }
    if (mBodyTaken) {
        mSinkTrouble = mTransfer.mSink->write(pData);
        return mSinkTrouble ? 0 : static_cast<size_t>(pData.size());
    }
    mIgnored += pData.size();
    return mIgnored > sMaxIgnored ? 0 : static_cast<size_t>(pData.size());
}

bool HttpJob::takesBody()
{
    const long tStatus = status();
    if (tStatus == sOk && mOffset > 0) {
        mSinkTrouble = mTransfer.mSink->restart(); // a server that knows no ranges sends the whole
    }
    mRangeWrong = tStatus == sPartial && !rangeIsRight();
    return tStatus == sOk || tStatus == sPartial;
}

bool HttpJob::rangeIsRight() const
{
    const QByteArray tExpected = QByteArrayLiteral("bytes ") + QByteArray::number(mOffset) + '-' +
                                 QByteArray::number(mTransfer.mSink->maxLength() - 1) + '/' +
                                 QByteArray::number(mTransfer.mSink->maxLength());
    return mOffset > 0 && header("Content-Range") == tExpected;
}

QByteArray HttpJob::header(const char* pName) const
{
    curl_header* tHeader = nullptr;
    return curl_easy_header(mHandle, pName, 0, CURLH_HEADER, -1, &tHeader) == CURLHE_OK ? tHeader->value
                                                                                        : nullptr;
}

long HttpJob::status() const
{
    long tStatus = 0;
    curl_easy_getinfo(mHandle, CURLINFO_RESPONSE_CODE, &tStatus);
    return tStatus;
}

bool HttpJob::end(CURLcode pResult)
{
    const bool tDone = judge(pResult, status());
    finish();
    return tDone;
}

void HttpJob::cancel()
{
    mTransfer.mTrouble = Trouble::canceled();
    finish();
}

bool HttpJob::judge(CURLcode pResult, long pStatus)
{
    if (mSinkTrouble) {
        mTransfer.mTrouble = mSinkTrouble;
        return true;
    }
    constexpr long sRangeNotSatisfiable = 416;
    if (mRangeWrong || pStatus == sRangeNotSatisfiable) {
        mTransfer.mTrouble = mTransfer.mSink->restart();
        return mTransfer.mTrouble ||
               retryOrFail(Trouble::Kind::Unreachable,
                           QStringLiteral("the server sends another part than it was asked for"));
    }
    if (saysNotFound(pStatus)) {
        return fail(Trouble::Kind::NotFound, statusText(pStatus));
    }
    if (pStatus >= 400) {
        const bool tRetry = isWorthRetrying(pStatus);
        return tRetry ? retryOrFail(Trouble::Kind::Unreachable, statusText(pStatus))
                      : fail(Trouble::Kind::Unreachable, statusText(pStatus));
    }
    if (pResult != CURLE_OK) {
        const QString tWhy =
            QString::fromUtf8(mErrorText[0] != '\0' ? mErrorText : curl_easy_strerror(pResult));
        return isWorthRetrying(pResult) ? retryOrFail(Trouble::Kind::Unreachable, tWhy)
                                        : fail(Trouble::Kind::Unreachable, tWhy);
    }
    mTransfer.mNotModified = pStatus == sNotModified && !mTransfer.mKnown.isEmpty();
    if (pStatus != sOk && pStatus != sPartial && !mTransfer.mNotModified) {
        return fail(Trouble::Kind::Unreachable, statusText(pStatus));
    }
    mTransfer.mValidators = {header("ETag"), header("Last-Modified")};
    return true;
}

bool HttpJob::retryOrFail(Trouble::Kind pKind, const QString& pWhy)
{
    if (mTransfer.mSink->isResumable() && mTransfer.mSink->received() == mTransfer.mSink->maxLength()) {
        return true; // the connection broke behind the last byte
    }
    if (mTransfer.mSink->received() - mOffset >= sWorthwhileBytes) {
        mAttempts = 1;
    }
    if (mAttempts >= mSettings.mPatience.mAttempts) {
        return fail(pKind, pWhy);
    }
    int tPause = mSettings.mPatience.mFirstPauseMs;
    for (int tIndex = 1; tIndex < mAttempts; ++tIndex) {
        tPause *= sPauseGrowth;
    }
    mNotBefore = Clock::now() + std::chrono::milliseconds(tPause);
    return false;
}

bool HttpJob::fail(Trouble::Kind pKind, const QString& pWhy)
{
    mTransfer.mTrouble = {pKind, QStringLiteral("Can't get %1: %2").arg(QString::fromUtf8(mUrl), pWhy)};
    return true;
}

} // namespace tarn::vkservice::update
