#include "update/HttpSource.h"

#include "os/AbortFlag.h"
#include "update/HttpJob.h"
#include "update/RateFloor.h"
#include "update/RateLimit.h"
#include "update/Sink.h"

#include <algorithm>
#include <limits>
#include <list>
#include <memory>

using namespace Qt::StringLiterals;

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

// Transfers a number of files over the connections of one server.
class HttpSource::Loop
{
public:
    using Clock = HttpJob::Clock;

    Loop(CURLM* pMulti, const HttpSettings& pSettings)
        : mMulti(pMulti), mSettings(pSettings), mRateLimit(pSettings.mBytesPerSecond),
          mRateFloor(pSettings.mLeastBytesPerSecond,
                     std::chrono::seconds(pSettings.mPatience.mRatePeriodSeconds)),
          mDeadline(Clock::time_point::max()), mMostActive(static_cast<size_t>(pSettings.mParallel))
    {
    }

    // Small files, all at once.
    void takeMetadata(Clock::time_point pDeadline)
    {
        mDeadline = pDeadline;
        mMostActive = std::numeric_limits<size_t>::max();
    }
    bool sharesConnection() const { return mSharesConnection; }

    void add(Transfer& pTransfer)
    {
        mWaiting.push_back(std::make_unique<HttpJob>(pTransfer, mSettings, mRateLimit));
    }

    void run(const os::AbortFlag& pAbort)
    {
        QString tComplaint;
        while (!pAbort.isSet() && tComplaint.isEmpty() && !(mWaiting.empty() && mActive.empty())) {
            const auto tBegin = Clock::now();
            const int tWait = std::min(beginDue(), resumePaused());
            int tRunning = 0;
            curl_multi_perform(mMulti, &tRunning);
            if (!endFinished()) {
                curl_waitfd tAbort{pAbort.fd(), CURL_WAIT_POLLIN, 0};
                curl_multi_poll(mMulti, &tAbort, 1, tWait, nullptr);
            }
            tComplaint = complaint(tBegin);
        }
        for (JobList* tJobs : {&mWaiting, &mActive}) {
            for (const auto& tJob : *tJobs) {
                tComplaint.isEmpty() ? tJob->cancel() : tJob->giveUp(tComplaint);
            }
        }
    }

private:
    // Starts as many files as allowed. Returns the longest time to wait for the next one to become due.
    int beginDue()
    {
        using namespace std::chrono;
        auto tNow = HttpJob::Clock::now();
        int tWait = sLongestWaitMs;
        for (auto tIt = mWaiting.begin(); tIt != mWaiting.end();) {
            const auto tJob = tIt++;
            if (mHasNoParts && (*tJob)->isPart()) {
                (*tJob)->refusePart();
                mWaiting.erase(tJob);
                continue;
            }
            if (mActive.size() >= mMostActive) {
                break;
            }
            if ((*tJob)->notBefore() > tNow) {
                const auto tDue = duration_cast<milliseconds>((*tJob)->notBefore() - tNow).count() + 1;
                tWait = std::min(tWait, static_cast<int>(tDue));
                continue;
            }
            if ((*tJob)->begin(mMulti)) {
                mActive.splice(mActive.end(), mWaiting, tJob);
            } else {
                mWaiting.erase(tJob);
            }
        }
        return tWait;
    }

    // Resumes the files that the rate limit has paused, in turn. Returns the longest time to wait for the
    // next one.
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

    // Why to give up on the server, after a round that started at pBegin; empty if there is no reason.
    QString complaint(Clock::time_point pBegin)
    {
        const auto tNow = Clock::now();
        if (tNow >= mDeadline) {
            return u"the server took more than %1 seconds for its metadata"_s.arg(
                mSettings.mPatience.mMetadataSeconds);
        }
        // The server is not to blame for what the bandwidth limit delayed.
        const auto tReady = mActive.empty() ? tNow : std::max(pBegin, mRateLimit.next());
        return mRateFloor.isKept(tNow - tReady, mRateLimit.taken())
                   ? QString()
                   : u"for %1 seconds the server sent fewer than %2 bytes per second; "
                     "update.minimumRate sets this limit"_s.arg(mSettings.mPatience.mRatePeriodSeconds)
                         .arg(mSettings.mLeastBytesPerSecond);
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
                mHasNoParts = mHasNoParts || (*tJob)->hasNoParts();
                mSharesConnection = mSharesConnection || (*tJob)->sharesConnection();
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
    RateLimit mRateLimit;
    RateFloor mRateFloor;
    Clock::time_point mDeadline;
    size_t mMostActive;
    JobList mWaiting;
    JobList mActive;
    bool mHasNoParts = false; // the server has said so
    bool mSharesConnection = false;
};

HttpSource::HttpSource(const ServerAccess& pServer, const RunRequest& pRequest)
    : mSettings(pServer, pRequest), mMetadataTime(std::chrono::seconds(mSettings.mPatience.mMetadataSeconds))
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
    const auto tBegin = Loop::Clock::now();
    const bool tIsMetadata =
        std::none_of(pTransfers.begin(), pTransfers.end(),
                     [](const Transfer* pTransfer) { return pTransfer->mSink->isResumable(); });
    Loop tLoop(mMulti, mSettings);
    if (tIsMetadata) {
        tLoop.takeMetadata(tBegin + mMetadataTime);
    }
    for (Transfer* tTransfer : pTransfers) {
        tLoop.add(*tTransfer);
    }
    tLoop.run(pAbort);
    mSharesConnection = mSharesConnection || tLoop.sharesConnection();
    if (tIsMetadata) {
        mMetadataTime -= Loop::Clock::now() - tBegin;
    }
}

} // namespace tarn::vkservice::update
