#pragma once

#include "trees/FrameRuns.h"
#include "trees/InstalledFiles.h"
#include "trees/TreeBuilder.h"
#include "update/Downloads.h"
#include "update/Plan.h"

#include <optional>
#include <vector>

namespace tarn::vkservice::update {

class Reporter;

// In the order in which they are tried.
enum class Way
{
    Delta,
    Ranges,
    Whole,
};

// A package on its way to this machine.
struct Parcel
{
    explicit Parcel(PlannedPackage* pPackage) : mPackage(pPackage) {}

    PlannedPackage* mPackage;
    Way mWay = Way::Whole;
    bool mIsHere = false; // the whole archive
    const packages::DeltaFile* mDelta = nullptr;
    const trees::InstalledFiles::Package* mBase = nullptr; // of the delta
    std::optional<trees::Tree> mTree;
    trees::TreeNeeds mNeeds;
    trees::FrameRuns mRuns;

    void comeWhole();
    const Offer& offer() const { return mPackage->mOffer; }
    const packages::PackageInfo& info() const { return offer().mInfo; }
    qint64 archiveLength() const { return offer().mTarget.mLength; }
    bool hasFailed() const { return static_cast<bool>(mPackage->mFailure); }
    trees::IndexLimits limits() const;
    QString label() const;
    // Downloading it has cost more than it should, because of the failure.
    void warn(Reporter& pReporter, const Failure& pFailure) const;

    Wanted archive() const { return Wanted::archive(offer().mTarget); }
    Wanted index() const;
    Wanted delta() const;
    Wanted frames(const trees::FrameRun& pRun) const;
};

using Parcels = std::vector<Parcel*>;

// A package in more pieces comes whole.
constexpr size_t sMostRequests = 300;

// Files of this machine, or of this server, that are not what was signed: another way may still work.
bool isOfTheWay(const Failure& pFailure);

} // namespace tarn::vkservice::update
