#include "update/Reporter.h"

#include <QtCore/QMutexLocker>

#include <utility>

namespace tarn::vkservice::update {

Reporter::Reporter(ActivityFunction pOnActivity, MessageFunction pOnNotification, MessageFunction pOnError,
                   LineFunction pOnLine)
    : mOnActivity(std::move(pOnActivity)), mOnNotification(std::move(pOnNotification)),
      mOnError(std::move(pOnError)), mOnLine(std::move(pOnLine))
{
}

void Reporter::begin(vkcore::ServiceActivity pActivity, bool pCancelable, qint64 pTotal, bool pInBytes)
{
    bool tIsNew = false;
    {
        const QMutexLocker tLock(&mMutex);
        tIsNew = mProgress.mActivity != pActivity;
        mProgress.mActivity = pActivity;
        mProgress.mCancelable = pCancelable;
        mProgress.mDone = 0;
        mProgress.mTotal = pTotal;
        mProgress.mBytesDone = 0;
        mProgress.mBytesTotal = pInBytes ? pTotal : 0;
        mProgress.mText.clear();
        mProgress.mPackage = 0;
        mInBytes = pInBytes;
    }
    if (tIsNew) {
        mOnActivity(pActivity);
    }
}

void Reporter::advance(qint64 pAmount)
{
    const QMutexLocker tLock(&mMutex);
    mProgress.mDone = qMin(mProgress.mDone + pAmount, mProgress.mTotal);
    mProgress.mBytesDone = mInBytes ? mProgress.mDone : 0;
}

void Reporter::atPackage(int pIndex, int pCount, const QString& pText)
{
    const QMutexLocker tLock(&mMutex);
    mProgress.mPackage = pIndex;
    mProgress.mPackageCount = pCount;
    mProgress.mText = pText;
}

void Reporter::setText(const QString& pText)
{
    const QMutexLocker tLock(&mMutex);
    mProgress.mText = pText;
}

void Reporter::setFailedCount(int pCount)
{
    const QMutexLocker tLock(&mMutex);
    mProgress.mFailedCount = pCount;
}

void Reporter::notify(MessageType pType, const QString& pText, const QString& pDetails)
{
    mOnNotification(pType, pText, pDetails);
}

void Reporter::error(const QString& pText, const QString& pDetails)
{
    mOnError(MessageError, pText, pDetails);
}

void Reporter::write(const QString& pLine)
{
    if (mOnLine) {
        mOnLine(pLine);
    }
}

Progress Reporter::progress() const
{
    const QMutexLocker tLock(&mMutex);
    return mProgress;
}

} // namespace tarn::vkservice::update
