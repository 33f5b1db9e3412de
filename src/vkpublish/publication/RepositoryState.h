// The state of a repository according to its metadata, as far as the right keys have signed it.
#pragma once

#include "tuf/Updater.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkpublish {

struct RepositoryState
{
    QMap<QString, qint64> mVersions;   // role -> version; no entry for a role without a valid signature
    QMap<QString, QDateTime> mExpires; // of the files that were read
    QList<QByteArray> mNewRoots;       // that follow the starting root, each signed by the one before
    // The files.
    QByteArray mRoot; // the newest
    QByteArray mTimestamp;
    QByteArray mSnapshot;
    QByteArray mTargets; // only of readWithTargets()
};

// Follows the roots from pRoot on and reads the versions, also of expired metadata. On an error *pTo contains
// what was verified before it.
Failure readState(tuf::Fetcher& pFrom, const QByteArray& pRoot, RepositoryState* pTo);
// The same, and the list of packages, which must be there and signed.
Failure readWithTargets(tuf::Fetcher& pFrom, const QByteArray& pRoot, RepositoryState* pTo);

} // namespace tarn::vkpublish
