// What the metadata of a repository says of itself, as far as the right keys have signed it.
#pragma once

#include "tuf/Updater.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkpublish {

struct RepositoryState
{
    QMap<QString, qint64> mVersions; // role -> version; none for a role that no signature speaks for
    QList<QByteArray> mNewRoots;     // that follow the one to start from, each signed by the one before
    QByteArray mTimestamp;           // the file
};

// Follows the roots from pRoot on and reads the versions, also of metadata that has expired. With an error
// *pTo has what was verified before it.
Failure readState(tuf::Fetcher& pFrom, const QByteArray& pRoot, RepositoryState* pTo);

} // namespace tarn::vkpublish
