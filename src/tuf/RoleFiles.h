#pragma once

#include "internal/Failure.h"
#include "tuf/FetchAhead.h"
#include "tuf/Limits.h"
#include "tuf/MetadataStore.h"
#include "tuf/TrustedSet.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

#include <functional>

namespace tarn::tuf {

// Brings the file of each role, from this machine's folder or from the server, into the trusted set, and
// stores what is new as soon as it is verified.
class RoleFiles
{
public:
    // As for Updater.
    RoleFiles(os::FileSystem& pFileSystem, const QString& pFolder, Fetcher& pFetcher, const QDateTime& pNow,
              const Limits& pLimits);

    // Root, timestamp, snapshot and top-level targets, in this order.
    Failure refresh(const QByteArray& pTimestamp);
    // The root and timestamp of this machine alone; a timestamp that is not valid counts as none.
    Failure loadStored();
    // A target role, after a refresh(). Fine if it is there already.
    Failure bringTargets(const QString& pRole, const QString& pDelegator);

    const TrustedSet& trusted() const { return mTrusted; }
    bool isRefreshed() const { return mRefreshed; }
    // The last refresh() found nothing but what was stored.
    bool isUnchanged() const { return mUnchanged; }

private:
    using Check = std::function<Failure(const QByteArray&)>;

    Failure loadRoot();
    Failure loadTimestamp();
    Failure bringRoots();
    Failure takeRoot(const QByteArray& pFile);
    Failure bringTimestamp();
    Failure judgeTimestamp(const QByteArray& pFile, bool* pSame);
    bool serverLacksRoot();
    Failure bringSnapshot();
    Failure fetch(const FetchedFile& pFile, const QString& pRole, const Check& pCheck);

    void askAhead(const QByteArray& pTimestamp);
    QList<FetchedFile> behind(const QByteArray& pTimestamp);
    QList<FetchedFile> behindTimestamp(const TrustedSet& pTrusted) const;
    FetchedFile nextRoot() const;
    FetchedFile versioned(const QString& pRole, const MetaFile& pMeta, qint64 pLimit) const;

    MetadataStore mStore;
    FetchAhead mAhead;
    QDateTime mNow;
    Limits mLimits;
    TrustedSet mTrusted;
    QByteArray mStoredTimestamp;
    bool mRefreshed = false;
    bool mUnchanged = false;
};

} // namespace tarn::tuf
