#include "update/HttpSource.h"

#include "os/AbortFlag.h"
#include "update/HttpJob.h"

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
    Loop(CURLM* pMulti, const HttpSettings& pSettings) : mMulti(pMulti), mSettings(pSettings) {}

    void add(Transfer& pTransfer, qint64 pBytesPerSecond)
    {
        mWaiting.push_back(std::make_unique<HttpJob>(pTransfer, mSettings, pBytesPerSecond));
    }

    void run(const os::AbortFlag& pAbort)
    {
        while (!pAbort.isSet() && !(mWaiting.empty() && mActive.empty())) {
            const int tWait = beginDue();
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
    const qint64 tAtOnce = std::min<qint64>(mSettings.mParallel, pTransfers.size());
    const qint64 tShare =
        mSettings.mBytesPerSecond > 0 ? std::max<qint64>(1, mSettings.mBytesPerSecond / tAtOnce) : 0;
    Loop tLoop(mMulti, mSettings);
    for (Transfer* tTransfer : pTransfers) {
        tLoop.add(*tTransfer, tShare);
    }
    tLoop.run(pAbort);
}

} // namespace tarn::vkservice::update
