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
        mTo->mRoot = pRoot;
        const Failure tStopped = climb();
        mTo->mVersions[tuf::sRoot] = mTrusted.root()->mVersion;
        mTo->mExpires[tuf::sRoot] = mTrusted.root()->mExpires;
        if (tStopped) {
            return tStopped;
        }
        if (Failure tFailure = readTimestamp()) {
            return tFailure;
        }
        return readSnapshot();
    }

    Failure readTargets()
    {
        const qint64 tVersion = mTo->mVersions[tuf::sTargets];
        if (Failure tFailure =
                mFrom.fetch(versionedName(tuf::sTargets, tVersion), mLimits.mTargetsLength, &mTo->mTargets)) {
            return tFailure;
        }
        if (Failure tFailure = mTrusted.addTargets(mTo->mTargets, tuf::sTargets, tuf::sRoot)) {
            return tFailure;
        }
        mTo->mExpires[tuf::sTargets] = mTrusted.targets(tuf::sTargets)->mExpires;
        return {};
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
            mTo->mRoot = tFile;
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
        mTo->mExpires[tuf::sTimestamp] = mTrusted.timestamp()->mExpires;
        mTo->mVersions[tuf::sSnapshot] = mTrusted.timestamp()->mSnapshot.mVersion;
        return {};
    }

    Failure readSnapshot()
    {
        if (Failure tFailure = mFrom.fetch(versionedName(tuf::sSnapshot, mTo->mVersions[tuf::sSnapshot]),
                                           mLimits.mSnapshotLength, &mTo->mSnapshot)) {
            return tFailure;
        }
        if (Failure tFailure = mTrusted.addSnapshot(mTo->mSnapshot)) {
            return tFailure;
        }
        mTo->mExpires[tuf::sSnapshot] = mTrusted.snapshot()->mExpires;
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

Failure readWithTargets(tuf::Fetcher& pFrom, const QByteArray& pRoot, RepositoryState* pTo)
{
    *pTo = RepositoryState();
    Reader tReader(pFrom, pTo);
    const Failure tFailure = tReader.read(pRoot);
    return tFailure ? tFailure : tReader.readTargets();
}

} // namespace tarn::vkpublish
