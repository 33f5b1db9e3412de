#pragma once

#include "keys/KeyFolder.h"
#include "publication/Publication.h"
#include "publication/RepositoryState.h"

namespace tarn::vkpublish {

// Renews the timestamp of a repository, and its snapshot when less than half of that one's life is left, with
// the keys of these two roles alone. What they lead to stays as others have signed it: the list of packages
// is proven and carried over, and no package is looked at.
//
// The record's highest versions keep the repository from going back, also if somebody else writes to it. New
// files are proven as a machine proves them before the first is written, and the timestamp is written last:
// machines see the old state or the new one, and the next run goes on above an interrupted one.
class Refresh
{
public:
    // The key folder must be open.
    Refresh(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys);

    // pTimes: without mTargetsExpires.
    Failure run(const PublicationTimes& pTimes);

    // After run().
    const RepositoryState& state() const { return mState; }
    bool hasNewSnapshot() const { return mHasNewSnapshot; }

private:
    Failure readRepository();
    Failure checkTargets(const QJsonObject& pEntry) const;
    bool isSnapshotFresh(const PublicationTimes& pTimes) const;
    Failure sign(const PublicationTimes& pTimes, const QJsonObject& pTargetsEntry);
    Failure prove(const RepositoryState& pBefore) const;
    Failure write();

    os::FileSystem& mFileSystem;
    QString mRepository;
    KeyFolder& mKeys;
    RepositoryState mState;
    bool mHasNewSnapshot = false;
};

} // namespace tarn::vkpublish
