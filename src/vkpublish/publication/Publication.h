#pragma once

#include "keys/KeyFolder.h"
#include "publication/RoleSigners.h"
#include "publication/TargetsChoice.h"

#include <QtCore/QDateTime>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::tuf {
class Fetcher;
}

namespace tarn::vkpublish {

struct PublicationTimes
{
    QDateTime mNow;
    QDateTime mExpires; // of timestamp and snapshot
    QDateTime mTargetsExpires;
};

// A metadata file of one version, signed and not written yet; without bytes if it is published already.
struct NewMetadataFile
{
    QByteArray mBytes;
    PublishedFile mPublished;
};

struct NewMetadata
{
    NewMetadataFile mTargets;
    NewMetadataFile mSnapshot;
    QByteArray mTimestamp;
};

// Updates a repository folder to match the record. When all new files are there, one rename replaces
// timestamp.json: clients see either the complete old state or the complete new one. Only a new root is
// written after it; the keys that it replaces have signed the complete state, too, so clients accept that
// state under either root. The next publication repairs one that was interrupted at any point.
class Publication
{
public:
    // The key folder must be open.
    Publication(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys);

    // Signs a new timestamp, and the other files if their content changed or less than half of their lifetime
    // is left. If the repository is ahead of the record, with files signed by the record's keys, the record
    // is from a backup, and its versions are raised first.
    Failure run(const PublicationTimes& pTimes);

    // What run() publishes instead of the targets of the record, which stay for a later run.
    void offer(const TargetList& pTargets) { mOffered = pTargets; }

    // Goes on above the versions of a repository elsewhere; before run().
    Failure takeOver(tuf::Fetcher& pFrom);

    // Checks the clock, locks the repository, and raises the versions of a record that is older than the
    // repository, as run() does.
    Failure catchUp();

    // What the publisher should know: that the record is older than the repository, of drafts that a run()
    // has left, and of stolen keys.
    QStringList notes() const;

    // After run(): removes files that no metadata has referred to for at least pGrace seconds.
    Failure prune(const QDateTime& pNow, qint64 pGrace);

private:
    const TargetList& offered() const { return mOffered ? *mOffered : mKeys.mRecord.mTargets; }
    Failure checkTargets();
    // What is not as published any more.
    struct Changes
    {
        TargetsChoice mTargets;
        bool mNewSnapshot = false;
    };

    Failure publish(const PublicationTimes& pTimes);
    Result<Changes> decide(const PublicationTimes& pTimes);
    Failure begin(const Changes& pChanges, const QDateTime& pNow, NewMetadata* pTo);
    Failure checkRootExpiry(const QDateTime& pNow) const;
    Failure signFiles(const PublicationTimes& pTimes, const RoleSigners& pSigners, NewMetadata* pTo) const;
    Failure writeFiles(const NewMetadata& pFiles);
    void noteWithdrawn();
    bool isUsable(const QString& pRole, const PublishedFile& pFile, const QDateTime& pNow) const;
    Failure write(const QString& pPath, const QByteArray& pFile);
    Failure writeVersioned(const QString& pRole, const NewMetadataFile& pFile, PublishedFile* pTo);

    os::FileSystem& mFileSystem;
    QString mRepository;
    KeyFolder& mKeys;
    std::optional<TargetList> mOffered;
    QStringList mUnnamed; // files in the targets folder that no offered package names
    QStringList mNotes;
    Failure mForeign; // the repository has what this publisher can't have signed
    bool mRaised = false;
};

} // namespace tarn::vkpublish
