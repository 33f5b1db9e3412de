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

    tuf::Error read(const QByteArray& pRoot)
    {
        tuf::Error tError = mTrusted.setRoot(pRoot);
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
    tuf::Error climb()
    {
        for (int i = 0; i < mLimits.mMaxRootRotations; ++i) {
            QByteArray tFile;
            tuf::Error tError = mFrom.fetch(versionedName(tuf::sRoot, mTrusted.root()->mVersion + 1),
                                            mLimits.mRootLength, &tFile);
            if (tError.mKind == tuf::ErrorKind::NotFound) {
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

    tuf::Error readTimestamp()
    {
        bool tSame = false;
        tuf::Error tError = mFrom.fetch(u"timestamp.json"_s, mLimits.mTimestampLength, &mTo->mTimestamp);
        if (!tError) {
            tError = mTrusted.addTimestamp(mTo->mTimestamp, &tSame);
        }
        if (!tError) {
            mTo->mVersions[tuf::sTimestamp] = mTrusted.timestamp()->mVersion;
            mTo->mVersions[tuf::sSnapshot] = mTrusted.timestamp()->mSnapshot.mVersion;
        }
        return tError;
    }

    tuf::Error readSnapshot()
    {
        QByteArray tFile;
        tuf::Error tError = mFrom.fetch(versionedName(tuf::sSnapshot, mTo->mVersions[tuf::sSnapshot]),
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

tuf::Error readState(tuf::Fetcher& pFrom, const QByteArray& pRoot, RepositoryState* pTo)
{
    *pTo = RepositoryState();
    return Reader(pFrom, pTo).read(pRoot);
}

} // namespace tarn::vkpublish
