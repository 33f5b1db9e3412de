#pragma once

#include "update/HttpSettings.h"
#include "update/RateLimit.h"
#include "update/Source.h"

#include <chrono>

namespace tarn::vkservice::update {

// One file over https, through as many attempts as it takes. Runs on a curl multi handle that somebody else
// drives.
class HttpJob
{
public:
    HttpJob(Transfer& pTransfer, const HttpSettings& pSettings, RateLimit& pRateLimit);
    ~HttpJob();
    HttpJob(const HttpJob&) = delete;
    HttpJob& operator=(const HttpJob&) = delete;

    using Clock = RateLimit::Clock;

    // Not before this moment the next attempt may begin.
    Clock::time_point notBefore() const { return mNotBefore; }
    // False if the attempt can't be set up; the job is over then.
    bool begin(CURLM* pMulti);
    CURL* handle() const { return mHandle; }
    // True while the attempt holds back bytes for the rate limit; resume() takes them, as far as they may
    // come.
    bool isPaused() const { return mPaused; }
    void resume();
    // The attempt is over. True if the file is done, well or not; false if it is to be begun again.
    bool end(CURLcode pResult);
    void cancel();
    // Ends it as failed because of the server, whatever attempts are left.
    void giveUp(const QString& pWhy);

private:
    static size_t onData(char* pData, size_t pOne, size_t pSize, void* pSelf);
    size_t take(QByteArrayView pData);
    bool takesBody();
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
    // What a server can use up for good: only bytes behind the furthest that ever was reached give attempts
    // back, and nothing gives back a beginning from the start.
    int mAttempts = 0;
    int mRestarts = 0;
    qint64 mFurthest;

    // Of the present attempt.
    qint64 mOffset = 0;  // where it was asked to go on
    qint64 mIgnored = 0; // bytes of an answer that is not the file
    bool mPaused = false;
    bool mBodyBegun = false;
    bool mBodyTaken = false;
    bool mRangeWrong = false;
    Failure mSinkFailure;
};

} // namespace tarn::vkservice::update
