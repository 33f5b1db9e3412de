#pragma once

#include "update/HttpSettings.h"
#include "update/Source.h"

#include <chrono>

namespace tarn::vkservice::update {

// One file over https, through as many attempts as it takes. Runs on a curl multi handle that somebody else
// drives.
class HttpJob
{
public:
    HttpJob(Transfer& pTransfer, const HttpSettings& pSettings, qint64 pBytesPerSecond);
    ~HttpJob();
    HttpJob(const HttpJob&) = delete;
    HttpJob& operator=(const HttpJob&) = delete;

    using Clock = std::chrono::steady_clock;

    // Not before this moment the next attempt may begin.
    Clock::time_point notBefore() const { return mNotBefore; }
    void begin(CURLM* pMulti);
    CURL* handle() const { return mHandle; }
    // The attempt is over. True if the file is done, well or not; false if it is to be begun again.
    bool end(CURLcode pResult);
    void cancel();

private:
    static size_t onData(char* pData, size_t pOne, size_t pSize, void* pSelf);
    size_t take(QByteArrayView pData);
    bool takesBody();
    bool rangeIsRight() const;
    QByteArray header(const char* pName) const;
    long status() const;
    bool judge(CURLcode pResult, long pStatus);
    bool retryOrFail(Trouble::Kind pKind, const QString& pWhy);
    bool fail(Trouble::Kind pKind, const QString& pWhy);
    void finish();

    Transfer& mTransfer;
    const HttpSettings& mSettings;
    qint64 mBytesPerSecond;
    QByteArray mUrl;
    CURLM* mMulti = nullptr;
    CURL* mHandle = nullptr;
    curl_slist* mHeaders = nullptr;
    char mErrorText[CURL_ERROR_SIZE] = {};
    int mAttempts = 0;
    Clock::time_point mNotBefore;

    // Of the present attempt.
    qint64 mOffset = 0;  // where it was asked to go on
    qint64 mIgnored = 0; // bytes of an answer that is not the file
    bool mBodyBegun = false;
    bool mBodyTaken = false;
    bool mRangeWrong = false;
    Trouble mSinkTrouble;
};

} // namespace tarn::vkservice::update
