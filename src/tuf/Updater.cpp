#include "tuf/Updater.h"

#include "tuf/Names.h"
#include "tuf/RoleFiles.h"
#include "tuf/TargetSearch.h"

using namespace Qt::StringLiterals;

namespace tarn::tuf {

class Updater::Private
{
public:
    Private(os::FileSystem& pFileSystem, const QString& pMetadataDir, Fetcher& pFetcher,
            const QDateTime& pNow, const Limits& pLimits)
        : mRoles(pFileSystem, pMetadataDir, pFetcher, pNow, pLimits), mSearch(mRoles, pLimits.mMaxDelegations)
    {
    }

    Failure checkRefreshed() const
    {
        return mRoles.isRefreshed() ? Failure()
                                    : Failure{Failure::Kind::Damaged, u"The metadata was not refreshed"_s};
    }

    RoleFiles mRoles;
    TargetSearch mSearch;
};

Updater::Updater(os::FileSystem& pFileSystem, const QString& pMetadataDir, Fetcher& pFetcher,
                 const QDateTime& pNow, const Limits& pLimits)
    : d(std::make_unique<Private>(pFileSystem, pMetadataDir, pFetcher, pNow, pLimits))
{
}

Updater::~Updater() = default;

Failure Updater::initialize(os::FileSystem& pFileSystem, const QString& pMetadataDir, const QByteArray& pRoot)
{
    TrustedSet tTrusted{QDateTime()};
    if (Failure tFailure = tTrusted.setRoot(pRoot)) {
        return tFailure;
    }
    MetadataStore tStore(pFileSystem, pMetadataDir);
    const Failure tFailure = tStore.clear();
    return tFailure ? tFailure : tStore.save(sRoot, pRoot);
}

Failure Updater::refresh(const QByteArray& pTimestamp)
{
    return d->mRoles.refresh(pTimestamp);
}

bool Updater::unchanged() const
{
    return d->mRoles.isRefreshed() && d->mRoles.isUnchanged();
}

qint64 Updater::snapshotVersion() const
{
    return d->mRoles.isRefreshed() ? d->mRoles.trusted().snapshot()->mVersion : 0;
}

QDateTime Updater::provenTime(os::FileSystem& pFileSystem, const QString& pMetadataDir)
{
    class NoFetcher : public Fetcher
    {
        Failure fetch(const QString&, qint64, QByteArray*) override
        {
            return {Failure::Kind::Unreachable, {}};
        }
    };
    NoFetcher tFetcher;
    RoleFiles tStored(pFileSystem, pMetadataDir, tFetcher, QDateTime(), Limits());
    return tStored.loadStored() ? QDateTime() : tStored.trusted().provenTime();
}

Failure Updater::findTarget(const QString& pPath, std::optional<TargetFile>* pTo)
{
    pTo->reset();
    if (Failure tFailure = d->checkRefreshed()) {
        return tFailure;
    }
    const Result<std::optional<TargetFile>> tFound = d->mSearch.find(pPath);
    *pTo = tFound.valueOr({});
    return tFound.failure();
}

Failure Updater::allTargets(QList<TargetFile>* pTo)
{
    pTo->clear();
    if (Failure tFailure = d->checkRefreshed()) {
        return tFailure;
    }
    const Result<QList<TargetFile>> tAll = d->mSearch.all();
    *pTo = tAll.valueOr({});
    return tAll.failure();
}

} // namespace tarn::tuf
