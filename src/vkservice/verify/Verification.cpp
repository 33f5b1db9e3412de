#include "verify/Verification.h"

#include "internal/PlainText.h"
#include "os/AbortFlag.h"
#include "os/Confinement.h"
#include "os/IdlePriority.h"
#include "packages/GenerationReader.h"
#include "packages/Roots.h"
#include "trees/IndexStore.h"
#include "trees/TreeCheck.h"
#include "trees/ZstdLines.h"
#include "tuf/Hashes.h"

#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::verify {

using packages::InstalledPackage;
using packages::PackageCheck;
using packages::PackageFolders;

namespace {

// False for an index that was damaged or exchanged since it was stored.
bool isIndex(os::FileSystem& pFileSystem, const QString& pPath, const packages::IndexName& pName)
{
    trees::ZstdLines tLines(pFileSystem);
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    packages::IndexName tFound;
    QByteArray tLine;
    Failure tFailure = tLines.open(pPath);
    while (!tFailure) {
        tFailure = tLines.next(&tLine);
        if (tLine.isNull()) {
            break;
        }
        tHasher.add(tLine += '\n');
        tFound.mLength += tLine.size();
    }
    tFound.mHash = tHasher.result().front();
    return !tFailure && tFound == pName;
}

QString word(trees::TreeFault pFault)
{
    using trees::TreeFault;
    switch (pFault) {
    case TreeFault::Missing:
        return u"missing"_s;
    case TreeFault::Extra:
        return u"extra"_s;
    case TreeFault::Kind:
        return u"kind"_s;
    case TreeFault::Mode:
        return u"mode"_s;
    case TreeFault::Size:
        return u"size"_s;
    case TreeFault::Content:
        return u"content"_s;
    case TreeFault::Target:
        return u"target"_s;
    case TreeFault::Unreadable:
        break;
    }
    return u"unreadable"_s;
}

packages::Finding findingOf(const trees::TreeFinding& pFinding)
{
    const QString tPath = QString::fromUtf8(pFinding.mPath);
    packages::Finding tResult{vkcore::singleLine(tPath), word(pFinding.mFault), std::nullopt};
    if (tPath != tResult.mPath && tPath.size() <= packages::Finding::sMaxExactPath) {
        tResult.mExactPath = tPath;
    }
    return tResult;
}

} // namespace

Verification::Verification(const VerifyRequest& pRequest, os::FileSystem& pFileSystem,
                           const os::AbortFlag& pAbort, VerificationListener& pListener)
    : mRequest(pRequest), mFileSystem(pFileSystem), mAbort(pAbort), mListener(pListener),
      mFolders(pRequest.mInstallDir, pRequest.mDataDir)
{
}

VerifyOutcome Verification::run()
{
    os::makeThreadIdle();
    VerifyOutcome tOutcome;
    packages::Manifest tInstalled;
    trees::IndexStore tIndexes(mFileSystem, mRequest.mStateDir);
    tOutcome.mFailure = packages::GenerationReader(mFileSystem, mFolders).current(&tInstalled);
    tOutcome.mFailure = tOutcome.mFailure ? tOutcome.mFailure : tIndexes.open();
    tOutcome.mFailure = tOutcome.mFailure ? tOutcome.mFailure : confine(tInstalled);
    if (tOutcome.mFailure) {
        return tOutcome;
    }
    tOutcome.mFolders = tInstalled.folders();
    for (const InstalledPackage& tPackage : std::as_const(tInstalled.mPackages)) {
        mProgress.mBytesTotal += tPackage.mInfo.mInstalledSize;
        mProgress.mBytesDone += mRequest.mDone.contains(tPackage.mFolder) ? tPackage.mInfo.mInstalledSize : 0;
    }
    tInstalled.mPackages.removeIf(
        [this](const InstalledPackage& pPackage) { return mRequest.mDone.contains(pPackage.mFolder); });
    for (const InstalledPackage& tPackage : std::as_const(tInstalled.mPackages)) {
        const qint64 tEnd = mProgress.mBytesDone + tPackage.mInfo.mInstalledSize;
        mProgress.mPackage = tPackage.mInfo.mName;
        mListener.onProgress(mProgress);
        Result<PackageCheck> tCheck = check(tPackage, tIndexes);
        if (mAbort.isSet()) {
            return tOutcome;
        }
        if (!tCheck) {
            tOutcome.mFailure = tCheck.failure();
            return tOutcome;
        }
        tCheck->mChecked = QDateTime::currentDateTimeUtc();
        mListener.onPackage(*tCheck);
        mProgress.mBytesDone = tEnd;
    }
    mListener.onProgress(mProgress);
    tOutcome.mIsComplete = true;
    return tOutcome;
}

