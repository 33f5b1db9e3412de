#include "update/HttpJob.h"

#include "update/Sink.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

// The most bytes of an error page; if it is longer, the connection is cut.
constexpr qint64 sMaxIgnored = 64 * 1024;
// An attempt that brought this many new bytes was worth it: the count of attempts starts again.
constexpr qint64 sWorthwhileBytes = 1024 * 1024;
constexpr int sPauseGrowth = 3;
constexpr int sLongestPauseMs = 60 * 1000;

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

// Servers with object storage answer 403 for a missing file.
bool saysNotFound(long pStatus)
{
    return pStatus == 403 || pStatus == 404 || pStatus == 410;
}

QString statusText(long pStatus)
{
    switch (pStatus) {
    case 401:
        return u"the server refuses the user name or the password (status 401)"_s;
    case 407:
        return u"the proxy refuses the user name or the password (status 407)"_s;
    default:
        return u"the server answers with status %1"_s.arg(pStatus);
    }
}

} // namespace

HttpJob::HttpJob(Transfer& pTransfer, const HttpSettings& pSettings, RateLimit& pRateLimit)
    : mTransfer(pTransfer), mSettings(pSettings), mRateLimit(pRateLimit),
      mUrl(pSettings.mBase + '/' + pTransfer.mPath.toUtf8()), mNotBefore(Clock::now()),
      mFurthest(pTransfer.mSink->received())
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

