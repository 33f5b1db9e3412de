#include "control/MetricsControl.h"

#include "metrics/MetricsFile.h"
#include "metrics/Page.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"

#include <QtCore/QDateTime>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using metrics::MetricsFile;
using metrics::Page;
using process::LogLevel;

namespace {

constexpr int sSoonMs = 1000;
constexpr qint64 sMaxAgeMs = 5 * 60 * 1000 - 30 * 1000; // the tick before five minutes are over

} // namespace

MetricsControl::MetricsControl(os::FileSystem& pFileSystem, const Parts& pParts)
    : mFileSystem(pFileSystem), mParts(pParts)
{
    mSoon.setSingleShot(true);
    mSoon.setInterval(sSoonMs);
    connect(&mSoon, &QTimer::timeout, this, &MetricsControl::update);
}

void MetricsControl::start()
{
    mIsStarted = true;
    update();
}

void MetricsControl::noteChange()
{
    if (mIsStarted && !mSoon.isActive()) {
        mSoon.start();
    }
}

void MetricsControl::tick()
{
    if (mIsStarted && (mIsBehind || !mAge.isValid() || mAge.elapsed() >= sMaxAgeMs)) {
        update();
    }
}

// What was written to another path is removed: it would be a machine that has stopped.
void MetricsControl::followPath()
{
    bool tIsRead = true;
    const QString tPath = mParts.mVariables.text(u"status.metricsFile"_s, &tIsRead);
    if (!tIsRead || tPath == mPath) {
        return;
    }
    if (!mWritten.isEmpty()) {
        noteResult(MetricsFile(mFileSystem, mPath).remove());
    }
    mPath = tPath;
    mWritten.clear();
    mLastComplaint.clear();
    mIsBehind = false;
}

void MetricsControl::update()
{
    followPath();
    if (mPath.isEmpty()) {
        return;
    }
    const QByteArray tFigures = figures();
    const bool tIsFresh = mAge.isValid() && mAge.elapsed() < sMaxAgeMs;
    if (tFigures == mWritten && tIsFresh && !mIsBehind) {
        return;
    }
    Page tPage;
    tPage.gauge("vkservice_metrics_timestamp_seconds", "When this file was written.");
    tPage.value(QDateTime::currentDateTimeUtc());
    const Failure tFailure = MetricsFile(mFileSystem, mPath).write(tFigures + tPage.complete());
    mIsBehind = static_cast<bool>(tFailure);
    if (!tFailure) {
        mWritten = tFigures;
        mAge.start();
    }
    noteResult(tFailure);
}

QByteArray MetricsControl::figures() const
{
    Page tPage;
    for (const AddMetrics tAdd : metricsSections()) {
        tAdd(mParts.mSources, &tPage);
    }
    return tPage.text();
}

void MetricsControl::noteResult(const Failure& pFailure)
{
    if (pFailure && pFailure.mText != mLastComplaint) {
        mParts.mApp.write(LogLevel::Warning, u"The metrics can't be written: %1."_s.arg(pFailure.mText),
                          {process::message::sMetricsUnwritable});
    }
    if (!pFailure && !mLastComplaint.isEmpty()) {
        mParts.mApp.write(LogLevel::Notice, u"The metrics are written to %1 again."_s.arg(mPath));
    }
    mLastComplaint = pFailure.mText;
}

} // namespace tarn::vkservice::control
