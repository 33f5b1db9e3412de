#pragma once

#include "mirror/Arrival.h"

#include "tuf/Updater.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>

namespace tarn::vkpublish {

// A file of metadata; the name is below the metadata folder.
struct MetadataFile
{
    QString mName;
    QByteArray mBytes;
};

// One state of a repository that machines may see, proven by signatures.
struct WholeState
{
    QByteArray mRoot;
    // Delegated roles, targets, snapshot: each before those that refer to it.
    QList<MetadataFile> mLists;
    MetadataFile mTimestamp;
    QList<SignedFile> mTargets;
    QDateTime mSignedAt; // the timestamp
    QDateTime mExpires;  // the first of its files
    int mPackageCount = 0;
};

// Follows the repository like a machine whose trusted metadata is in pTrust. pNow is the time of the clock.
Result<WholeState> readWholeState(os::FileSystem& pFileSystem, const QString& pTrust, tuf::Fetcher& pFrom,
                                  const QDateTime& pNow);

// Whether a machine accepts the state that knows this root and none after it.
bool isValidUnder(const QByteArray& pRoot, const WholeState& pState, const QDateTime& pNow);

} // namespace tarn::vkpublish
