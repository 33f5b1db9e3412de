#pragma once

#include "update/HttpSettings.h"
#include "update/RateLimit.h"
#include "update/Source.h"

#include <chrono>

namespace tarn::vkservice::update {

// One file, or a part of it, over https, with retries. Runs on a curl multi handle that the caller drives.
class HttpJob
{
public:
    HttpJob(Transfer& pTransfer, const HttpSettings& pSettings, RateLimit& pRateLimit);
    ~HttpJob();
    HttpJob(const HttpJob&) = delete;
    HttpJob& operator=(const HttpJob&) = delete;

    using Clock = RateLimit::Clock;

    // The earliest time of the next attempt.
    Clock::time_point notBefore() const { return mNotBefore; }
    // False if the attempt cannot be set up; then the job is over.
    bool begin(CURLM* pMulti);
    CURL* handle() const { return mHandle; }
    // True while the attempt is paused by the rate limit; resume() continues it as far as the limit allows.
    bool isPaused() const { return mPaused; }
    void resume();
    // The attempt is over. True if the file is finished, with or without success; false if it must be tried
    // again.
    bool end(CURLcode pResult);
    void cancel();
    // Fails the file because of the server, even if attempts remain.
    void giveUp(const QString& pWhy);
    bool isPart() const { return mTransfer.mPart.has_value(); }
    bool hasNoParts() const { return mTransfer.mHasNoParts; }
    // True behind the end of an attempt that others could share the connection of.
    bool sharesConnection() const { return mSharesConnection; }
    // Fails a part because the server only sends whole files.
    void refusePart();

private:
    static size_t onData(char* pData, size_t pOne, size_t pSize, void* pSelf);
    size_t take(QByteArrayView pData);
    bool takesBody();
    QByteArray rangeToAsk() const;
    bool rangeIsRight() const;
    QByteArray header(const char* pName) const;
    Validators validators() const;
    long status() const;
    bool judge(CURLcode pResult, long pStatus);
    Failure restartSink();
    bool retryOrFail(Failure::Kind pKind, const QString& pWhy);
    bool fail(Failure::Kind pKind, const QString& pWhy);
    void finish();

    Transfer& mTransfer;
    const HttpSettings& mSettings;
    RateLimit& mRateLimit;
    QByteArray mUrl;
    CURLM* mMulti = nullptr;
    CURL* mHandle = nullptr;
    curl_slist* mHeaders = nullptr;
    char mErrorText[CURL_ERROR_SIZE] = {};
    Clock::time_point mNotBefore;
    // The budget of retries. Only bytes beyond the furthest position so far restore attempts, and nothing
    // restores restarts from the beginning of the file.
    int mAttempts = 0;
    int mRestarts = 0;
    qint64 mFurthest;
    bool mSharesConnection = false;

    // State of the current attempt.
    qint64 mOffset = 0;  // the position that the request asked for, in what the sink gets
    qint64 mIgnored = 0; // bytes of an answer that is not the file
    bool mPaused = false;
    bool mBodyBegun = false;
    bool mBodyTaken = false;
    bool mRangeWrong = false;
    Failure mSinkFailure;
};

} // namespace tarn::vkservice::update
