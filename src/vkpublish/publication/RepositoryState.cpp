#include "publication/RepositoryState.h"

#include "publication/Layout.h"

#include "tuf/TrustedSet.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

class Reader
{
public:
    Reader(tuf::Fetcher& pFrom, RepositoryState* pTo) : mFrom(pFrom), mTo(pTo) {}

    Failure read(const QByteArray& pRoot)
    {
        if (Failure tFailure = mTrusted.setRoot(pRoot)) {
            return tFailure;
        }
        const Failure tStopped = climb();
        mTo->mVersions[tuf::sRoot] = mTrusted.root()->mVersion;
        if (tStopped) {
            return tStopped;
        }
        if (Failure tFailure = readTimestamp()) {
            return tFailure;
        }
        return readSnapshot();
    }

private:
    Failure climb()
    {
        for (int i = 0; i < mLimits.mMaxRootRotations; ++i) {
            QByteArray tFile;
            if (Failure tFailure = mFrom.fetch(versionedName(tuf::sRoot, mTrusted.root()->mVersion + 1),
                                               mLimits.mRootLength, &tFile)) {
                return tFailure.mKind == Failure::Kind::NotFound ? Failure() : tFailure;
            }
            bool tKeysRemoved = false;
            if (Failure tFailure = mTrusted.addRoot(tFile, &tKeysRemoved)) {
                return tFailure;
            }
            mTo->mNewRoots.append(tFile);
        }
        return {};
    }

    Failure readTimestamp()
    {
        bool tSame = false;
        if (Failure tFailure = mFrom.fetch(u"timestamp.json"_s, mLimits.mTimestampLength, &mTo->mTimestamp)) {
            return tFailure;
        }
        if (Failure tFailure = mTrusted.addTimestamp(mTo->mTimestamp, &tSame)) {
            return tFailure;
        }
        mTo->mVersions[tuf::sTimestamp] = mTrusted.timestamp()->mVersion;
        mTo->mVersions[tuf::sSnapshot] = mTrusted.timestamp()->mSnapshot.mVersion;
        return {};
    }

    Failure readSnapshot()
    {
        QByteArray tFile;
        if (Failure tFailure = mFrom.fetch(versionedName(tuf::sSnapshot, mTo->mVersions[tuf::sSnapshot]),
                                           mLimits.mSnapshotLength, &tFile)) {
            return tFailure;
        }
        if (Failure tFailure = mTrusted.addSnapshot(tFile)) {
            return tFailure;
        }
        mTo->mVersions[tuf::sTargets] = mTrusted.snapshot()->mRoles[tuf::sTargets].mVersion;
        return {};
    }

    tuf::Fetcher& mFrom;
    RepositoryState* mTo;
    const tuf::Limits mLimits;
    // Compared with a time this early, nothing has expired.
    tuf::TrustedSet mTrusted{QDateTime::fromSecsSinceEpoch(0)};
};

} // namespace

Failure readState(tuf::Fetcher& pFrom, const QByteArray& pRoot, RepositoryState* pTo)
{
    *pTo = RepositoryState();
    return Reader(pFrom, pTo).read(pRoot);
}

} // namespace tarn::vkpublish
