#include "update/supply/Parcel.h"

#include "update/FailurePolicy.h"
#include "update/Reporter.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

bool isOfTheWay(const Failure& pFailure)
{
    return pFailure.mKind == Failure::Kind::Content || isServersFault(pFailure);
}

void Parcel::comeWhole()
{
    mWay = Way::Whole;
    mRuns.clear();
}

trees::IndexLimits Parcel::limits() const
{
    return {.mMaxBytes = info().mInstalledSize, .mArchiveSize = archiveLength()};
}

QString Parcel::label() const
{
    return u"%1 %2"_s.arg(info().mName, info().mVersion.version().toTarnAppFormat());
}

void Parcel::warn(Reporter& pReporter, const Failure& pFailure) const
{
    pReporter.notify(MessageWarning, u"The package %1 costs more than it should."_s.arg(label()),
                     pFailure.mText);
}

Wanted Parcel::index() const
{
    return Wanted::sideFile(info().mIndex->mFile, info().mIndex->name());
}

Wanted Parcel::delta() const
{
    return Wanted::sideFile(mDelta->mFile, mDelta->name());
}

Wanted Parcel::frames(const trees::FrameRun& pRun) const
{
    return Wanted::frames(offer().mTarget, mTree->frames(), pRun.mFirst, pRun.mCount);
}

} // namespace tarn::vkservice::update
