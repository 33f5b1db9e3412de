#include "RepositoryState.h"

#include "Layout.h"

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
        Failure tError = mTrusted.setRoot(pRoot);
        if (!tError) {
            tError = climb();
            mTo->mVersions[tuf::sRoot] = mTrusted.root()->mVersion;
        }
        if (!tError) {
            tError = readTimestamp();
        }
        return tError ? tError : readSnapshot();
    }

private:
    Failure climb()
    {
        for (int i = 0; i < mLimits.mMaxRootRotations; ++i) {
            QByteArray tFile;
            Failure tError = mFrom.fetch(versionedName(tuf::sRoot, mTrusted.root()->mVersion + 1),
                                         mLimits.mRootLength, &tFile);
            if (tError.mKind == Failure::Kind::NotFound) {
                break;
            }
            bool tKeysRemoved = false;
            if (!tError) {
                tError = mTrusted.addRoot(tFile, &tKeysRemoved);
            }
            if (tError) {
                return tError;
            }
            mTo->mNewRoots.append(tFile);
        }
        return {};
    }

    Failure readTimestamp()
    {
        bool tSame = false;
        Failure tError = mFrom.fetch(u"timestamp.json"_s, mLimits.mTimestampLength, &mTo->mTimestamp);
        if (!tError) {
            tError = mTrusted.addTimestamp(mTo->mTimestamp, &tSame);
        }
        if (!tError) {
            mTo->mVersions[tuf::sTimestamp] = mTrusted.timestamp()->mVersion;
            mTo->mVersions[tuf::sSnapshot] = mTrusted.timestamp()->mSnapshot.mVersion;
        }
        return tError;
    }

    Failure readSnapshot()
    {
        QByteArray tFile;
        Failure tError = mFrom.fetch(versionedName(tuf::sSnapshot, mTo->mVersions[tuf::sSnapshot]),
                                     mLimits.mSnapshotLength, &tFile);
        if (!tError) {
            tError = mTrusted.addSnapshot(tFile);
        }
        if (!tError) {
            mTo->mVersions[tuf::sTargets] = mTrusted.snapshot()->mRoles[tuf::sTargets].mVersion;
        }
        return tError;
    }

    tuf::Fetcher& mFrom;
    RepositoryState* mTo;
    const tuf::Limits mLimits;
    // Measured against so early a moment, nothing has expired.
    tuf::TrustedSet mTrusted{QDateTime::fromSecsSinceEpoch(0)};
};

} // namespace

Failure readState(tuf::Fetcher& pFrom, const QByteArray& pRoot, RepositoryState* pTo)
{
    *pTo = RepositoryState();
    return Reader(pFrom, pTo).read(pRoot);
}

} // namespace tarn::vkpublish