// Nothing that an index or a package says can make this thread write, or read elsewhere.
Failure Verification::confine(const packages::Manifest& pInstalled) const
{
    if (!os::Confinement::isAvailable()) {
        return {};
    }
    os::Confinement tConfinement;
    tConfinement.allowReading(mRequest.mStateDir);
    tConfinement.allowReading(u"/usr"_s); // libraries that are loaded late
    for (const QString& tRoot : mFolders.roots()) {
        tConfinement.allowReading(tRoot);
    }
    for (const QString& tFolder : pInstalled.folders()) {
        tConfinement.allowReading(mFolders.rootOf(*PackageFolders::place(tFolder)));
    }
    return tConfinement.enter();
}

// A package of a disk that is not there is not damaged.
bool Verification::isMounted(const InstalledPackage& pPackage) const
{
    const QString tRoot = mFolders.rootOf(*PackageFolders::place(pPackage.mFolder));
    return QFileInfo::exists(tRoot + u'/' + packages::Roots::markerName());
}

Result<PackageCheck> Verification::check(const InstalledPackage& pPackage, const trees::IndexStore& pIndexes)
{
    PackageCheck tCheck;
    tCheck.mFolder = pPackage.mFolder;
    const auto& tIndex = pPackage.mInfo.mIndex;
    if (!tIndex || !pIndexes.has(tIndex->mText) || !isMounted(pPackage)) {
        return tCheck;
    }
    const QString tPath = pIndexes.pathOf(tIndex->mText);
    if (!isIndex(mFileSystem, tPath, tIndex->mText)) {
        return tCheck;
    }
    return compare(pPackage, tPath, tCheck);
}

Result<PackageCheck> Verification::compare(const InstalledPackage& pPackage, const QString& pIndex,
                                           PackageCheck pTo)
{
    const qint64 tBegin = mProgress.mBytesDone;
    trees::IndexLimits tLimits;
    tLimits.mMaxBytes = pPackage.mInfo.mInstalledSize;
    const Result<trees::TreeReport> tReport = trees::checkTree(
        mFileSystem, &mAbort, mFolders.absolute(pPackage.mFolder), pIndex, tLimits, [this](qint64 pBytes) {
            mProgress.mBytesDone += pBytes;
            mListener.onProgress(mProgress);
        });
    mProgress.mBytesDone = tBegin;
    if (!tReport) {
        const bool tIsIndex = tReport.failure().mKind == Failure::Kind::Content;
        return tIsIndex ? Result<PackageCheck>(pTo) : tReport.failure();
    }
    pTo.mFiles = tReport->mFiles;
    pTo.mBytes = tReport->mBytes;
    pTo.mCount = tReport->mFaults;
    for (const trees::TreeFinding& tFinding : tReport->mFindings) {
        if (pTo.mFindings.size() < PackageCheck::sMaxFindings) {
            pTo.mFindings.append(findingOf(tFinding));
        }
    }
    pTo.mState = pTo.mCount > 0 ? PackageCheck::State::Damaged : PackageCheck::State::Sound;
    return pTo;
}

} // namespace tarn::vkservice::verify