bool HttpJob::begin(CURLM* pMulti)
{
    Sink& tSink = *mTransfer.mSink;
    if (!tSink.isResumable()) {
        (void)tSink.restart(); // in memory: cannot fail
    }
    mOffset = tSink.received();
    mIgnored = 0;
    mPaused = mBodyBegun = mBodyTaken = mRangeWrong = false;
    mErrorText[0] = '\0';
    ++mAttempts;

    mMulti = pMulti;
    mHandle = curl_easy_init();
    if (!mSettings.apply(mHandle)) {
        fail(Failure::Kind::Content, u"the transfer could not be set up"_s);
        return false;
    }
    curl_easy_setopt(mHandle, CURLOPT_URL, mUrl.constData());
    curl_easy_setopt(mHandle, CURLOPT_PRIVATE, this);
    curl_easy_setopt(mHandle, CURLOPT_ERRORBUFFER, mErrorText);
    curl_easy_setopt(mHandle, CURLOPT_WRITEFUNCTION, &HttpJob::onData);
    curl_easy_setopt(mHandle, CURLOPT_WRITEDATA, this);
    if (!tSink.isResumable()) {
        curl_easy_setopt(mHandle, CURLOPT_TIMEOUT, static_cast<long>(mSettings.mPatience.mSmallFileSeconds));
    }
    if (const QByteArray tRange = rangeToAsk(); !tRange.isEmpty()) {
        curl_easy_setopt(mHandle, CURLOPT_RANGE, tRange.constData());
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
    return true;
}

size_t HttpJob::onData(char* pData, size_t pOne, size_t pSize, void* pSelf)
{
    return static_cast<HttpJob*>(pSelf)->take(QByteArrayView(pData, static_cast<qsizetype>(pOne * pSize)));
}

// Any value except the number of bytes given, or a pause, ends the attempt.
size_t HttpJob::take(QByteArrayView pData)
{
    if (!mBodyBegun) {
        mBodyBegun = true;
        mBodyTaken = takesBody();
    }
    if (mSinkFailure || mRangeWrong || mTransfer.mHasNoParts) {
        return 0;
    }
    if (mBodyTaken) {
        const auto tNow = Clock::now();
        if (!mRateLimit.isFree(tNow)) {
            mPaused = true;
            return CURL_WRITEFUNC_PAUSE;
        }
        mRateLimit.take(pData.size(), tNow);
        mSinkFailure = mTransfer.mSink->write(pData);
        return mSinkFailure ? 0 : static_cast<size_t>(pData.size());
    }
    mIgnored += pData.size();
    return mIgnored > sMaxIgnored ? 0 : static_cast<size_t>(pData.size());
}

void HttpJob::resume()
{
    mPaused = false;
    curl_easy_pause(mHandle, CURLPAUSE_CONT);
}

// Empty: all of the file.
QByteArray HttpJob::rangeToAsk() const
{
    if (isPart()) {
        const qint64 tFirst = mTransfer.mPart->mFirst;
        return QByteArray::number(tFirst + mOffset) + '-' +
               QByteArray::number(tFirst + mTransfer.mSink->maxLength() - 1);
    }
    return mOffset > 0 ? QByteArray::number(mOffset) + '-' : QByteArray();
}

bool HttpJob::takesBody()
{
    const long tStatus = status();
    if (tStatus == sOk && isPart()) {
        mTransfer.mHasNoParts = true;
        return false;
    }
    if (tStatus == sOk && mOffset > 0) {
        mSinkFailure = restartSink(); // a server without support for ranges sends the complete file
    }
    mRangeWrong = tStatus == sPartial && !rangeIsRight();
    return tStatus == sOk || tStatus == sPartial;
}

bool HttpJob::rangeIsRight() const
{
    const qint64 tLength = mTransfer.mSink->maxLength();
    const FilePart tPart = mTransfer.mPart.value_or(FilePart{0, tLength});
    const QByteArray tExpected = QByteArrayLiteral("bytes ") + QByteArray::number(tPart.mFirst + mOffset) +
                                 '-' + QByteArray::number(tPart.mFirst + tLength - 1) + '/' +
                                 QByteArray::number(tPart.mFileLength);
    const QByteArray tEncoding = header("Content-Encoding");
    return (mOffset > 0 || isPart()) && header("Content-Range") == tExpected &&
           (tEncoding.isEmpty() || tEncoding == "identity");
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
    long tVersion = CURL_HTTP_VERSION_NONE;
    curl_easy_getinfo(mHandle, CURLINFO_HTTP_VERSION, &tVersion);
    mSharesConnection = tVersion >= CURL_HTTP_VERSION_2_0;
    finish();
    return tDone;
}

void HttpJob::cancel()
{
    mTransfer.mFailure = Failure::canceled();
    finish();
}

void HttpJob::giveUp(const QString& pWhy)
{
    fail(Failure::Kind::Unreachable, pWhy);
    finish();
}

void HttpJob::refusePart()
{
    mTransfer.mHasNoParts = true;
    fail(Failure::Kind::Unreachable, u"the server does not send parts of files"_s);
    finish();
}

bool HttpJob::judge(CURLcode pResult, long pStatus)
{
    if (isPart() && pStatus == sOk) {
        refusePart();
        return true;
    }
    if (mSinkFailure) {
        mTransfer.mFailure = mSinkFailure;
        return true;
    }
    constexpr long sRangeNotSatisfiable = 416;
    if (mRangeWrong || pStatus == sRangeNotSatisfiable) {
        mTransfer.mFailure = restartSink();
        return mTransfer.mFailure ||
               retryOrFail(Failure::Kind::Unreachable, u"the server sent another range than requested"_s);
    }
    if (saysNotFound(pStatus)) {
        return fail(Failure::Kind::NotFound, statusText(pStatus));
    }
    if (pStatus >= 400) {
        const bool tRetry = isWorthRetrying(pStatus);
        return tRetry ? retryOrFail(Failure::Kind::Unreachable, statusText(pStatus))
                      : fail(Failure::Kind::Unreachable, statusText(pStatus));
    }
    if (pResult != CURLE_OK) {
        const QString tWhy =
            QString::fromUtf8(mErrorText[0] != '\0' ? mErrorText : curl_easy_strerror(pResult));
        return isWorthRetrying(pResult) ? retryOrFail(Failure::Kind::Unreachable, tWhy)
                                        : fail(Failure::Kind::Unreachable, tWhy);
    }
    mTransfer.mNotModified = pStatus == sNotModified && !mTransfer.mKnown.isEmpty();
    if (pStatus != sOk && pStatus != sPartial && !mTransfer.mNotModified) {
        return fail(Failure::Kind::Unreachable, statusText(pStatus));
    }
    if (isPart() && mTransfer.mSink->received() != mTransfer.mSink->maxLength()) {
        return retryOrFail(Failure::Kind::Unreachable, u"the server sent less than requested"_s);
    }
    mTransfer.mValidators = validators();
    return true;
}

// A file that was changed just before it was sent may change again without a new date, and many servers
// derive the tag from date and size: then neither is usable for a later conditional request.
Validators HttpJob::validators() const
{
    constexpr time_t sSafeSeconds = 60;
    const QByteArray tModified = header("Last-Modified");
    const time_t tChange = curl_getdate(tModified.constData(), nullptr);
    const time_t tSent = curl_getdate(header("Date").constData(), nullptr);
    const bool tSafe = tModified.isEmpty() || (tChange >= 0 && tSent - tChange >= sSafeSeconds);
    return tSafe ? Validators{header("ETag"), tModified} : Validators();
}

Failure HttpJob::restartSink()
{
    ++mRestarts;
    return mTransfer.mSink->restart();
}

bool HttpJob::retryOrFail(Failure::Kind pKind, const QString& pWhy)
{
    const qint64 tReceived = mTransfer.mSink->received();
    if (mTransfer.mSink->isResumable() && tReceived == mTransfer.mSink->maxLength()) {
        return true; // the connection broke after the last byte
    }
    if (tReceived - mFurthest >= sWorthwhileBytes) {
        mAttempts = 1;
    }
    mFurthest = std::max(mFurthest, tReceived);
    if (std::max(mAttempts, mRestarts) >= mSettings.mPatience.mAttempts) {
        return fail(pKind, pWhy);
    }
    int tPause = mSettings.mPatience.mFirstPauseMs;
    for (int tIndex = 1; tIndex < mAttempts; ++tIndex) {
        tPause = std::min(tPause * sPauseGrowth, sLongestPauseMs);
    }
    mNotBefore = Clock::now() + std::chrono::milliseconds(tPause);
    return false;
}

bool HttpJob::fail(Failure::Kind pKind, const QString& pWhy)
{
    mTransfer.mFailure = {pKind, u"Can't get %1: %2"_s.arg(QString::fromUtf8(mUrl), pWhy)};
    return true;
}

} // namespace tarn::vkservice::update
