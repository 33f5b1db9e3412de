#include "update/HttpSource.h"

#include "os/AbortFlag.h"
#include "update/HttpJob.h"
#include "update/RateLimit.h"

#include <algorithm>
#include <list>

namespace tarn::vkservice::update {

namespace {

constexpr int sLongestWaitMs = 1000;

using JobList = std::list<std::unique_ptr<HttpJob>>;

void initCurl()
{
    static const CURLcode sDone = curl_global_init(CURL_GLOBAL_DEFAULT);
    static_cast<void>(sDone);
}

} // namespace

// The way of a number of files through the connections of one server.
class HttpSource::Loop
{
public:
    Loop(CURLM* pMulti, const HttpSettings& pSettings, RateLimit& pRateLimit)
        : mMulti(pMulti), mSettings(pSettings), mRateLimit(pRateLimit)
    {
    }

    void add(Transfer& pTransfer)
    {
        mWaiting.push_back(std::make_unique<HttpJob>(pTransfer, mSettings, mRateLimit));
    }

    void run(const os::AbortFlag& pAbort)
    {
        while (!pAbort.isSet() && !(mWaiting.empty() && mActive.empty())) {
            const int tWait = std::min(beginDue(), resumePaused());
            int tRunning = 0;
            curl_multi_perform(mMulti, &tRunning);
            if (!endFinished()) {
                curl_waitfd tAbort{pAbort.fd(), CURL_WAIT_POLLIN, 0};
                curl_multi_poll(mMulti, &tAbort, 1, tWait, nullptr);
            }
        }
        for (JobList* tJobs : {&mWaiting, &mActive}) {
            for (const auto& tJob : *tJobs) {
                tJob->cancel();
            }
        }
    }

private:
    // Begins as many files as may run; how long to wait at most for the next one to become due.
    int beginDue()
    {
        using namespace std::chrono;
        auto tNow = HttpJob::Clock::now();
        int tWait = sLongestWaitMs;
        for (auto tIt = mWaiting.begin(); tIt != mWaiting.end();) {
            const auto tJob = tIt++;
            if (mActive.size() >= static_cast<size_t>(mSettings.mParallel)) {
                break;
            }
            if ((*tJob)->notBefore() > tNow) {
                const auto tDue = duration_cast<milliseconds>((*tJob)->notBefore() - tNow).count() + 1;
                tWait = std::min(tWait, static_cast<int>(tDue));
                continue;
            }
            (*tJob)->begin(mMulti);
            mActive.splice(mActive.end(), mWaiting, tJob);
        }
        return tWait;
    }

    // Lets the files go on that the rate limit holds, by turns; how long to wait at most for the next one.
    int resumePaused()
    {
        using namespace std::chrono;
        const auto tNow = HttpJob::Clock::now();
        const auto tPaused =
            std::find_if(mActive.begin(), mActive.end(), [](const auto& pJob) { return pJob->isPaused(); });
        if (tPaused == mActive.end()) {
            return sLongestWaitMs;
        }
        if (mRateLimit.isFree(tNow)) {
            (*tPaused)->resume();
            mActive.splice(mActive.end(), mActive, tPaused);
        }
        const auto tLeft = duration_cast<milliseconds>(mRateLimit.next() - HttpJob::Clock::now()).count() + 1;
        return static_cast<int>(std::clamp<qint64>(tLeft, 0, sLongestWaitMs));
    }

    bool endFinished()
    {
        bool tAny = false;
        int tLeft = 0;
        while (const CURLMsg* tMessage = curl_multi_info_read(mMulti, &tLeft)) {
            if (tMessage->msg != CURLMSG_DONE) {
                continue;
            }
            const CURL* tHandle = tMessage->easy_handle;
            const CURLcode tResult = tMessage->data.result;
            const auto tJob = std::find_if(mActive.begin(), mActive.end(),
                                           [tHandle](const auto& pJob) { return pJob->handle() == tHandle; });
            if ((*tJob)->end(tResult)) {
                mActive.erase(tJob);
            } else {
                mWaiting.splice(mWaiting.end(), mActive, tJob);
            }
            tAny = true;
        }
        return tAny;
    }

    CURLM* mMulti;
    const HttpSettings& mSettings;
    RateLimit& mRateLimit;
    JobList mWaiting;
    JobList mActive;
};

HttpSource::HttpSource(const ServerAccess& pServer, const RunRequest& pRequest) : mSettings(pServer, pRequest)
{
    initCurl();
    mMulti = curl_multi_init();
}

HttpSource::~HttpSource()
{
    curl_multi_cleanup(mMulti);
}

void HttpSource::run(const QList<Transfer*>& pTransfers, const os::AbortFlag& pAbort)
{
    RateLimit tRateLimit(mSettings.mBytesPerSecond);
    Loop tLoop(mMulti, mSettings, tRateLimit);
    for (Transfer* tTransfer : pTransfers) {
        tLoop.add(*tTransfer);
    }
    tLoop.run(pAbort);
}

} // namespace tarn::vkservice::update
